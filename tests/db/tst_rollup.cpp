#include "support/TestDatabase.h"

#include <QTest>

namespace {

/// Inserts hits into site 1: \a values has tuples of (at, visitor, session, method, path, status,
/// page, source kind, bot), all texts; what a tuple does not say is like a desktop browser from
/// Germany.
void addHits(const QString &values)
{
    execute(QStringLiteral("INSERT INTO vesk.hits (site_id, at, visitor, session_id, method, path, "
                           "status, is_page, source_kind, "
                           "bot, country, device, browser, os) SELECT 1, at::timestamptz, "
                           "visitor::bytea, session, method, path, "
                           "status, page, kind, bot, 'DE', 'desktop', 'Firefox', 'Linux' FROM "
                           "(VALUES %1) v (at, visitor, "
                           "session, method, path, status, page, kind, bot)")
                .arg(values));
}

void rollUp(const char *day = "2026-03-10")
{
    execute(QStringLiteral("SELECT vesk.rollup_day(1, '%1')").arg(QLatin1String(day)));
}

/// The lines of a dimension as "key=n1/n2/n3/x", without trailing zeros, sorted.
QString lines(const char *scope, const char *dim)
{
    return rows(QStringLiteral("SELECT key || '=' || regexp_replace(concat_ws('/', n1, n2, n3, x), "
                               "'(/0)+$', '') FROM vesk.rollup "
                               "WHERE scope = '%1' AND dim = '%2' ORDER BY key COLLATE \"C\"")
                    .arg(QLatin1String(scope), QLatin1String(dim)))
        .join(u' ');
}

QString total(const char *scope, const char *key)
{
    return value(QStringLiteral("SELECT n1 FROM vesk.rollup WHERE scope = '%1' AND dim = 'totals' AND key = '%2'")
                     .arg(QLatin1String(scope), QLatin1String(key)));
}

} // namespace

class TestRollup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { m_database.reset(); }
    void init() { execute("BEGIN"); }
    void cleanup() { execute("ROLLBACK"); }
    void emptyDay();
    void whoIsAPerson_data();
    void whoIsAPerson();
    void whoIsAScanner_data();
    void whoIsAScanner();
    void allLinesOfADay();
    void beaconsTimePages();
    void firstViewDecidesTheSource();
    void longKeysAreCounted();
    void daysAreLocal_data();
    void daysAreLocal();
    void replacesItsDayOnly();
    void withstandsOddSessions();

private:
    std::unique_ptr<TestDatabase> m_database;
};

void TestRollup::initTestCase()
{
    m_database = std::make_unique<TestDatabase>();
    execute("INSERT INTO vesk.sites (host, name) VALUES ('example.org', ''), ('other.example', '')");
}

void TestRollup::emptyDay()
{
    rollUp();
    QCOMPARE(value("SELECT count(*) || ' ' || sum(n1 + n2 + n3) + sum(x) FROM vesk.rollup"), "16 0");
    QCOMPARE(lines("people", "totals"), "bot_requests=0 bounces=0 pageviews=0 requests=0 scanners=0 unverified=0 visitors=0 visits=0");
}

void TestRollup::whoIsAPerson_data()
{
    QTest::addColumn<QString>("hit"); // besides a direct page view
    QTest::addColumn<bool>("person");
    const auto add = [](const char *name, const char *hit, bool person) { QTest::newRow(name) << QString::fromLatin1(hit) << person; };
    add("nothing else", "'GET', '/b', 200, true, 'internal'", false);
    add("beacon", "'BEACON', '/', 204, false, 'direct'", true);
    add("style sheet", "'GET', '/a.css', 200, false, 'direct'", true);
    add("unchanged font, capitals", "'GET', '/a.WOFF2', 304, false, 'direct'", true);
    add("script with a query in its name", "'GET', '/a.js.map', 200, false, 'direct'", false);
    add("missing style sheet", "'GET', '/a.css', 404, false, 'direct'", false);
    add("image", "'GET', '/a.png', 200, false, 'direct'", false);
    add("page named like a script", "'GET', '/a.js', 200, true, 'direct'", false);
    add("came from a search", "'GET', '/', 500, true, 'search'", true);
    add("asset from elsewhere", "'GET', '/a.png', 200, false, 'referral'", false);
}

