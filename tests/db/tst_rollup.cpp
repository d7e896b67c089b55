#include "support/Table.h"
#include "support/TestDatabase.h"

namespace {

/// Inserts hits into site 1. Each is written as "VISITOR SESSION TIME METHOD PATH STATUS page|other
/// SOURCE-KIND [BOT]", with a time of the 10th of March 2026; all are like a desktop browser from
/// Germany.
void addHits(const QStringList &hits)
{
    for (const QString &hit : hits) {
        const QStringList w = words(hit);
        execute("INSERT INTO vesk.hits (visitor, session_id, at, method, path, status, is_page, "
                "source_kind, bot, site_id, country, device, browser, os) VALUES ('"
            + w.first(2).join("', ") + ", '2026-03-10 " + w.sliced(2, 3).join("', '") + "', " + w[5]
            + ", '" + w[6] + "' = 'page', '" + w[7] + "', nullif('" + w.value(8)
            + "', ''), 1, 'DE', 'desktop', 'Firefox', 'Linux')");
    }
}

void rollUp(const QString &day = "2026-03-10")
{
    execute(QStringLiteral("SELECT vesk.rollup_day(1, '%1')").arg(day));
}

/// The lines of a dimension as "key=n1/n2/n3/x", without trailing zeros, sorted.
QString lines(const QString &scope, const QString &dim)
{
    return rows(QStringLiteral("SELECT key || '=' || regexp_replace(concat_ws('/', n1, n2, n3, x), "
                               "'(/0)+$', '') FROM vesk.rollup "
                               "WHERE scope = '%1' AND dim = '%2' ORDER BY key COLLATE \"C\"")
                    .arg(scope, dim))
        .join(u' ');
}

/// The figures \a keys of the totals.
QString totals(const QString &scope, const QString &keys)
{
    return rows(QStringLiteral("SELECT n1 FROM unnest('{%2}'::text[]) WITH ORDINALITY k (key, n) "
                               "JOIN vesk.rollup USING (key) "
                               "WHERE scope = '%1' AND dim = 'totals' ORDER BY n")
                    .arg(scope, keys))
        .join(u' ');
}

} // namespace

