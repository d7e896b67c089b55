-- Daily roll-ups. Reports read vesk.rollup and never the hits. vesk.rollup_day fills it, and is
-- the one place that says who is a person, who is a scanner, what a visit is and how each
-- figure is counted.

ALTER TABLE vesk.hits
    ADD COLUMN engaged_secs real,      -- of a beacon: how long the page was visible
    ADD COLUMN response_us  integer;   -- how long the web server took, where the log says so

-- Hits are deleted after this many days. The roll-ups stay.
INSERT INTO vesk.settings (key, value) VALUES ('raw_hit_days', '90');

-- The lines of all reports. What n1, n2, n3 and x count depends on the dimension.
CREATE TABLE vesk.rollup (
    site_id integer NOT NULL REFERENCES vesk.sites ON DELETE CASCADE,
    day     date NOT NULL,                -- in the time zone of the session that rolled it up
    scope   text NOT NULL,                -- people, or all: people and unverified browsers
    dim     text NOT NULL,
    key     text NOT NULL,
    n1      bigint NOT NULL DEFAULT 0,
    n2      bigint NOT NULL DEFAULT 0,
    n3      bigint NOT NULL DEFAULT 0,
    x       float8 NOT NULL DEFAULT 0,    -- a sum of seconds
    PRIMARY KEY (site_id, day, scope, dim, key)
);

-- Replaces the report lines of a site's day. The dimensions and their figures:
--
--   totals              the figure's name: n1 count; x of "visits": their length
--   hour                00 to 23: n1 visitors, n2 page views
--   page                path: n1 views, n2 visitors, n3 views with a time, x that time
--   source              kind, tab, name: n1 visits
--   terms               search terms: n1 visits
--   country, device, browser, os    n1 visitors
--   notfound            path: n1 requests
--   bot                 crawler: n1 requests, n2 page requests
CREATE FUNCTION vesk.rollup_day(p_site integer, p_day date) RETURNS void
LANGUAGE plpgsql
-- Names and patterns mean the same in every session. The time zone remains the caller's: it
-- says when a day begins.
SET search_path = pg_catalog, pg_temp
SET standard_conforming_strings = on
-- The groups of a busy day fit into memory, a small sample is enough to tell large tables from
-- small ones, and compiling the queries takes longer than it saves.
SET work_mem = '32MB'
SET default_statistics_target = 10
SET jit = off
AS $$
DECLARE
    sc text;
