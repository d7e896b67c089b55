#include "analytics/SearchImport.h"
#include "support/Table.h"
#include "support/TestDatabase.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace {

/// Imports \a text, with ' for the double quote, for site 1 and the engine google.
QString import(QByteArray text, bool *ok)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text.replace('\'', '"'), &error);
    if (error.error != QJsonParseError::NoError)
        qFatal("%s in %s", qPrintable(error.errorString()), text.constData());
    return vesk::analytics::importSearchData(1, "google", document.object(), ok);
}

/// Data with a total of the 2nd of May 2024 and \a rows.
QByteArray withRows(const QByteArray &rows)
{
    return "{'totals': [{'keys': ['2024-05-02']}], 'rows': [" + rows + "]}";
}

QStringList days()
{
    return rows("SELECT site_id, engine, day, clicks, impressions, position FROM vesk.search_days "
                "ORDER BY 1, 2, 3");
}

const QStringList kBefore { "1|bing|2024-05-02|1|1|1", "1|google|2024-05-02|1|1|1",
    "1|google|2024-05-09|1|1|1", "2|google|2024-05-02|1|1|1" };

} // namespace

class TestSearchImport : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        execute("TRUNCATE vesk.sites RESTART IDENTITY CASCADE; INSERT INTO vesk.sites (host, name) "
                "VALUES ('a', ''), ('b', '')");
        for (const QString &day : kBefore)
            execute("INSERT INTO vesk.search_days VALUES ('" + day.split(u'|').join("', '") + "')");
        execute("INSERT INTO vesk.search_rows SELECT site_id, engine, day, 'old', '/', NULL, NULL, "
                "1, 1, 1 FROM vesk.search_days");
    }

    void replacesTheRange()
    {
        const QByteArray text
            = "{'totals': [{'keys': ['2024-05-03'], 'clicks': 3, 'impressions': 30, "
              "'position': 1.5}, {'keys': ['2024-05-01'], 'clicks': 1, 'impressions': 10, "
              "'position': 2}], 'other': 1, "
              "'rows': [{'keys': ['2024-05-02', 'new', '/x', 'deu', 'TABLET'], 'clicks': 1}]}";
        for (int i = 0; i < 2; ++i) {
            bool ok = false;
            QCOMPARE(import(text, &ok), "2 days (2024-05-01 to 2024-05-03), 1 detail rows");
            QVERIFY(ok);
            QCOMPARE(days(),
                (QStringList { kBefore[0], "1|google|2024-05-01|1|10|2",
                    "1|google|2024-05-03|3|30|1.5", kBefore[2], kBefore[3] }));
            QCOMPARE(
                rows("SELECT site_id, engine, day, query FROM vesk.search_rows ORDER BY 1, 2, 3"),
                (QStringList { "1|bing|2024-05-02|old", "1|google|2024-05-02|new",
                    "1|google|2024-05-09|old", "2|google|2024-05-02|old" }));
        }
    }

    void readsEachField_data()
    {
        const Table row; // of what follows the day in a detail row
        row(", 'a b', 'https://x.example/p%20%zz/?u=v#w', 'USA', 'DESKTOP'], 'clicks': 1, "
            "'impressions': 2, 'position': 3.25",
            "a b|/p %zz/|US|desktop|1|2|3.25");
        row(", 'q', 'https://x.example', 'zzz', 'x']", "q||-|x|0|0|0"); // no path, no such country
        row("], 'clicks': null", "||-||0|0|0");
        row(", 1, null, {}, []]", "||-||0|0|0");
        row(", 'q', '/', '', ''], 'clicks': 12.5, 'impressions': '12', 'position': '1'",
            "q|/|-||0|0|0");
        row(", 'q', '/', '', ''], 'clicks': 2147483647, 'impressions': 2147483648",
            "q|/|-||2147483647|0|0");
        row(", 'a\\u0000b', '/%00', '\\u0000', '\\u0000']", "a\uFFFDb|/\uFFFD|-|\uFFFD|0|0|0");
    }

    void readsEachField()
    {
        QFETCH(QByteArray, text);
        bool ok = false;
        QCOMPARE(import(withRows("{'keys': ['2024-05-02'" + text + '}'), &ok),
            "1 days (2024-05-02 to 2024-05-02), 1 detail rows");
        QTEST(value("SELECT query, page, country, device, clicks, impressions, position "
                    "FROM vesk.search_rows WHERE query <> 'old'"),
            "expected");
    }

    void batchesOfAnySize()
    {
        for (const int count : { 0, 1, 500, 501, 1234 }) {
            QByteArrayList detail;
            for (int i = 0; i < count; ++i)
                detail += "{'keys': ['2024-05-02', '" + QByteArray::number(i) + "']}";
            bool ok = false;
            import(withRows(detail.join(',')), &ok);
            QCOMPARE(
                value("SELECT count(DISTINCT query) FROM vesk.search_rows WHERE query <> 'old'"),
                QString::number(count));
        }
    }

    void refuses_data()
    {
        const Table row; // what is expected is what the database says, if it comes to that
        row("{}", "");
        row("{'totals': [], 'rows': [{'keys': ['2024-05-02', 'q', '/', '', '']}]}", "");
        row("{'totals': {'a': 1}}", "");
        row("{'totals': [{}]}", "invalid input syntax for type date");
        row("{'totals': [{'keys': ['2024-05-02']}, {'keys': ['2024-05-02']}]}", "search_days_pkey");
        row(withRows("{'keys': ['May']}"), "May");
        row("{'totals': [{'keys': ['2024-05-02'], 'position': 1e300}]}",
            "out of range for type real");
    }

    void refuses()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, expected);
        if (!expected.isEmpty())
            ignoreWarning("^sql: .*" + expected);
        bool ok = true;
        QCOMPARE(import(text, &ok),
            expected.isEmpty() ? "no daily totals in the data" : "database error while storing");
        QVERIFY(!ok);
        QCOMPARE(days(), kBefore);
        QCOMPARE(value("SELECT count(*) FROM vesk.search_rows WHERE query = 'old'"), "4");
    }

    void aLostCommitIsNoSuccess()
    {
        execute("CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS "
                "$$ BEGIN RAISE 'not today'; END $$; CREATE CONSTRAINT TRIGGER late AFTER INSERT "
                "ON vesk.search_days DEFERRABLE INITIALLY DEFERRED FOR EACH ROW "
                "EXECUTE FUNCTION refuse()");
        ignoreWarning("^sql: .*not today");
        bool ok = true;
        QCOMPARE(import(withRows(""), &ok), "database error while storing");
        QVERIFY(!ok);
        QCOMPARE(days(), kBefore);
        execute("DROP TRIGGER late ON vesk.search_days");
    }

private:
    const TestDatabase m_database;
};

QTEST_GUILESS_MAIN(TestSearchImport)
#include "tst_searchimport.moc"