class TestRollup : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        execute("INSERT INTO vesk.sites (host, name) VALUES ('a', ''), ('b', '')");
    }
    void init() { execute("BEGIN"); }
    void cleanup() { execute("ROLLBACK"); }

    void emptyDay()
    {
        rollUp();
        QCOMPARE(
            value("SELECT count(*) || ' ' || sum(n1 + n2 + n3) + sum(x) FROM vesk.rollup"), "16 0");
        QCOMPARE(lines("people", "totals"),
            "bot_requests=0 bounces=0 pageviews=0 requests=0 scanners=0 unverified=0 visitors=0 "
            "visits=0");
    }

    /// What a visitor does besides a direct page view.
    void whoIsAPerson_data()
    {
        const Table row;
        for (const char *hit : { "BEACON / 204 other direct", "GET /a.css 200 other direct",
                 "GET /a.WOFF2 304 other direct", "GET / 500 page search" })
            row(hit, "person");
        for (const char *hit : { "GET /b 200 page internal", "GET /a.js.map 200 other direct",
                 "GET /a.css 404 other direct", "GET /a.png 200 other direct",
                 "GET /a.js 200 page direct", "GET /a.png 200 other referral" })
            row(hit, "unverified");
    }

    void whoIsAPerson()
    {
        QFETCH(QByteArray, text);
        addHits({ "v 1 10:00 GET / 200 page direct", "v 1 10:01 " + text });
        rollUp();
        QCOMPARE(totals("all", "visitors"), "1");
        QTEST(QString(totals("people", "visitors,unverified") == "1 0" ? "person" : "unverified"),
            "expected");
        QCOMPARE(totals("all", "unverified"), totals("people", "visitors") == "0" ? "1" : "0");
    }

    /// What a visitor misses.
    void whoIsAScanner_data()
    {
        const Table row;
        for (const char *paths :
            { "/1 /2 /3 /4 /5", "/a/.env", "/.well-known", "/PhpInfo", "/x/cgi-bin/", "/@fs/etc",
                "/Dockerfile", "/aws/credentials", "/actuator/env", "/vendor/phpunit/x" })
            row(paths, "scanner");
        for (const char *paths :
            { "/1 /2 /3 /4 /4", "/.well-known/x", "/.WELL-KNOWN/x", "/a.env", "/cgi-bin" })
            row(paths, "none");
    }

    void whoIsAScanner()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, expected);
        addHits({ "v 1 10:00 GET / 200 page search" });
        for (const QString &path : words(text))
            addHits({ "v 1 10:01 POST " + path + " 404 page direct" });
        rollUp();
        const bool scanner = expected == "scanner";
        for (const char *scope : { "people", "all" }) {
            QCOMPARE(totals(scope, "scanners,visitors,unverified"), scanner ? "1 0 0" : "0 1 0");
            QCOMPARE(lines(scope, "notfound").isEmpty(), scanner);
        }
    }

    /// One day worked out by hand: the person a, the unverified browser b, a crawler that is a
    /// scanner and one that is none.
    void allLinesOfADay()
    {
        addHits({ "a 1 09:59:30 GET / 200 page search", "a 1 10:00:00 GET /b 200 page internal",
            "a 1 10:00:01 GET /x.png 200 other internal", "a 1 10:00:02 HEAD /c 200 page internal",
            "a 1 10:00:03 GET /d 304 page internal", "a 2 12:00:00 GET / 299 page direct",
            "b 3 10:00:00 GET / 200 page direct", "b 3 10:00:00 GET /gone 404 page direct",
            "c 4 10:00:00 GET /gone 404 page direct Bot",
            "c 4 10:00:00 GET /y.png 200 other direct Bot",
            "d 5 10:00:00 GET /.git 404 page search Scan" });
        execute("UPDATE vesk.hits SET source = 'Bing', search_terms = 'x y' "
                "WHERE source_kind = 'search'; "
                "UPDATE vesk.hits SET country = NULL, browser = 'Other' WHERE visitor = 'b'");
        rollUp();
        const std::pair<const char *, QStringList> expected[] = {
            { "totals",
                { "bot_requests=3 bounces=1 pageviews=3 requests=11 scanners=1 unverified=1 "
                  "visitors=1 visits=2/0/0/30",
                    "bot_requests=3 bounces=2 pageviews=4 requests=11 scanners=1 unverified=1 "
                    "visitors=2 visits=3/0/0/30" } },
            { "hour", { "09=1/1 10=1/1 12=1/1", "09=1/1 10=2/2 12=1/1" } },
            { "page", { "/=2/1 /b=1/1", "/=3/2 /b=1/1" } },
            { "source", { "direct\t=1 search\tBing=1", "direct\t=2 search\tBing=1" } },
            { "terms", { "x y=1", "x y=1" } },
            { "country", { "DE=1", "=1 DE=1" } },
            { "device", { "desktop=1", "desktop=2" } },
            { "browser", { "Firefox=1", "Firefox=1 Other=1" } },
            { "os", { "Linux=1", "Linux=2" } },
            { "notfound", { "/gone=2", "/gone=2" } },
            { "bot", { "Bot=2/1 Scan=1/1", "Bot=2/1 Scan=1/1" } },
        };
        for (const auto &[dim, scopes] : expected)
            QCOMPARE((QStringList { lines("people", dim), lines("all", dim) }), scopes);
    }

    void beaconsTimePages()
    {
        addHits({ "a 1 10:00 GET / 200 page direct", "a 1 10:01 BEACON / 204 other direct",
            "a 1 10:02 BEACON / 204 other direct", "a 2 10:02 BEACON / 204 other direct",
            "a 1 00:00 BEACON /late 204 other direct", "b 3 10:03 BEACON / 204 other direct" });
        execute("UPDATE vesk.hits SET engaged_secs = 1.5 WHERE method = 'BEACON'");
        // A request may really have the method BEACON, and then it has no seconds.
        addHits({ "a 1 10:04 BEACON /odd 200 other direct" });
        rollUp();
        QCOMPARE(lines("people", "page"), "/=1/1/2/4.5 /late=0/0/1/1.5 /odd=0/0/1");
        QCOMPARE(totals("people", "requests"), "1");
    }

    void firstViewDecidesTheSource()
    {
        addHits({ "a 1 10:01 GET / 200 page campaign", "a 1 10:00 GET / 200 page social",
            "a 1 10:00 GET / 200 page search", "a 1 09:00 GET / 404 page email" });
        rollUp();
        QCOMPARE(lines("people", "source"), "social\t=1");
    }

    /// Keys that the primary key could not hold are cut, and what becomes equal is counted
    /// together.
    void longKeysAreCounted()
    {
        addHits({ "a 1 10:00 GET / 200 page search", "a 1 10:00 GET / 200 page search",
            "b 2 10:00 GET / 404 page search", "c 3 10:00 GET / 200 other direct Bot" });
        // Random, so that the index cannot compress them; equal in their first 600 characters.
        execute("WITH long AS (SELECT string_agg(chr(19968 + (random() * 20000)::int), '') AS t "
                "FROM generate_series(1, 1900)) "
                "UPDATE vesk.hits SET path = '/' || t || id, search_terms = t || id, "
                "source = t || id, device = t || visitor, browser = t || visitor, "
                "os = t || visitor, bot = CASE WHEN bot = 'Bot' THEN t END FROM long");
        rollUp();
        QCOMPARE(rows("SELECT dim, length(key), n1, n2 FROM vesk.rollup WHERE scope = 'people' "
                      "AND dim NOT IN ('totals', 'hour', 'country') ORDER BY dim")
                     .join(u' '),
            "bot|600|1|0 browser|600|1|0 device|600|1|0 notfound|600|1|0 os|600|1|0 page|600|2|1 "
            "source|600|1|0 terms|600|1|0");

        execute("UPDATE vesk.hits SET search_terms = repeat('x', 2600) "
                "|| repeat('y', (id - (SELECT min(id) FROM vesk.hits))::int)");
        rollUp();
        QCOMPARE(value("SELECT length(key) || ' ' || n1 FROM vesk.rollup "
                       "WHERE scope = 'people' AND dim = 'terms'"),
            "2600 1");
    }

    /// With views at every full hour: the number of them, the first and the last hour of a day, and
    /// whether it has the one that is skipped in Berlin, where the clocks go forward.
    void daysAreLocal()
    {
        execute("INSERT INTO vesk.hits (site_id, at, visitor, session_id, method, path, status, "
                "is_page, source_kind, device, browser, os) "
                "SELECT 1, t, 'a', 1, 'GET', '/', 200, true, 'search', '', '', '' FROM "
                "generate_series(timestamptz '2026-03-28Z', '2026-03-30 23:00Z', '1 hour') t");
        for (const char *zone : { "UTC 24 00 23 t", "Europe/Berlin 23 00 23 f" }) {
            execute("SET TIME ZONE '" + words(zone)[0] + '\'');
            rollUp("2026-03-29");
            QCOMPARE(value("SELECT concat_ws(' ', sum(n2), min(key), max(key), "
                           "bool_or(key = '02')) FROM vesk.rollup WHERE scope = 'people' AND dim = "
                           "'hour'"),
                words(zone).sliced(1).join(u' '));
        }
    }

    void replacesItsDayOnly()
    {
        addHits({ "a 1 10:00 GET / 200 page search" });
        execute("INSERT INTO vesk.rollup VALUES (1, '2026-03-10', 'people', 'page', '/old'), "
                "(1, '2026-03-09', 'people', 'page', '/before'), "
                "(2, '2026-03-10', 'people', 'page', '/other')");
        rollUp();
        const QStringList once = rows("SELECT r FROM vesk.rollup r ORDER BY 1");
        rollUp();
        QCOMPARE(rows("SELECT r FROM vesk.rollup r ORDER BY 1"), once);
        QCOMPARE(lines("people", "page"), "/=1/1 /before=0 /other=0");
        QCOMPARE(value("SELECT count(*) FROM pg_class WHERE relpersistence = 't'"), "0");
        rollUp("2026-03-09"); // of two days, each is locked
        QCOMPARE(value("SELECT count(*) FROM pg_locks WHERE locktype = 'advisory' AND "
                       "pid = pg_backend_pid()"),
            "2");
    }

    /// Whatever the session has set, the lines are the same and permanent tables are not touched.
    void withstandsOddSessions()
    {
        addHits({ "a 1 10:00 GET / 200 page direct", "a 1 10:00 GET /a.css 200 other direct",
            "b 2 10:00 GET /.env 404 page direct" });
        for (const char *table : { "rh", "rx", "rv", "rp", "rs" })
            execute(QStringLiteral("CREATE TABLE %1 (i int)").arg(QLatin1String(table)));
        execute("CREATE TEMP TABLE rh (left_over int); SET search_path = public, pg_temp; "
                "SET standard_conforming_strings = off; SET escape_string_warning = off");
        rollUp();
        QCOMPARE(totals("people", "visitors,scanners"), "1 1");
        QCOMPARE(
            value("SELECT count(*) FROM pg_class WHERE relname IN ('rh', 'rx', 'rv', 'rp', 'rs')"),
            "5");
    }

private:
    const TestDatabase m_database;
};

QTEST_GUILESS_MAIN(TestRollup)
#include "tst_rollup.moc"
