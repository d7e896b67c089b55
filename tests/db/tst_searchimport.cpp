#include "analytics/SearchImport.h"
#include "support/TestDatabase.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTest>

namespace {

QJsonObject json(const QByteArray &text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError)
        qFatal("%s in %s", qPrintable(error.errorString()), text.constData());
    return document.object();
}

/// Imports for site 1 and the engine google.
QString import(const QJsonObject &data, bool *ok)
{
    return vesk::analytics::importSearchData(1, "google", data, ok);
}

QStringList days()
{
    return rows("SELECT site_id, engine, day, clicks, impressions, position FROM vesk.search_days ORDER BY 1, 2, 3");
}

const QStringList kBefore {
    "1|bing|2024-05-02|1|1|1",
    "1|google|2024-05-02|1|1|1",
    "1|google|2024-05-09|1|1|1",
    "2|google|2024-05-02|1|1|1",
};

} // namespace

class TestSearchImport : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_database = std::make_unique<TestDatabase>(); }
    void cleanupTestCase() { m_database.reset(); }
    void init();
    void replacesTheRange();
    void readsEachField_data();
    void readsEachField();
    void batchesOfAnySize_data();
    void batchesOfAnySize();
    void refuses_data();
    void refuses();
    void aLostCommitIsNoSuccess();

private:
    std::unique_ptr<TestDatabase> m_database;
};

void TestSearchImport::init()
{
    QTest::failOnWarning(QRegularExpression(".*"));
    execute("TRUNCATE vesk.sites RESTART IDENTITY CASCADE; INSERT INTO vesk.sites (host, name) VALUES ('a', ''), ('b', ''); INSERT INTO "
            "vesk.search_days VALUES (1, 'google', '2024-05-02', 1, 1, 1), (1, 'google', '2024-05-09', 1, 1, 1), (1, 'bing', '2024-05-02', "
            "1, 1, 1), (2, 'google', '2024-05-02', 1, 1, 1); INSERT INTO vesk.search_rows SELECT site_id, engine, day, 'old', '/', NULL, "
            "NULL, 1, 1, 1 FROM vesk.search_days");
}

void TestSearchImport::replacesTheRange()
{
    const QJsonObject data = json(R"({"totals": [
        {"keys": ["2024-05-03"], "clicks": 3, "impressions": 30, "position": 1.5},
        {"keys": ["2024-05-01"], "clicks": 1, "impressions": 10, "position": 2}],
        "rows": [{"keys": ["2024-05-02", "new", "https://a.example/x", "deu", "TABLET"], "clicks": 1}], "other": 1})");
    for (int i = 0; i < 2; ++i) {
        bool ok = false;
        QCOMPARE(import(data, &ok), "2 days (2024-05-01 to 2024-05-03), 1 detail rows");
        QVERIFY(ok);
        QCOMPARE(
            days(), (QStringList { kBefore[0], "1|google|2024-05-01|1|10|2", "1|google|2024-05-03|3|30|1.5", kBefore[2], kBefore[3] }));
        QCOMPARE(rows("SELECT site_id, engine, day, query FROM vesk.search_rows ORDER BY 1, 2, 3"),
            (QStringList { "1|bing|2024-05-02|old", "1|google|2024-05-02|new", "1|google|2024-05-09|old", "2|google|2024-05-02|old" }));
    }
}