void TestRollup::whoIsAPerson()
{
    QFETCH(QString, hit);
    QFETCH(bool, person);
    addHits(QStringLiteral("('2026-03-10 10:00', 'v', 1, 'GET', '/', 200, true, 'direct', NULL), "
                           "('2026-03-10 10:01', 'v', 1, %1, NULL)")
                .arg(hit));
    rollUp();
    QCOMPARE(total("people", "visitors"), person ? QStringLiteral("1") : QStringLiteral("0"));
    QCOMPARE(total("all", "visitors"), "1");
    QCOMPARE(total("all", "unverified"), person ? QStringLiteral("0") : QStringLiteral("1"));
}

void TestRollup::whoIsAScanner_data()
{
    QTest::addColumn<QString>("paths"); // answered with 404
    QTest::addColumn<bool>("scanner");
    const auto add
        = [](const char *name, const char *paths, bool scanner) { QTest::newRow(name) << QString::fromLatin1(paths) << scanner; };
    add("four missing paths", "/1 /2 /3 /4 /4", false);
    add("five missing paths", "/1 /2 /3 /4 /5", true);
    add("dot file", "/a/.env", true);
    add("well-known", "/.well-known/x", false);
    add("well-known in capitals", "/.WELL-KNOWN/x", false);
    add("well-known without a slash", "/.well-known", true);
    add("dot inside a name", "/a.env", false);
    add("capitals", "/PhpInfo", true);
    add("cgi", "/x/cgi-bin/", true);
    add("cgi without a slash", "/cgi-bin", false);
    add("vite", "/@fs/etc", true);
}

void TestRollup::whoIsAScanner()
{
    QFETCH(QString, paths);
    QFETCH(bool, scanner);
    addHits("('2026-03-10 10:00', 'v', 1, 'GET', '/', 200, true, 'search', NULL)");
    const QStringList parts = paths.split(u' ');
    for (const QString &path : parts)
        addHits(QStringLiteral("('2026-03-10 10:01', 'v', 1, 'POST', '%1', 404, true, 'direct', NULL)").arg(path));
    rollUp();
    QCOMPARE(total("people", "scanners"), scanner ? QStringLiteral("1") : QStringLiteral("0"));
    for (const char *scope : { "people", "all" }) {
        QCOMPARE(total(scope, "visitors"), scanner ? QStringLiteral("0") : QStringLiteral("1"));
        QCOMPARE(lines(scope, "notfound").isEmpty(), scanner);
    }
    QCOMPARE(total("all", "unverified"), "0");
}

