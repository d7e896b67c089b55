#include "analytics/Ingest.h"
#include "support/LogLines.h"
#include "support/Table.h"
#include "support/TestDatabase.h"

#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlDriver>

#include <ctime>

using vesk::analytics::Ingest;

namespace {

using Lines = QList<QByteArray>;

QString stored(const char *columns)
{
    return rows(QStringLiteral("SELECT %1 FROM vesk.hits ORDER BY id").arg(QLatin1String(columns))).join(u',');
}

} // namespace

class TestIngest : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        execute("TRUNCATE vesk.sites, vesk.geo_country RESTART IDENTITY CASCADE; ALTER SEQUENCE vesk.session_seq RESTART; "
                "INSERT INTO vesk.sites (host, name) VALUES ('example.org', ''), ('other.example', '')");
    }

    void storesEachColumn_data()
    {
        const Table row; // method to bytes, page, source to search terms, bot, seconds and duration are expected
        row("a page", R"("GET /a%20b?x=1 HTTP/1.1" 200 1234 "https://bing.com/?q=x" "Firefox/1 Linux" 77)",
            "GET|/a b|200|1234|true|search|Bing|https://bing.com/?q=x|x|-|-|77");
        row("a beacon", R"("GET /vesk-b?p=%2Fabout&t=12.5 HTTP/1.1" 99999 - "-" "-")",
            "BEACON|/about|204|0|false|direct|-|-|-|No user agent|12.5|-");
        row("cut", "\"ABCDEFGHIJKLMNOPQRST /" + QByteArray(2500, 'p') + "\" 200 -5 \"https://a.b/" + QByteArray(987, 'r') + "\xC3\xBC\"",
            "ABCDEFGHIJKLMNOP|/" + QByteArray(1999, 'p') + "|200|-5|false|referral|a.b|https://a.b/" + QByteArray(987, 'r')
                + "\uFFFD|-|No user agent|-|-");
        row("NUL, malformed UTF-8", R"("GET /a%00b%FF" 200 5)", "GET|/a\uFFFDb\uFFFD|200|5|true|direct|-|-|-|No user agent|-|-");
        for (const QByteArrayList &duration : QList<QByteArrayList> { { "0", "0" }, { "2147483646", "2147483646" }, { "2147483647", "-" } })
            row(R"("GET /" 1 0 "-" "-" )" + duration[0], "GET|/|1|0|true|direct|-|-|-|No user agent|-|" + duration[1]);
    }

    void storesEachColumn()
    {
        QFETCH(QByteArray, text);
        QCOMPARE(importLines({ logLine("192.0.2.1", "10/12:00:00 +0100", text) }).stored, 1);
        QTEST(stored("method, path, status, bytes, is_page, source_kind, source, referrer, search_terms, bot, engaged_secs, response_us"),
            "expected");
        QCOMPARE(stored("site_id, at::text, session_id, host(ip), device"), "1|2026-03-10 11:00:00+00|1|192.0.2.1|desktop");
        QVERIFY(!text.contains("Linux") || stored("browser, os") == "Firefox|Linux");
    }

    void countsEveryLine()
    {
        const Ingest::Result result
            = importLines({ "", " \t\r", "nonsense", logLine("-"), logLine("192.0.2.1", "10/12:00:00 +0000", R"("GET /" 70000 5)"),
                logLine("192.0.2.1", "11/12:00:00 +0000", R"("GET /vesk-b?p=/x&t=0" 204 0)") });
        QCOMPARE(QList<int>({ result.lines, result.stored, result.skipped }), QList<int>({ 4, 1, 2 }));
        QCOMPARE(result.days, QSet<QDate> { QDate(2026, 3, 10) });
        QCOMPARE(stored("ip, country, length(visitor)"), "-|-|8");
        QCOMPARE(importLines({}).lines, 0);
    }

    void batchesOfAnySize_data()
    {
        QTest::addColumn<int>("count");
        for (const int count : { 1, 200, 201, 5000, 5001, 12001 })
            QTest::addRow("%d", count) << count;
    }

    /// Every line is stored, in order, and each slice is told to those that listen.
    void batchesOfAnySize()
    {
        QFETCH(int, count);
        QSqlDriver *driver = QSqlDatabase::database().driver();
        QVERIFY(driver->subscribeToNotification("vesk_hits"));
        const QSignalSpy spy(driver, &QSqlDriver::notification);
        Lines lines;
        for (int i = 0; i < count; ++i)
            lines += logLine("192.0.2.1", "10/12:00:00 +0000", "\"GET /" + QByteArray::number(i) + "\" 200 5");
        QCOMPARE(importLines(lines).stored, count);
        QCOMPARE(
            value("SELECT count(*) FROM (SELECT path, row_number() OVER (ORDER BY id) AS n FROM vesk.hits) h WHERE path = '/' || n - 1"),
            QString::number(count));
        importLines({ "nonsense" });
        execute("NOTIFY vesk_hits, 'end'");
        const int slices = (count + 4999) / 5000;
        QTRY_COMPARE(spy.count(), slices + 1);
        QCOMPARE(spy.at(slices - 1).at(2).toString() + spy.at(slices).at(2).toString(), "1end");
        QVERIFY(driver->unsubscribeFromNotification("vesk_hits"));
    }

    void visitsGoOnFromFileToFile()
    {
        Ingest ingest;
        QVERIFY(ingest.init());
        ingest.ingest(1, "example.org", Lines { logLine("a", "10/23:40:00 +0000") });
        ingest.ingest(1, "example.org", Lines { logLine("a", "11/00:59:59 +0100"), logLine("a", "11/01:00:00 +0100") }); // midnight, UTC
        ingest.ingest(2, "other.example", Lines { logLine("a", "10/23:50:00 +0000") });
        QCOMPARE(stored("site_id || ':' || session_id"), "1:1,1:1,1:2,2:3");
        QCOMPARE(value("SELECT count(DISTINCT visitor) FROM vesk.hits"), "3");
        const QByteArray visitor = ingest.visitorHash(2, "a", "UA", QDate(2026, 3, 10));
        QCOMPARE(ingest.sessionFor(visitor, QDateTime(QDate(2026, 3, 11), QTime(0, 20), Qt::UTC)), 3);
        QCOMPARE(ingest.sessionFor(visitor, QDateTime(QDate(2026, 3, 11), QTime(0, 51), Qt::UTC)), 4);
        QCOMPARE(value("SELECT last_value FROM vesk.session_seq"), "4"); // none is wasted
    }

    /// Past 50,000 visitors those that were idle for long are forgotten after each slice: here all.
    void manyVisitorsAreForgotten()
    {
        Lines lines;
        const auto add = [&lines](const QByteArray &visitor) { lines += logLine(visitor).replace("/2026:", "/2020:"); };
        for (int i = 0; i < 49999; ++i)
            add("v" + QByteArray::number(i));
        add("v0"); // the 50,000th line: a slice ends with 49,999 visitors
        for (const char *visitor : { "v0", "w", "x" })
            add(visitor);
        lines += QList<QByteArray>(4997, QByteArray()); // the slice ends with 50,001 visitors
        add("v0");
        importLines(lines);
        QCOMPARE(rows("SELECT h.session_id FROM vesk.hits h JOIN vesk.hits f USING (visitor) WHERE f.id = 1 ORDER BY h.id").join(u','),
            "1,1,1,50002");
    }

    void aFailedBatchLosesItsSliceOnly()
    {
        execute("ALTER TABLE vesk.hits ADD CONSTRAINT no_bad CHECK (path <> '/bad')");
        Lines lines(10000, logLine("192.0.2.1"));
        lines[5300] = logLine("192.0.2.1", "10/12:00:00 +0000", R"("GET /bad" 200 5)");
        ignoreWarning("^sql: .*no_bad");
        ignoreWarning("^sql: .*current transaction is aborted", 23);
        const Ingest::Result result = importLines(lines);
        QCOMPARE(result.lines, 10000);
        QCOMPARE(result.stored, 5200); // the first slice, and the batch before the bad one
        QCOMPARE(value("SELECT count(*) FROM vesk.hits"), "5000");
        execute("ALTER TABLE vesk.hits DROP CONSTRAINT no_bad");
    }

    void collectsLocalDays()
    {
        qputenv("TZ", "Europe/Berlin");
        tzset();
        Lines lines;
        for (const char *time : { "28/23:30:00", "29/21:59:59", "29/22:00:00", "28/22:59:59" }) // the clocks go forward on the 29th
            lines += logLine("192.0.2.1", QByteArray(time) + " +0000");
        const Ingest::Result result = importLines(lines);
        qputenv("TZ", "UTC");
        tzset();
        QCOMPARE(result.days, (QSet<QDate> { QDate(2026, 3, 28), QDate(2026, 3, 29), QDate(2026, 3, 30) }));
    }

private:
    const TestDatabase m_database;
};

QTEST_GUILESS_MAIN(TestIngest)
#include "tst_ingest.moc"