void TestSearchImport::readsEachField_data()
{
    QTest::addColumn<QByteArray>("row"); // without its day
    QTest::addColumn<QString>("stored");
    const auto add = [](const char *name, const char *row, const char *stored) {
        QTest::newRow(name) << QByteArray(row) << QString::fromUtf8(stored);
    };
    add("all", R"("a b", "https://x.example/p%20q/?u=v#w", "USA", "DESKTOP"], "clicks": 1, "impressions": 2, "position": 3.25)",
        "a b|/p q/|US|desktop|1|2|3.25");
    add("unknown country", R"("q", "/", "zzz", "x"])", "q|/|-|x|0|0|0");
    add("nothing else", "], \"clicks\": null", "||-||0|0|0");
    add("keys that are no texts", R"(1, null, {}, []])", "||-||0|0|0");
    add("URL without a path", R"("q", "https://x.example", "deu", "MOBILE"])", "q||DE|mobile|0|0|0");
    add("figures that are no whole numbers", R"("q", "/", "", ""], "clicks": 12.5, "impressions": "12", "position": "1")", "q|/|-||0|0|0");
    add("figures beyond 32 bits", R"("q", "/", "", ""], "clicks": 2147483647, "impressions": 2147483648)", "q|/|-||2147483647|0|0");
    add("U+0000", R"("a\u0000b", "/%00", "\u0000", "\u0000"])", "a\uFFFDb|/\uFFFD|-|\uFFFD|0|0|0");
}

void TestSearchImport::readsEachField()
{
    QFETCH(QByteArray, row);
    const char *separator = row.startsWith(']') ? "" : ", ";
    const QJsonObject data
        = json(R"({"totals": [{"keys": ["2024-05-02"]}], "rows": [{"keys": ["2024-05-02")" + QByteArray(separator) + row + "}]}");
    bool ok = false;
    QCOMPARE(import(data, &ok), "1 days (2024-05-02 to 2024-05-02), 1 detail rows");
    QTEST(value("SELECT query, page, country, device, clicks, impressions, position FROM vesk.search_rows WHERE site_id = 1 AND engine = "
                "'google' AND day = '2024-05-02'"),
        "stored");
}

void TestSearchImport::batchesOfAnySize_data()
{
    QTest::addColumn<int>("count");
    for (const int count : { 0, 1, 500, 501, 1234 })
        QTest::addRow("%d", count) << count;
}

void TestSearchImport::batchesOfAnySize()
{
    QFETCH(int, count);
    QJsonArray detail;
    for (int i = 0; i < count; ++i)
        detail += QJsonObject { { "keys", QJsonArray { "2024-05-02", QString::number(i) } } };
    bool ok = false;
    import({ { "totals", json(R"({"t": [{"keys": ["2024-05-02"]}]})").value("t") }, { "rows", detail } }, &ok);
    QVERIFY(ok);
    QCOMPARE(value("SELECT count(DISTINCT query) FROM vesk.search_rows WHERE query <> 'old'").toInt(), count);
}

void TestSearchImport::refuses_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("warning");
    const QString none = "no daily totals in the data";
    const QString failed = "database error while storing";
    const QByteArray row = R"("rows": [{"keys": ["2024-05-02", "q", "/", "", ""]}])";
    QTest::newRow("nothing") << QByteArray("{}") << none << QString();
    QTest::newRow("rows only") << QByteArray("{" + row + "}") << none << QString();
    QTest::newRow("empty totals") << QByteArray("{\"totals\": [], " + row + "}") << none << QString();
    QTest::newRow("totals are no array") << QByteArray("{\"totals\": {\"a\": 1}, " + row + "}") << none << QString();
    QTest::newRow("no day") << QByteArray(R"({"totals": [{}]})") << failed << "invalid input syntax for type date";
    QTest::newRow("bad day") << QByteArray(R"({"totals": [{"keys": ["2024-05-02"]}, {"keys": ["2024-05-32"]}]})") << failed << "2024-05-32";
    QTest::newRow("a day twice") << QByteArray(R"({"totals": [{"keys": ["2024-05-02"]}, {"keys": ["2024-05-02"]}]})") << failed
                                 << "search_days_pkey";
    QTest::newRow("bad day in the rows") << QByteArray(R"({"totals": [{"keys": ["2024-05-02"]}], "rows": [{"keys": ["May"]}]})") << failed
                                         << "May";
    QTest::newRow("position out of range") << QByteArray(R"({"totals": [{"keys": ["2024-05-02"], "position": 1e300}]})") << failed
                                           << "out of range for type real";
}

void TestSearchImport::refuses()
{
    QFETCH(QByteArray, data);
    QFETCH(QString, warning);
    if (!warning.isEmpty())
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^sql: .*") + warning));
    bool ok = true;
    QTEST(import(json(data), &ok), "message");
    QVERIFY(!ok);
    QCOMPARE(days(), kBefore);
    QCOMPARE(value("SELECT count(*) FROM vesk.search_rows WHERE query = 'old'"), "4");
}

void TestSearchImport::aLostCommitIsNoSuccess()
{
    execute("CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN RAISE 'not today'; END $$; CREATE CONSTRAINT TRIGGER "
            "late AFTER INSERT ON vesk.search_days DEFERRABLE INITIALLY DEFERRED FOR EACH ROW EXECUTE FUNCTION refuse()");
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^sql: .*not today"));
    bool ok = true;
    QCOMPARE(import(json(R"({"totals": [{"keys": ["2024-05-02"]}]})"), &ok), "database error while storing");
    QVERIFY(!ok);
    QCOMPARE(days(), kBefore);
    execute("DROP TRIGGER late ON vesk.search_days");
}

QTEST_GUILESS_MAIN(TestSearchImport)
#include "tst_searchimport.moc"