/// One day worked out by hand: the person a, the unverified browser b, a crawler that is a scanner
/// and one that is none.
void TestRollup::allLinesOfADay()
{
    addHits("('2026-03-10 09:59:30', 'a', 1, 'GET', '/', 200, true, 'search', NULL),('2026-03-10 10:00:00', 'a', 1, 'GET', '/b', 200, "
            "true, 'internal', NULL),('2026-03-10 10:00:01', 'a', 1, 'GET', '/x.png', 200, false, 'internal', NULL),('2026-03-10 "
            "10:00:02', 'a', 1, 'HEAD', '/c', 200, true, 'internal', NULL),('2026-03-10 10:00:03', 'a', 1, 'GET', '/d', 304, true, "
            "'internal', NULL),('2026-03-10 12:00:00', 'a', 2, 'GET', '/', 299, true, 'direct', NULL),('2026-03-10 10:00:00', 'b', 3, "
            "'GET', '/', 200, true, 'direct', NULL),('2026-03-10 10:00:00', 'b', 3, 'GET', '/gone', 404, true, 'direct', "
            "NULL),('2026-03-10 10:00:00', 'c', 4, 'GET', '/gone', 404, true, 'direct', 'Bot'),('2026-03-10 10:00:00', 'c', 4, 'GET', "
            "'/y.png', 200, false, 'direct', 'Bot'),('2026-03-10 10:00:00', 'd', 5, 'GET', '/.git', 404, true, 'search', 'Scan')");
    execute("UPDATE vesk.hits SET source = 'Bing', search_terms = 'x y' WHERE source_kind = 'search'; UPDATE vesk.hits SET country = NULL, "
            "browser = 'Other' WHERE visitor = 'b'");
    rollUp();
    const char *const shared = "bot_requests=3 bounces=%1 pageviews=%2 requests=11 scanners=1 "
                               "unverified=1 visitors=%3 visits=%4";
    const auto totals = [shared](int bounces, int views, int visitors, int visits) {
        return QString::fromLatin1(shared).arg(bounces).arg(views).arg(visitors).arg(visits) + QStringLiteral("/0/0/30");
    };
    QCOMPARE(lines("people", "totals"), totals(1, 3, 1, 2));
    QCOMPARE(lines("all", "totals"), totals(2, 4, 2, 3));
    QCOMPARE(lines("people", "hour"), "09=1/1 10=1/1 12=1/1");
    QCOMPARE(lines("all", "hour"), "09=1/1 10=2/2 12=1/1");
    QCOMPARE(lines("people", "page"), "/=2/1 /b=1/1");
    QCOMPARE(lines("all", "page"), "/=3/2 /b=1/1");
    QCOMPARE(lines("people", "source"), "direct\t=1 search\tBing=1");
    QCOMPARE(lines("all", "source"), "direct\t=2 search\tBing=1");
    QCOMPARE(lines("all", "terms"), "x y=1");
    QCOMPARE(lines("people", "country"), "DE=1");
    QCOMPARE(lines("all", "country"), "=1 DE=1");
    QCOMPARE(lines("all", "device"), "desktop=2");
    QCOMPARE(lines("all", "browser"), "Firefox=1 Other=1");
    QCOMPARE(lines("people", "os"), "Linux=1");
    for (const char *scope : { "people", "all" }) {
        QCOMPARE(lines(scope, "notfound"), "/gone=2");
        QCOMPARE(lines(scope, "bot"), "Bot=2/1 Scan=1/1");
    }
}

void TestRollup::beaconsTimePages()
{
    addHits("('2026-03-10 10:00', 'a', 1, 'GET', '/', 200, true, 'direct', NULL),('2026-03-10 10:01', 'a', 1, 'BEACON', '/', 204, false, "
            "'direct', NULL),('2026-03-10 10:02', 'a', 1, 'BEACON', '/', 204, false, 'direct', NULL),('2026-03-10 10:02', 'a', 2, "
            "'BEACON', '/', 204, false, 'direct', NULL),('2026-03-10 00:00', 'a', 1, 'BEACON', '/late', 204, false, 'direct', "
            "NULL),('2026-03-10 10:03', 'b', 3, 'BEACON', '/', 204, false, 'direct', NULL)");
    execute("UPDATE vesk.hits SET engaged_secs = 1.5 WHERE method = 'BEACON'");
    // A request may really have the method BEACON, and then it has no seconds.
    addHits("('2026-03-10 10:04', 'a', 1, 'BEACON', '/odd', 200, false, 'direct', NULL)");
    rollUp();
    QCOMPARE(lines("people", "page"), "/=1/1/2/4.5 /late=0/0/1/1.5 /odd=0/0/1");
    QCOMPARE(total("people", "requests"), "1");
}

void TestRollup::firstViewDecidesTheSource()
{
    addHits("('2026-03-10 10:01', 'a', 1, 'GET', '/', 200, true, 'campaign', NULL),('2026-03-10 10:00', 'a', 1, 'GET', '/', 200, true, "
            "'social', NULL),('2026-03-10 10:00', 'a', 1, 'GET', '/', 200, true, 'search', NULL),('2026-03-10 09:00', 'a', 1, 'GET', '/', "
            "404, true, 'email', NULL)");
    rollUp();
    QCOMPARE(lines("people", "source"), "social\t=1");
}

