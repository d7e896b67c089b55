#include "analytics/Ingest.h"
#include "support/TestDatabase.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QTest>

#include <ctime>

using vesk::analytics::Ingest;

namespace {

using Lines = QList<QByteArray>;

/// A combined log line; \a rest overrides what follows the time.
QByteArray line(const QByteArray &ip, const QByteArray &time, const QByteArray &rest = R"("GET / HTTP/1.1" 200 5 "-" "UA")")
{
    return ip + " - - [" + time + "] " + rest;
}

/// The requests of one client at \a times of one day.
Lines visits(std::initializer_list<const char *> times)
{
    Lines lines;
    for (const char *time : times)
        lines += line("192.0.2.1", QByteArray("10/Mar/2026:") + time + " +0000");
    return lines;
}

Ingest::LineSource source(const Lines &lines)
{
    return [lines, i = qsizetype(0)]() mutable -> std::optional<QByteArrayView> {
        return i < lines.size() ? std::optional<QByteArrayView>(lines[i++]) : std::nullopt;
    };
}

/// Imports \a lines for the site with id 1.
Ingest::Result import(const Lines &lines)
{
    Ingest ingest;
    if (!ingest.init())
        qFatal("no secret");
    return ingest.ingest(1, "example.org", source(lines));
}

void addSite()
{
    execute("INSERT INTO vesk.sites (host, name) VALUES ('example.org', 'Example')");
}

void ignoreWarnings(const char *pattern, int count)
{
    for (int i = 0; i < count; ++i)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QString::fromLatin1(pattern)));
}

} // namespace

class TestIngest : public QObject
{
    Q_OBJECT

private slots:
    void init() { QTest::failOnWarning(QRegularExpression(".*")); }
    void needsTheSecret();
    void storesEachColumn_data();
    void storesEachColumn();
    void countsEveryLine();
    void batchesOfAnySize_data();
    void batchesOfAnySize();
    void numbersVisits_data();
    void numbersVisits();
    void visitsGoOnFromFileToFile();
    void manyVisitorsAreForgotten();
    void findsCountries();
    void aFailedBatchLosesItsSliceOnly();
    void notifiesOncePerSlice();
    void collectsLocalDays();
};

void TestIngest::needsTheSecret()
{
    const TestDatabase database;
    execute("DELETE FROM vesk.settings WHERE key = 'visitor_secret'");
    QVERIFY(!Ingest().init());
}

