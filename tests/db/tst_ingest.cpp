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
    return rows(QStringLiteral("SELECT %1 FROM vesk.hits ORDER BY id").arg(QLatin1String(columns)))
        .join(u',');
}

} // namespace

class TestIngest : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        execute("TRUNCATE vesk.sites, vesk.geo_country RESTART IDENTITY CASCADE; ALTER SEQUENCE "
                "vesk.session_seq RESTART; "
                "INSERT INTO vesk.sites (host, name) VALUES ('example.org', ''), ('other.example', "
                "'')");
    }

    void storesEachColumn_data()
    {
        const Table row; // method to bytes, page, source to search terms, bot, seconds and duration
                         // are expected
        row("a page",
            R"("GET /a%20b?x=1 HTTP/1.1" 200 1234 "https://bing.com/?q=x" "Firefox/1 Linux" 77)",
            "GET|/a b|200|1234|true|search|Bing|https://bing.com/?q=x|x|-|-|77");
        row("a beacon", R"("GET /vesk-b?p=%2Fabout&t=12.5 HTTP/1.1" 99999 - "-" "-")",
            "BEACON|/about|204|0|false|direct|-|-|-|No user agent|12.5|-");
        row("cut",
            "\"ABCDEFGHIJKLMNOPQRST /" + QByteArray(2500, 'p') + "\" 200 -5 \"https://a.b/"
                + QByteArray(987, 'r') + "\xC3\xBC\"",
            "ABCDEFGHIJKLMNOP|/" + QByteArray(1999, 'p') + "|200|-5|false|referral|a.b|https://a.b/"
                + QByteArray(987, 'r') + "\uFFFD|-|No user agent|-|-");
        row("a byte order mark", "\"GET /\" 200 5 \"\xEF\xBB\xBF\"",
            "GET|/|200|5|true|direct|-|-|-|No user agent|-|-");
        for (const QByteArrayList &duration : QList<QByteArrayList> {
                 { "0", "0" }, { "2147483646", "2147483646" }, { "2147483647", "-" } })
            row(R"("GET /" 1 0 "-" "-" )" + duration[0],
                "GET|/|1|0|true|direct|-|-|-|No user agent|-|" + duration[1]);
    }

    void storesEachColumn()
    {
        QFETCH(QByteArray, text);
        QCOMPARE(importLines({ logLine("192.0.2.1", "10/12:00:00 +0100", text) }).stored, 1);
        QTEST(stored("method, path, status, bytes, is_page, source_kind, source, referrer, "
                     "search_terms, bot, engaged_secs, response_us"),
            "expected");
        QCOMPARE(stored("site_id, at::text, session_id, host(ip), device"),
            "1|2026-03-10 11:00:00+00|1|192.0.2.1|desktop");
        QVERIFY(!text.contains("Linux") || stored("browser, os") == "Firefox|Linux");
    }

    void countsEveryLine()
    {
        const Ingest::Result result = importLines({ "", " \t\r", "nonsense", logLine("-"),
            logLine("192.0.2.1", "10/12:00:00 +0000", R"("GET /" 70000 5)"),
            logLine("192.0.2.1", "11/12:00:00 +0000", R"("GET /vesk-b?p=/x&t=0" 204 0)") });
        QCOMPARE(
            QList<int>({ result.lines, result.stored, result.skipped }), QList<int>({ 4, 1, 2 }));
        QCOMPARE(result.days, QSet<QDate> { QDate(2026, 3, 10) });
        QCOMPARE(stored("ip, country, length(visitor)"), "-|-|8");
        QCOMPARE(importLines({}).lines, 0);
    }

    void visitsGoOnFromFileToFile()
    {
        Ingest ingest;
        QVERIFY(ingest.init());
        ingest.ingest(1, "example.org", Lines { logLine("a", "10/23:40:00 +0000") });
        ingest.ingest(1, "example.org",
            Lines { logLine("a", "11/00:59:59 +0100"),
                logLine("a", "11/01:00:00 +0100") }); // midnight, UTC
        ingest.ingest(2, "other.example", Lines { logLine("a", "10/23:50:00 +0000") });
        QCOMPARE(stored("site_id || ':' || session_id"), "1:1,1:1,1:2,2:3");
        QCOMPARE(value("SELECT count(DISTINCT visitor) FROM vesk.hits"), "3");
        const QByteArray visitor = ingest.visitorHash(2, "a", "UA", QDate(2026, 3, 10));
        QCOMPARE(
            ingest.sessionFor(visitor, QDateTime(QDate(2026, 3, 11), QTime(0, 20), Qt::UTC)), 3);
        QCOMPARE(
            ingest.sessionFor(visitor, QDateTime(QDate(2026, 3, 11), QTime(0, 51), Qt::UTC)), 4);
        QCOMPARE(value("SELECT last_value FROM vesk.session_seq"), "4"); // none is wasted
    }

    /// Past 50,000 visitors those that were idle for long are forgotten after each slice: here all.
    void manyVisitorsAreForgotten()
    {
        Lines lines;
        for (int i = 0; i <= 50000; ++i)
            lines += logLine("v" + QByteArray::number(i)).replace("/2026:", "/2020:");
        const QByteArray first = lines[0];
        lines
            += Lines(4998, QByteArray()) + Lines { first, first }; // the second is the next slice's
        importLines(lines);
        QCOMPARE(rows("SELECT h.session_id FROM vesk.hits h JOIN vesk.hits f USING (visitor) "
                      "WHERE f.id = 1 ORDER BY h.id")
                     .join(u','),
            "1,1,50002");
    }

    /// Batches of 200 rows in slices of 5,000 lines; those that listen hear of each slice once it
    /// is committed. A failed batch takes its slice with it, and no other.
    void slicesStandAlone()
    {
        QSqlDatabase other = QSqlDatabase::cloneDatabase(QSqlDatabase::database(), "other");
        QVERIFY(other.open() && other.driver()->subscribeToNotification("vesk_hits"));
        const QSignalSpy spy(other.driver(), &QSqlDriver::notification);
        execute("ALTER TABLE vesk.hits ADD CONSTRAINT no_bad CHECK (path <> '/5300')");
        Lines lines;
        for (int i = 0; i < 10201; ++i)
            lines += logLine(
                "192.0.2.1", "10/12:00:00 +0000", "\"GET /" + QByteArray::number(i) + "\" 200 5");
        ignoreWarning("^sql: .*no_bad");
        ignoreWarning("^sql: .*current transaction is aborted", 23); // not of a notification
        const Ingest::Result result = importLines(lines);
        QCOMPARE(result.lines, 10201);
        QCOMPARE(result.stored, 5000 + 200 + 201); // of the second slice the batch before /5300
        QCOMPARE(value("SELECT string_agg(path, '' ORDER BY id) = (SELECT string_agg('/' || i, '' "
                       "ORDER BY i) FROM generate_series(0, 10200) i WHERE i / 5000 <> 1) "
                       "FROM vesk.hits"),
            "true");
        importLines({ "nonsense" });
        execute("NOTIFY vesk_hits, 'end'; ALTER TABLE vesk.hits DROP CONSTRAINT no_bad");
        QString told;
        QTRY_VERIFY(spy.count() > 0 && spy.last().at(2).toString() == "end");
        for (const QList<QVariant> &notification : spy)
            told += notification.at(2).toString() + ' ';
        QCOMPARE(told, "1 1 1 end ");
        other.close();
    }

    void collectsLocalDays()
    {
        qputenv("TZ", "Europe/Berlin");
        tzset();
        Lines lines;
        for (const char *time : { "28/23:30:00", "29/21:59:59", "29/22:00:00",
                 "28/22:59:59" }) // the clocks go forward on the 29th
            lines += logLine("192.0.2.1", QByteArray(time) + " +0000");
        const Ingest::Result result = importLines(lines);
        qputenv("TZ", "UTC");
        tzset();
        QCOMPARE(result.days,
            (QSet<QDate> { QDate(2026, 3, 28), QDate(2026, 3, 29), QDate(2026, 3, 30) }));
    }

private:
    const TestDatabase m_database;
};

QTEST_GUILESS_MAIN(TestIngest)
#include "tst_ingest.moc"
