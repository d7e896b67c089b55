#include "analytics/GeoIp.h"
#include "analytics/Ingest.h"
#include "support/TestDatabase.h"

#include <QDate>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

#include <algorithm>
#include <vector>

using vesk::analytics::geoIpIsStale;
using vesk::analytics::updateGeoIp;

namespace {

const QString kRefusal = "that does not look like a DB-IP country file";

/// \a count ranges of 256 addresses with gaps of the same size between them.
QByteArray ranges(int count)
{
    QByteArray csv;
    for (int i = 0; i < count; ++i) {
        const QByteArray net = "10." + QByteArray::number(i / 128) + '.' + QByteArray::number(i % 128 * 2);
        csv += net + ".0," + net + ".255," + (i % 2 ? "DE" : "FR") + '\n';
    }
    return csv;
}

QString loaded(int count)
{
    return QStringLiteral("loaded %1 country ranges (IP data by DB-IP, CC BY 4.0)").arg(count);
}

QString month()
{
    return QDate::currentDate().toString("yyyy-MM");
}

} // namespace

class TestGeoIp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_database = std::make_unique<TestDatabase>(); }
    void cleanupTestCase() { m_database.reset(); }
    void init();
    void loads_data();
    void loads();
    void tellsItsProgress();
    void refuses_data();
    void refuses();
    void archivesMustBeWhole();
    void goesStale();
    void lookupsAgreeWithASortedList();

private:
    std::unique_ptr<TestDatabase> m_database;
};

void TestGeoIp::init()
{
    QTest::failOnWarning(QRegularExpression(".*"));
    execute("TRUNCATE vesk.geo_country; INSERT INTO vesk.geo_country VALUES ('1.0.0.0', '1.0.0.255', 'AU'); DELETE FROM vesk.settings "
            "WHERE key = 'geoip_month'");
}

void TestGeoIp::loads_data()
{
    QTest::addColumn<QByteArray>("csv");
    QTest::addColumn<int>("counted");
    QTest::addColumn<int>("stored");
    QTest::newRow("the fewest lines") << ranges(999) << 999 << 999;
    QTest::newRow("no last line feed") << ranges(1000).chopped(1) << 1000 << 1000;
    QTest::newRow("several statements") << ranges(2500) << 2500 << 2500;
    QTest::newRow("CRLF") << ranges(1000).replace("\n", "\r\n") << 1000 << 1000;
    QTest::newRow("same first address") << ranges(1000) + "10.0.0.0,10.0.0.9,XX\n" << 1001 << 1000;
    QTest::newRow("lines passed over") << ranges(1000) + "11.0.0.0,11.0.0.1,ZZ\n11.0.0.0,11.0.0.1,USA\n11.0.0.0,11.0.0.1\n\n11.0.0.0\n,,\n"
                                       << 1000 << 1000;
    QTest::newRow("further fields") << ranges(1000) + " 11.0.0.0,11.0.0.1,US,x,y \n" << 1001 << 1001;
    QTest::newRow("IPv6") << ranges(1000) + "2001:db8::,2001:db8:ffff::,US\n" << 1001 << 1001;
    QTest::newRow("one usable line") << QByteArray(1500, '\n') + "11.0.0.0,11.0.0.1,US" << 1 << 1;
}

void TestGeoIp::loads()
{
    QFETCH(QByteArray, csv);
    QFETCH(int, counted);
    bool ok = false;
    QCOMPARE(updateGeoIp(m_database->file("ranges.csv", csv), &ok), loaded(counted));
    QVERIFY(ok);
    QTEST(value("SELECT count(*) FROM vesk.geo_country").toInt(), "stored");
    QCOMPARE(value("SELECT value FROM vesk.settings WHERE key = 'geoip_month'"), month());
    QCOMPARE(value("SELECT count(*) FROM vesk.geo_country WHERE country = 'AU'"), "0");
}

void TestGeoIp::tellsItsProgress()
{
    QStringList told;
    bool ok = false;
    updateGeoIp(m_database->file("ranges.csv", ranges(2500).chopped(1)), &ok, [&told](QLatin1String unit, qint64 done, qint64 total) {
        told += QStringLiteral("%1 of %2 %3").arg(QString::number(done), QString::number(total), unit);
    });
    QCOMPARE(told, (QStringList { "0 of 2500 lines", "1000 of 2500 lines", "2000 of 2500 lines" }));
}

void TestGeoIp::refuses_data()
{
    QTest::addColumn<QByteArray>("csv");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("warning"); // of a failed statement
    const QString failed = "database error while loading";
    QTest::newRow("too few lines") << ranges(999).chopped(1) << kRefusal << QString();
    QTest::newRow("empty") << QByteArray() << kRefusal << QString();
    QTest::newRow("no usable line") << ranges(1000).replace("DE", "ZZ").replace("FR", "ZZ") << kRefusal << QString();
    QTest::newRow("no address") << ranges(1000) + "first,last,US\n" << failed << "\"first\"";
    QTest::newRow("address with a NUL") << ranges(5000).replace("10.0.2.0", QByteArray("10.0.2.0\0", 9)) << failed << "10.0.2.0";
}