BEGIN
    -- One roll-up of a day at a time. The second waits, and then sees all that the first saw.
    PERFORM pg_advisory_xact_lock(hashtextextended(
        'vesk rollup ' || p_site || ' ' || (p_day - date '2000-01-01'), 0));

    DELETE FROM vesk.rollup WHERE site_id = p_site AND day = p_day;
    DROP TABLE IF EXISTS pg_temp.rh, pg_temp.rk, pg_temp.ra, pg_temp.rx, pg_temp.rv, pg_temp.rp,
                         pg_temp.rc, pg_temp.rb, pg_temp.rw, pg_temp.rs, pg_temp.rl;

    -- rh: the hits of the day, from one local midnight to the next.
    --
    -- Copies that are filtered and joined get statistics. Without them the planner expects a
    -- row or two and compares every hit with every visitor.
    CREATE TEMP TABLE rh AS
        SELECT *
        FROM vesk.hits
        WHERE site_id = p_site AND at >= p_day::timestamptz AND at < (p_day + 1)::timestamptz;
    ANALYZE pg_temp.rh (method, path, status, is_page, visitor, bot);

    -- rk: every path once, and what a request for it gives away. A probe looks for secrets or
    -- administration tools; an asset is loaded by browsers to show a page. The C collation
    -- folds ASCII letters only: elsewhere "I" need not be the capital of "i".
    CREATE TEMP TABLE rk AS
        SELECT path,
               path COLLATE "C" ~* ('/\.(?!well-known/)|phpinfo|dockerfile|/@fs/|/credentials'
                                    '|/actuator|phpunit|/cgi-bin/') AS probe,
               path COLLATE "C" ~* '\.(css|js|mjs|woff2?)$' AS asset
        FROM (SELECT DISTINCT path FROM pg_temp.rh) p;
    ANALYZE pg_temp.rk;

    -- ra: what each visitor did, in one row per visitor, crawler name and missing path. People,
    -- scanners and crawlers are told apart by these rows alone.
    --
    -- Here and below, joins and not IN: a set of more than work_mem is searched from one end
    -- to the other for each row by IN, and a few ten thousand long probes are that much.
    CREATE TEMP TABLE ra AS
        SELECT visitor, bot, CASE WHEN status = 404 THEN rh.path END AS missing,
               count(*) AS hits,
               count(*) FILTER (WHERE is_page) AS pages,
               count(*) FILTER (WHERE method = 'BEACON') AS beacons,
               bool_or(probe IS TRUE) AS probed,
               bool_or(is_page AND source_kind NOT IN ('direct', 'internal')
                       OR NOT is_page AND status IN (200, 304) AND asset IS TRUE) AS browsed
        FROM pg_temp.rh LEFT JOIN pg_temp.rk ON rk.path = rh.path AND (probe OR asset)
        GROUP BY visitor, bot, missing;

    -- rx: the scanners. One probe makes a scanner, and so do five different missing paths.
    -- Crawlers can be scanners too.
    CREATE TEMP TABLE rx AS
        SELECT visitor FROM pg_temp.ra WHERE probed
        UNION
        SELECT visitor
        FROM (SELECT DISTINCT visitor, missing FROM pg_temp.ra WHERE missing IS NOT NULL) m
        GROUP BY visitor
        HAVING count(*) >= 5;
    ANALYZE pg_temp.rx;

    -- rv: the visitors that are neither crawler nor scanner, numbered. A person came from an
    -- outside source, or loaded style sheets, scripts or fonts, or ran the beacon script.
    -- Everybody else is an unverified browser.
    CREATE TEMP TABLE rv AS
        SELECT visitor, row_number() OVER ()::integer AS v,
               bool_or(browsed OR beacons > 0) AS person
        FROM pg_temp.ra
        WHERE bot IS NULL
            AND NOT EXISTS (SELECT FROM pg_temp.rx WHERE rx.visitor = ra.visitor)
        GROUP BY visitor;
    ANALYZE pg_temp.rv;

    -- rp: their page views; rows without view are their beacons.
    --
    -- The primary key of vesk.rollup has room for about 2,700 bytes. Here and below, a text of
    -- more than 2,600 bytes is cut to its first 600 characters before it becomes a key, and
    -- texts that are equal then count as one.
    CREATE TEMP TABLE rp AS
        SELECT method = 'GET' AS view, v, person, session_id, at, id,
               CASE WHEN octet_length(path) > 2600 THEN left(path, 600) ELSE path END AS path,
               source_kind, source, search_terms, country, device, browser, os,
               engaged_secs::float8 AS secs
        FROM pg_temp.rh JOIN pg_temp.rv USING (visitor)
        WHERE method = 'BEACON' OR method = 'GET' AND is_page AND status BETWEEN 200 AND 299;

    -- rl: report lines. A visitor is either a person or not, so the lines of the two groups
    -- are counted apart and added up for scope "all". Lines that are the same in both scopes
    -- stand with the people.
    CREATE TEMP TABLE rl (person boolean, dim text, key text, n1 bigint, n2 bigint);

    INSERT INTO pg_temp.rl
        SELECT person, 'hour', to_char(hour, 'FM00'), count(*), sum(views)
        FROM (SELECT v, person, date_part('hour', at)::integer AS hour, count(*) AS views
              FROM pg_temp.rp
              WHERE view
              GROUP BY v, person, hour) g
        GROUP BY person, hour;

    INSERT INTO pg_temp.rl
        SELECT person, 'page', path, sum(views), count(*)
        FROM (SELECT v, person, path, count(*) AS views
              FROM pg_temp.rp
              WHERE view
              GROUP BY v, person, path) g
        GROUP BY person, path;

    -- rc: the visitors with page views and their clients, mostly one each.
    CREATE TEMP TABLE rc AS
        SELECT DISTINCT v, person, country, device, browser, os FROM pg_temp.rp WHERE view;
    ANALYZE pg_temp.rc;

    INSERT INTO pg_temp.rl
        SELECT person,
               CASE 0 WHEN grouping(country) THEN 'country'
                      WHEN grouping(device) THEN 'device'
                      WHEN grouping(browser) THEN 'browser'
                      ELSE 'os' END,
               CASE 0 WHEN grouping(country) THEN country
                      WHEN grouping(device) THEN device
                      WHEN grouping(browser) THEN browser
                      ELSE os END,
               count(DISTINCT v), 0
        FROM (SELECT v, person, coalesce(country::text, '') AS country,
                     CASE WHEN octet_length(device) > 2600 THEN left(device, 600)
                          ELSE device END AS device,
                     CASE WHEN octet_length(browser) > 2600 THEN left(browser, 600)
                          ELSE browser END AS browser,
                     CASE WHEN octet_length(os) > 2600 THEN left(os, 600)
                          ELSE os END AS os
              FROM pg_temp.rc) c
        GROUP BY GROUPING SETS ((person, country), (person, device), (person, browser),
                                (person, os));

    INSERT INTO pg_temp.rl
        SELECT true, 'notfound',
               CASE WHEN octet_length(missing) > 2600 THEN left(missing, 600)
                    ELSE missing END AS cut,
               sum(pages), 0
        FROM pg_temp.ra
        WHERE missing IS NOT NULL AND pages > 0
            AND NOT EXISTS (SELECT FROM pg_temp.rx WHERE rx.visitor = ra.visitor)
        GROUP BY cut;

    INSERT INTO pg_temp.rl
        SELECT true, 'bot',
               CASE WHEN octet_length(bot) > 2600 THEN left(bot, 600) ELSE bot END AS cut,
               sum(hits), sum(pages)
        FROM pg_temp.ra
        WHERE bot IS NOT NULL
        GROUP BY cut;

    INSERT INTO pg_temp.rl
        SELECT true, 'totals', 'requests', coalesce(sum(hits - beacons), 0), 0 FROM pg_temp.ra
        UNION ALL
        SELECT true, 'totals', 'bot_requests', coalesce(sum(hits), 0), 0
        FROM pg_temp.ra WHERE bot IS NOT NULL
        UNION ALL
        SELECT true, 'totals', 'unverified', count(*), 0 FROM pg_temp.rv WHERE NOT person
        UNION ALL
        SELECT true, 'totals', 'scanners', count(*), 0 FROM pg_temp.rx;

    -- rb: time on page, from the beacons of visitors with page views. However often a page
    -- reports during a visit, it is one timed view. A beacon need not have seconds.
    CREATE TEMP TABLE rb AS
        SELECT path,
               count(*) AS timed,
               coalesce(sum(secs), 0) AS secs,
               count(*) FILTER (WHERE person) AS people_timed,
               coalesce(sum(people_secs), 0) AS people_secs
        FROM (SELECT path, session_id, bool_or(person) AS person,
                     sum(secs) AS secs, sum(secs) FILTER (WHERE person) AS people_secs
              FROM pg_temp.rp
              WHERE NOT view AND v IN (SELECT v FROM pg_temp.rc)
              GROUP BY path, session_id) t
        GROUP BY path;

    -- rw: visits, those of people apart. A visit came from where its first page view came
    -- from: the earliest, and of several at the same time the one stored first.
    CREATE TEMP TABLE rw AS
        SELECT DISTINCT ON (session_id, person)
               session_id, person, count(*) OVER visit AS pages,
               at AS first_at, id AS first_id, max(at) OVER visit AS last_at,
               source_kind AS kind, source, search_terms AS terms
        FROM pg_temp.rp
        WHERE view
        WINDOW visit AS (PARTITION BY session_id, person ORDER BY at, id
                         ROWS BETWEEN UNBOUNDED PRECEDING AND UNBOUNDED FOLLOWING)
        ORDER BY session_id, person, at, id;
    ANALYZE pg_temp.rw;

    FOREACH sc IN ARRAY ARRAY['people', 'all'] LOOP
        -- rs: the visits of the scope. Should a person and an unverified browser share a visit
        -- number, "all" has one visit of both halves, which begins with the earlier one.
        DROP TABLE IF EXISTS pg_temp.rs;
        CREATE TEMP TABLE rs AS
            SELECT a.session_id, a.pages + coalesce(b.pages, 0) AS pages,
                   extract(epoch FROM greatest(a.last_at, b.last_at) - a.first_at) AS secs,
                   a.kind, a.source, a.terms
            FROM pg_temp.rw a
                LEFT JOIN pg_temp.rw b
                    ON b.session_id = a.session_id AND b.person <> a.person AND sc = 'all'
            WHERE (a.person OR sc = 'all')
                AND (b.person IS NULL OR (a.first_at, a.first_id) < (b.first_at, b.first_id));

        INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1, x)
            SELECT p_site, p_day, sc, 'totals', 'visitors', count(DISTINCT v), 0
            FROM pg_temp.rc WHERE person OR sc = 'all'
            UNION ALL
            SELECT p_site, p_day, sc, 'totals', 'visits', count(*), coalesce(sum(secs), 0)
            FROM pg_temp.rs
            UNION ALL
            SELECT p_site, p_day, sc, 'totals', 'pageviews', coalesce(sum(pages), 0), 0
            FROM pg_temp.rs
            UNION ALL
            SELECT p_site, p_day, sc, 'totals', 'bounces', count(*), 0
            FROM pg_temp.rs WHERE pages = 1;

        -- A path has a line even if only beacons know it: its view may be of the day before.
        INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1, n2, n3, x)
            SELECT p_site, p_day, sc, dim, key, sum(n1), sum(n2), sum(n3), sum(x)
            FROM (SELECT dim, key, n1, n2, 0 AS n3, 0 AS x
                  FROM pg_temp.rl
                  WHERE person OR sc = 'all'
                  UNION ALL
                  SELECT 'page', path, 0, 0, timed, secs
                  FROM pg_temp.rb
                  WHERE sc = 'all'
                  UNION ALL
                  SELECT 'page', path, 0, 0, people_timed, people_secs
                  FROM pg_temp.rb
                  WHERE sc = 'people' AND people_timed > 0) l
            GROUP BY dim, key;

        INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1)
            SELECT p_site, p_day, sc, 'source',
                   CASE WHEN octet_length(origin) > 2600 THEN left(origin, 600)
                        ELSE origin END AS cut,
                   count(*)
            FROM (SELECT kind || chr(9) || coalesce(source, '') AS origin FROM pg_temp.rs) o
            GROUP BY cut;

        INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1)
            SELECT p_site, p_day, sc, 'terms',
                   CASE WHEN octet_length(terms) > 2600 THEN left(terms, 600)
                        ELSE terms END AS cut,
                   count(*)
            FROM pg_temp.rs
            WHERE terms <> ''
            GROUP BY cut;
    END LOOP;

    DROP TABLE pg_temp.rh, pg_temp.rk, pg_temp.ra, pg_temp.rx, pg_temp.rv, pg_temp.rp,
               pg_temp.rc, pg_temp.rb, pg_temp.rw, pg_temp.rs, pg_temp.rl;
END
$$;