void TestIngest::storesEachColumn_data()
{
    QTest::addColumn<QByteArray>("rest");
    QTest::addColumn<QString>("columns");
    QTest::addColumn<QString>("stored");

    QTest::newRow("a page") << QByteArray(R"("GET /a%20b?x=1 HTTP/1.1" 200 1234 "https://bing.com/?q=x" "Firefox/1 Linux" 77)")
                            << "method, path, status, bytes, is_page, host(ip), source_kind, source, referrer, search_terms, device, "
                               "browser, os, bot, engaged_secs, response_us"
                            << "GET|/a b|200|1234|true|192.0.2.1|search|Bing|https://bing.com/?q=x|x|desktop|Firefox|Linux|-|-|77";
    QTest::newRow("a beacon") << QByteArray(R"("GET /vesk-b?p=%2Fabout&t=12.5 HTTP/1.1" 99999 - "-" "-")")
                              << "method, path, status, bytes, is_page, engaged_secs, source, referrer, search_terms, bot"
                              << "BEACON|/about|204|0|false|12.5|-|-|-|No user agent";
    QTest::newRow("method cut, size negative") << QByteArray(R"("ABCDEFGHIJKLMNOPQRST /x" 1 -5)") << "method, bytes, referrer"
                                               << "ABCDEFGHIJKLMNOP|-5|-";
    QTest::newRow("path cut") << QByteArray("\"GET /" + QByteArray(2500, 'p') + "\" 200 5") << "length(path)"
                              << "2000";
    QTest::newRow("referrer cut in bytes") << QByteArray("\"GET /\" 200 5 \"https://a.example/" + QByteArray(981, 'r') + "\xC3\xBC\"")
                                           << "length(referrer), right(referrer, 2)"
                                           << "1000|r\uFFFD";
    QTest::newRow("NUL") << QByteArray(R"("GET /a%00b" 200 5)") << "path"
                         << "/a\uFFFDb";
    QTest::newRow("malformed UTF-8") << QByteArray(R"("GET /%FF" 200 5)") << "path"
                                     << "/\uFFFD";
    for (const auto &[logged, stored] : std::initializer_list<std::pair<const char *, const char *>> {
             { "0", "0" }, { "2147483646", "2147483646" }, { "2147483647", "-" }, { "x", "-" } })
        QTest::addRow("duration %s", logged) << "\"GET /\" 200 5 \"-\" \"-\" " + QByteArray(logged) << "response_us"
                                             << QString::fromLatin1(stored);
}

void TestIngest::storesEachColumn()
{
    QFETCH(QByteArray, rest);
    QFETCH(QString, columns);
    const TestDatabase database;
    addSite();
    QCOMPARE(import({ line("192.0.2.1", "10/Mar/2026:12:00:00 +0100", rest) }).stored, 1);
    QTEST(value(QStringLiteral("SELECT %1 FROM vesk.hits").arg(columns)), "stored");
    QCOMPARE(value("SELECT site_id || ' ' || at || ' ' || session_id FROM vesk.hits"), "1 2026-03-10 11:00:00+00 1");
}

void TestIngest::countsEveryLine()
{
    const TestDatabase database;
    addSite();
    const Ingest::Result result = import({ "", " \t\r", "nonsense", line("-", "10/Mar/2026:12:00:00 +0000"),
        line("192.0.2.1", "10/Mar/2026:12:00:00 +0000", R"("GET /" 70000 5)"),
        line("192.0.2.1", "11/Mar/2026:12:00:00 +0000", R"("GET /vesk-b?p=/x&t=0" 204 0)") });
    QCOMPARE(result.lines, 4);
    QCOMPARE(result.stored, 1);
    QCOMPARE(result.skipped, 2);
    QCOMPARE(result.days, QSet<QDate> { QDate(2026, 3, 10) });
    QCOMPARE(rows("SELECT ip, country, length(visitor) FROM vesk.hits"), QStringList("-|-|8"));
    const Ingest::Result empty = import({});
    QCOMPARE(empty.lines + empty.stored + empty.skipped, 0);
}

void TestIngest::batchesOfAnySize_data()
{
    QTest::addColumn<int>("count");
    for (const int count : { 1, 200, 201, 5000, 5001, 12001 })
        QTest::addRow("%d", count) << count;
}

void TestIngest::batchesOfAnySize()
{
    QFETCH(int, count);
    const TestDatabase database;
    addSite();
    Lines lines;
    for (int i = 0; i < count; ++i)
        lines += line("192.0.2.1", "10/Mar/2026:12:00:00 +0000", "\"GET /" + QByteArray::number(i) + "\" 200 5");
    QCOMPARE(import(lines).stored, count);
    QCOMPARE(value("SELECT count(*) FROM (SELECT path, row_number() OVER (ORDER BY id) AS n FROM vesk.hits) h WHERE path = '/' || n - 1"),
        QString::number(count));
}

void TestIngest::numbersVisits_data()
{
    QTest::addColumn<Lines>("lines");
    QTest::addColumn<QString>("numbers"); // in the order of the lines
    QTest::newRow("gap of 1800 s") << visits({ "10:00:00", "10:30:00", "11:00:00" }) << "1,1,1";
    QTest::newRow("gap of 1801 s") << visits({ "10:00:00", "10:30:01" }) << "1,2";
    QTest::newRow("out of order") << visits({ "10:30:00", "10:00:00", "11:00:00", "11:00:01" }) << "1,1,1,1";
    QTest::newRow("gap counts from the latest") << visits({ "10:30:00", "10:00:00", "11:00:01" }) << "1,1,2";
    QTest::newRow("UTC midnight") << Lines { line("192.0.2.1", "11/Mar/2026:00:59:59 +0100"),
        line("192.0.2.1", "11/Mar/2026:01:00:00 +0100") }
                                  << "1,2";
    QTest::newRow("numbers in line order") << Lines { line("b", "10/Mar/2026:10:00:00 +0000"), line("a", "10/Mar/2026:10:00:00 +0000"),
        line("b", "10/Mar/2026:10:00:01 +0000"), line("b", "10/Mar/2026:12:00:00 +0000"), line("c", "10/Mar/2026:10:00:00 +0000"),
        line("b", "10/Mar/2026:12:00:01 +0000") }
                                           << "1,2,1,3,4,3";
}

void TestIngest::numbersVisits()
{
    QFETCH(Lines, lines);
    const TestDatabase database;
    addSite();
    QCOMPARE(import(lines).stored, lines.size());
    const QStringList numbers = rows("SELECT session_id FROM vesk.hits ORDER BY id");
    QTEST(numbers.join(u','), "numbers");
    QCOMPARE(value("SELECT last_value FROM vesk.session_seq"),
        value("SELECT max(session_id) FROM vesk.hits")); // none is wasted
}

void TestIngest::visitsGoOnFromFileToFile()
{
    const TestDatabase database;
    addSite();
    Ingest ingest;
    QVERIFY(ingest.init());
    ingest.ingest(1, "example.org", source(visits({ "10:00:00" })));
    ingest.ingest(1, "example.org", source(visits({ "10:20:00" })));
    execute("INSERT INTO vesk.sites (host, name) VALUES ('other.example', 'Other')");
    ingest.ingest(2, "other.example", source(visits({ "10:20:00" })));
    QCOMPARE(rows("SELECT site_id, session_id FROM vesk.hits ORDER BY id").join(u','), "1|1,1|1,2|2");
    QCOMPARE(value("SELECT count(DISTINCT visitor) FROM vesk.hits"), "2");
}

/// Past 50,000 visitors those that were idle for long are forgotten after each slice: here all.
void TestIngest::manyVisitorsAreForgotten()
{
    const TestDatabase database;
    addSite();
    Lines lines;
    const QByteArray time = "10/Mar/2020:12:00:00 +0000";
    for (int i = 0; i < 49999; ++i)
        lines += line("v" + QByteArray::number(i), time);
    lines += line("v0", time); // the 50,000th line: a slice ends with 49,999 visitors
    lines += line("v0", time);
    lines += line("w", time);
    lines += line("x", time);
    lines += QList<QByteArray>(4997, QByteArray()); // the slice ends with 50,001 visitors
    lines += line("v0", time);
    import(lines);
    QCOMPARE(rows("SELECT session_id FROM vesk.hits WHERE visitor = (SELECT visitor FROM vesk.hits WHERE id = 1) ORDER BY id").join(u','),
        "1,1,1,50002");
}

void TestIngest::findsCountries()
{
    const TestDatabase database;
    addSite();
    const QByteArray time = "10/Mar/2026:12:00:00 +0000";
    const Lines lines { line("10.0.0.4", time), line("10.0.0.5", time), line("10.0.0.9", time), line("10.0.0.10", time),
        line("10.0.1.1", time), line("9.9.9.9", time), line("2001:db8::5", time), line("2001:db9::", time), line("::ffff:10.0.0.5", time),
        line("name", time), line("10.0.0.5", time) };
    import(lines);
    QCOMPARE(value("SELECT count(country) FROM vesk.hits"), "0");

    execute("TRUNCATE vesk.hits; INSERT INTO vesk.geo_country VALUES ('10.0.0.5', '10.0.0.9', 'DE'), ('10.0.1.0', '10.0.1.255', 'FR'), "
            "('2001:db8::', '2001:db8:ffff:ffff:ffff:ffff:ffff:ffff', 'JP')");
    import(lines);
    QCOMPARE(rows("SELECT country FROM vesk.hits ORDER BY id").join(u','), "-,DE,DE,-,FR,-,JP,-,-,-,DE");
}

void TestIngest::aFailedBatchLosesItsSliceOnly()
{
    const TestDatabase database;
    addSite();
    execute("ALTER TABLE vesk.hits ADD CONSTRAINT no_bad CHECK (path <> '/bad')");
    const QByteArray time = "10/Mar/2026:12:00:00 +0000";
    Lines lines(10000, line("192.0.2.1", time));
    lines[5300] = line("192.0.2.1", time, R"("GET /bad" 200 5)");
    ignoreWarnings("^sql: .*no_bad", 1);
    ignoreWarnings("^sql: .*current transaction is aborted", 23);
    const Ingest::Result result = import(lines);
    QCOMPARE(result.lines, 10000);
    QCOMPARE(result.stored, 5200); // the first slice, and the batch before the bad one
    QCOMPARE(value("SELECT count(*) FROM vesk.hits"), "5000");
}

void TestIngest::notifiesOncePerSlice()
{
    const TestDatabase database;
    addSite();
    QSqlDriver *driver = QSqlDatabase::database().driver();
    QVERIFY(driver->subscribeToNotification("vesk_hits"));
    const QSignalSpy spy(driver, &QSqlDriver::notification);
    import(Lines(5001, line("192.0.2.1", "10/Mar/2026:12:00:00 +0000")));
    QTRY_COMPARE(spy.count(), 2);
    QCOMPARE(spy.at(0).at(2).toString(), "1");
    import({ "nonsense" });
    execute("NOTIFY vesk_hits, 'end'");
    QTRY_COMPARE(spy.count(), 3);
    QCOMPARE(spy.at(2).at(2).toString(), "end");
}

void TestIngest::collectsLocalDays()
{
    const TestDatabase database;
    addSite();
    qputenv("TZ", "Europe/Berlin");
    tzset();
    const Ingest::Result result = import({ line("192.0.2.1", "28/Mar/2026:23:30:00 +0000"),
        line("192.0.2.1", "29/Mar/2026:21:59:59 +0000"), // the clocks go forward on this day
        line("192.0.2.1", "29/Mar/2026:22:00:00 +0000"), line("192.0.2.1", "28/Mar/2026:22:59:59 +0000") });
    qputenv("TZ", "UTC");
    tzset();
    QCOMPARE(result.days, (QSet<QDate> { QDate(2026, 3, 28), QDate(2026, 3, 29), QDate(2026, 3, 30) }));
}

QTEST_GUILESS_MAIN(TestIngest)
#include "tst_ingest.moc"