void TestGeoIp::refuses()
{
    QFETCH(QByteArray, csv);
    QFETCH(QString, warning);
    if (!warning.isEmpty()) // one, however many statements were on their way
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^sql: .*invalid.*") + warning));
    bool ok = true;
    QTEST(updateGeoIp(m_database->file("ranges.csv", csv), &ok), "message");
    QVERIFY(!ok);
    QCOMPARE(rows("TABLE vesk.geo_country"), QStringList("1.0.0.0|1.0.0.255|AU"));
    QVERIFY(geoIpIsStale());
}

void TestGeoIp::archivesMustBeWhole()
{
    QProcess gzip;
    gzip.start("gzip", { "-c" });
    gzip.write(ranges(20000));
    gzip.closeWriteChannel();
    QVERIFY(gzip.waitForFinished());
    const QByteArray whole = gzip.readAllStandardOutput();
    bool ok = false;
    for (const QByteArray &damaged : { whole.chopped(8), whole.first(whole.size() / 2), QByteArray("no archive") }) {
        QCOMPARE(updateGeoIp(m_database->file("ranges.csv.gz", damaged), &ok), kRefusal);
        QVERIFY(!ok);
    }
    QCOMPARE(updateGeoIp(m_database->file("missing.csv", {}) + u'x', &ok), kRefusal);
    QCOMPARE(rows("TABLE vesk.geo_country"), QStringList("1.0.0.0|1.0.0.255|AU"));
    QCOMPARE(updateGeoIp(m_database->file("ranges.csv.gz", whole + QByteArray(512, '\0')), &ok), loaded(20000));
}

void TestGeoIp::goesStale()
{
    QVERIFY(geoIpIsStale());
    execute(QStringLiteral("INSERT INTO vesk.settings VALUES ('geoip_month', '%1')").arg(month()));
    QVERIFY(!geoIpIsStale());
    execute("UPDATE vesk.settings SET value = '2020-01' WHERE key = 'geoip_month'");
    QVERIFY(geoIpIsStale());
}

/// What import-log finds for random addresses, against a search in a sorted list of numbers.
void TestGeoIp::lookupsAgreeWithASortedList()
{
    struct Range
    {
        quint32 first;
        quint32 last;
        QByteArray country;
    };
    const auto text = [](quint32 address) {
        return QByteArray::number(address >> 24) + '.' + QByteArray::number(address >> 16 & 255) + '.'
            + QByteArray::number(address >> 8 & 255) + '.' + QByteArray::number(address & 255);
    };
    QRandomGenerator random(7);
    std::vector<Range> list;
    QByteArray csv;
    quint32 next = 0;
    for (int i = 0; i < 3000; ++i) {
        const quint32 first = next + random.bounded(700000U);
        const quint32 last = first + random.bounded(700000U);
        list.push_back({ first, last, { 2, static_cast<char>('A' + i % 25) } });
        csv += text(first) + ',' + text(last) + ',' + list.back().country + '\n';
        next = last + 1 + random.bounded(2U) * 100;
    }
    bool ok = false;
    updateGeoIp(m_database->file("random.csv", csv), &ok);
    QVERIFY(ok);

    QList<QByteArray> lines;
    QStringList expected;
    for (int i = 0; i < 4000; ++i) {
        quint32 address = random.generate();
        if (i % 4 == 0) // one end of a range, or next to it
            address = list[static_cast<size_t>(i) % list.size()].last + static_cast<quint32>(i / 4 % 2);
        lines += text(address) + " - - [10/Mar/2026:12:00:00 +0000] \"GET /\" 200 5";
        const auto after
            = std::upper_bound(list.begin(), list.end(), address, [](quint32 a, const Range &range) { return a < range.first; });
        const bool found = after != list.begin() && std::prev(after)->last >= address;
        expected += found ? QString::fromLatin1(std::prev(after)->country) : QStringLiteral("-");
    }
    execute("INSERT INTO vesk.sites (host, name) VALUES ('example.org', '')");
    vesk::analytics::Ingest ingest;
    QVERIFY(ingest.init());
    ingest.ingest(1, "example.org",
        [&lines, i = qsizetype(0)]() mutable { return i < lines.size() ? std::optional<QByteArrayView>(lines[i++]) : std::nullopt; });
    QVERIFY(expected.count("-") > 500 && expected.count("-") < 3500);
    QCOMPARE(rows("SELECT country FROM vesk.hits ORDER BY id"), expected);
}

QTEST_GUILESS_MAIN(TestGeoIp)
#include "tst_geoip.moc"