/// Keys that the primary key could not hold are cut, and what becomes equal is counted together.
void TestRollup::longKeysAreCounted()
{
    addHits("('2026-03-10 10:00', 'a', 1, 'GET', '', 200, true, 'search', NULL),('2026-03-10 10:00', 'a', 1, 'GET', '', 200, true, "
            "'search', NULL),('2026-03-10 10:00', 'b', 2, 'GET', '', 404, true, 'search', NULL)");
    // Random, so that the index cannot compress them; equal in their first 600 characters.
    execute("WITH long AS (SELECT string_agg(chr(19968 + (random() * 20000)::int), '') AS t FROM generate_series(1, 1900)) UPDATE "
            "vesk.hits SET path = '/' || t || id, search_terms = t || id, source = t || id FROM long");
    rollUp();
    const auto keys = [](const char *dim) {
        return rows(
            QStringLiteral("SELECT length(key), n1, n2 FROM vesk.rollup WHERE scope = 'people' AND dim = '%1'").arg(QLatin1String(dim)))
            .join(u' ');
    };
    QCOMPARE(keys("page"), "600|2|1");
    QCOMPARE(keys("terms"), "600|1|0");
    QCOMPARE(keys("source"), "600|1|0");
    QCOMPARE(keys("notfound"), "600|1|0");

    execute("UPDATE vesk.hits SET search_terms = repeat('x', 2600) || repeat('y', (id - (SELECT min(id) FROM vesk.hits))::int)");
    rollUp();
    QCOMPARE(keys("terms"), "2600|1|0");
}

void TestRollup::daysAreLocal_data()
{
    QTest::addColumn<QString>("zone");
    QTest::addColumn<QString>("hours"); // of 2026-03-29, with the views of hits at every full hour of three days
    QTest::newRow("UTC") << "UTC"
                         << "24 00 23";
    QTest::newRow("the clocks go forward") << "Europe/Berlin"
                                           << "23 00 23";
    QTest::newRow("half an hour") << "Asia/Kolkata"
                                  << "24 00 23";
}

void TestRollup::daysAreLocal()
{
    QFETCH(QString, zone);
    execute(QStringLiteral("SET TIME ZONE '%1'").arg(zone));
    execute("INSERT INTO vesk.hits (site_id, at, visitor, session_id, method, path, status, is_page, source_kind, device, browser, os) "
            "SELECT 1, t, 'a', 1, 'GET', '/', 200, true, 'search', '', '', '' FROM generate_series(timestamptz '2026-03-28 00:00Z', "
            "'2026-03-30 23:00Z', '1 hour') t");
    rollUp("2026-03-29");
    QTEST(value("SELECT sum(n2) || ' ' || min(key) || ' ' || max(key) FROM vesk.rollup WHERE scope = 'people' AND dim = 'hour'"), "hours");
}

void TestRollup::replacesItsDayOnly()
{
    addHits("('2026-03-10 10:00', 'a', 1, 'GET', '/', 200, true, 'search', NULL)");
    execute("INSERT INTO vesk.rollup VALUES (1, '2026-03-10', 'people', 'page', '/old'), (1, '2026-03-09', 'people', 'page', '/before'), "
            "(2, '2026-03-10', 'people', 'page', '/other')");
    rollUp();
    const QStringList once = rows("SELECT r FROM vesk.rollup r ORDER BY 1");
    rollUp();
    QCOMPARE(rows("SELECT r FROM vesk.rollup r ORDER BY 1"), once);
    QCOMPARE(lines("people", "page"), "/=1/1 /before=0 /other=0");
    QCOMPARE(value("SELECT count(*) FROM pg_class WHERE relpersistence = 't'"), "0");
}

/// Whatever the session has set, the lines are the same and permanent tables are not touched.
void TestRollup::withstandsOddSessions()
{
    addHits("('2026-03-10 10:00', 'a', 1, 'GET', '/', 200, true, 'direct', NULL),('2026-03-10 10:00', 'a', 1, 'GET', '/a.css', 200, false, "
            "'direct', NULL),('2026-03-10 10:00', 'b', 2, 'GET', '/.env', 404, true, 'direct', NULL)");
    execute("CREATE TABLE rh (i int); CREATE TABLE rx (i int); CREATE TABLE rv (i int); CREATE TABLE rp (i int); CREATE TABLE rs (i int); "
            "CREATE TEMP TABLE rh (left_over int); SET search_path = public, pg_temp; SET standard_conforming_strings = off; SET "
            "escape_string_warning = off");
    rollUp();
    QCOMPARE(total("people", "visitors"), "1");
    QCOMPARE(total("people", "scanners"), "1");
    QCOMPARE(value("SELECT count(*) FROM pg_class WHERE relname IN ('rh', 'rx', 'rv', 'rp', 'rs')"), "5");
}

QTEST_GUILESS_MAIN(TestRollup)
#include "tst_rollup.moc"
