-- Daily roll-ups: reports read vesk.rollup, never raw hits. vesk.rollup_day is the one place that
-- says who is a person, who a scanner, what a visit is and how each figure is counted.

ALTER TABLE vesk.hits
    ADD COLUMN engaged_secs real,      -- beacons: how long the page was visible
    ADD COLUMN response_us  integer;   -- time the web server took, where the log tells it

-- The retention job deletes hits older than this many days. The roll-ups stay.
INSERT INTO vesk.settings (key, value) VALUES ('raw_hit_days', '90');

-- Lines of the reports, per site, calendar day (in the session's time zone) and scope: "people",
-- or "all", which adds the unverified browsers.
CREATE TABLE vesk.rollup (
    site_id integer NOT NULL REFERENCES vesk.sites ON DELETE CASCADE,
    day     date NOT NULL,
    scope   text NOT NULL,
    dim     text NOT NULL,
    key     text NOT NULL,
    n1      bigint NOT NULL DEFAULT 0,
    n2      bigint NOT NULL DEFAULT 0,
    n3      bigint NOT NULL DEFAULT 0,
    x       float8 NOT NULL DEFAULT 0,
    PRIMARY KEY (site_id, day, scope, dim, key)
);

CREATE FUNCTION vesk.rollup_day(p_site integer, p_day date) RETURNS void
LANGUAGE plpgsql
SET search_path = pg_catalog, pg_temp
SET standard_conforming_strings = on
SET work_mem = '32MB'
SET jit = off
SET default_statistics_target = 10
AS $$
DECLARE
    sc text;
BEGIN
    DELETE FROM vesk.rollup WHERE site_id = p_site AND day = p_day;
    DROP TABLE IF EXISTS pg_temp.rh, pg_temp.rx, pg_temp.rv, pg_temp.rp, pg_temp.rs, pg_temp.rk, pg_temp.rc;

    CREATE TEMP TABLE rh AS
        SELECT id, at, session_id, status, is_page, method = 'BEACON' AS beacon,
               is_page AND method = 'GET' AND status BETWEEN 200 AND 299 AS view,
               visitor, path, bot, source_kind, source, search_terms, country, device, browser, os, engaged_secs
        FROM vesk.hits
        WHERE site_id = p_site AND at >= p_day::timestamptz AND at < (p_day + 1)::timestamptz;
    CREATE TEMP TABLE rk AS
        SELECT path,
               path COLLATE "C" ~* '/\.(?!well-known/)|phpinfo|dockerfile|/@fs/|/credentials|/actuator|phpunit|/cgi-bin/' AS probe,
               path COLLATE "C" ~* '\.(css|js|mjs|woff2?)$' AS asset
        FROM (SELECT DISTINCT path FROM pg_temp.rh) p;
    ANALYZE pg_temp.rh;
    ANALYZE pg_temp.rk;

    CREATE TEMP TABLE rx AS
        SELECT visitor FROM pg_temp.rh WHERE path IN (SELECT path FROM pg_temp.rk WHERE probe)
        UNION
        SELECT visitor FROM (SELECT DISTINCT visitor, path FROM pg_temp.rh WHERE status = 404) m
        GROUP BY visitor HAVING count(*) >= 5;
    ANALYZE pg_temp.rx;
    CREATE TEMP TABLE rv AS
        SELECT visitor, bool_or(
                   beacon
                   OR is_page AND source_kind NOT IN ('direct', 'internal')
                   OR NOT is_page AND status IN (200, 304) AND path IN (SELECT path FROM pg_temp.rk WHERE asset))
               AND visitor NOT IN (SELECT visitor FROM pg_temp.rx) AS person,
               visitor IN (SELECT visitor FROM pg_temp.rx) AS scanner
        FROM pg_temp.rh WHERE bot IS NULL GROUP BY visitor;
    ANALYZE pg_temp.rv;

FOREACH sc IN ARRAY ARRAY['people', 'all'] LOOP
    DROP TABLE IF EXISTS pg_temp.rp, pg_temp.rs, pg_temp.rc;
    CREATE TEMP TABLE rp AS
        SELECT rh.id, at, session_id, rh.visitor, path, source_kind, source, search_terms, country, device, browser, os
        FROM pg_temp.rh JOIN pg_temp.rv USING (visitor)
        WHERE view AND (person OR sc = 'all' AND NOT scanner);
    ANALYZE pg_temp.rp;

    CREATE TEMP TABLE rs AS
        SELECT DISTINCT ON (session_id) session_id, count(*) OVER visit AS pages,
            extract(epoch FROM max(at) OVER visit - at) AS secs, source_kind AS kind, source, search_terms AS terms
        FROM pg_temp.rp
        WINDOW visit AS (PARTITION BY session_id ORDER BY at, id ROWS BETWEEN UNBOUNDED PRECEDING AND UNBOUNDED FOLLOWING)
        ORDER BY session_id, at, id;

    CREATE TEMP TABLE rc AS
        SELECT DISTINCT visitor, country, device, browser, os FROM pg_temp.rp;
    ANALYZE pg_temp.rc;

    INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1, n2, n3, x)
        SELECT p_site, p_day, sc, 'totals', t.key, t.n, 0, 0, t.x FROM
        (SELECT count(*) AS visits, count(*) FILTER (WHERE pages = 1) AS bounces, coalesce(sum(secs),0) AS secs, coalesce(sum(pages), 0) AS pageviews FROM pg_temp.rs) s,
        (SELECT count(*) FILTER (WHERE NOT beacon) AS requests, count(bot) AS bot_requests FROM pg_temp.rh) h,
        (SELECT count(*) FILTER (WHERE NOT person AND NOT scanner) AS unverified FROM pg_temp.rv) v,
        (SELECT count(*) AS visitors FROM (SELECT DISTINCT visitor FROM pg_temp.rc) c) c,
        (SELECT count(*) AS scanners FROM pg_temp.rx) x,
        LATERAL (VALUES ('visitors', visitors, 0), ('visits', visits, secs), ('pageviews', pageviews, 0), ('bounces', bounces, 0), ('requests', requests, 0), ('bot_requests', bot_requests, 0), ('unverified', unverified, 0), ('scanners', scanners, 0)) t(key, n, x);
    INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1, n2)
        SELECT p_site, p_day, sc, 'hour', to_char(hour, 'FM00'), count(*), sum(views)
        FROM (SELECT date_part('hour', at)::int AS hour, visitor, count(*) AS views FROM pg_temp.rp GROUP BY 1, 2) g
        GROUP BY hour;
    INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1, n2, n3, x)
        SELECT p_site, p_day, sc, 'page', key, coalesce(views, 0), coalesce(visitors, 0), coalesce(timed, 0), coalesce(secs, 0)
        FROM (SELECT key, sum(views) AS views, count(*) AS visitors
        FROM (SELECT CASE WHEN octet_length(path) > 2600 THEN left(path, 600) ELSE path END AS key, visitor, count(*) AS views FROM pg_temp.rp GROUP BY 1, 2) g
        GROUP BY key) p
        FULL JOIN (SELECT key, count(*) AS timed, sum(secs) AS secs
        FROM (SELECT CASE WHEN octet_length(path) > 2600 THEN left(path, 600) ELSE path END AS key, session_id, sum(engaged_secs::float8) AS secs
              FROM pg_temp.rh WHERE beacon AND visitor IN (SELECT visitor FROM pg_temp.rc) GROUP BY 1, 2) g
        GROUP BY key) b USING (key);
    INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1)
        SELECT p_site, p_day, sc, 'source', CASE WHEN octet_length(key) > 2600 THEN left(key, 600) ELSE key END, sum(visits)
        FROM (SELECT kind || chr(9) || coalesce(source, '') AS key, count(*) AS visits FROM pg_temp.rs GROUP BY 1) g GROUP BY 5;
    INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1)
        SELECT p_site, p_day, sc, 'terms', CASE WHEN octet_length(terms) > 2600 THEN left(terms, 600) ELSE terms END, count(*)
        FROM pg_temp.rs WHERE terms <> '' GROUP BY 5;
    INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1)
        SELECT p_site, p_day, sc, dim, key, count(*)
        FROM (SELECT DISTINCT visitor, dim, CASE WHEN octet_length(key) > 2600 THEN left(key, 600) ELSE key END AS key
              FROM pg_temp.rc CROSS JOIN LATERAL (VALUES ('country', coalesce(country::text, '')), ('device', device), ('browser', browser), ('os', os)) v(dim, key)) g
        GROUP BY dim, key;
    INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1)
        SELECT p_site, p_day, sc, 'notfound', CASE WHEN octet_length(path) > 2600 THEN left(path, 600) ELSE path END, count(*)
        FROM pg_temp.rh WHERE status = 404 AND is_page AND visitor NOT IN (SELECT visitor FROM pg_temp.rx) GROUP BY 5;
    INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1, n2)
        SELECT p_site, p_day, sc, 'bot', CASE WHEN octet_length(bot) > 2600 THEN left(bot, 600) ELSE bot END, count(*), count(*) FILTER (WHERE is_page)
        FROM pg_temp.rh WHERE bot IS NOT NULL GROUP BY 5;
END LOOP;
    DROP TABLE IF EXISTS pg_temp.rh, pg_temp.rx, pg_temp.rv, pg_temp.rp, pg_temp.rs, pg_temp.rk, pg_temp.rc;
END
$$;
