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
-- Names and patterns mean the same in every session, and no session hears of tables that need
-- not be dropped. The time zone remains the caller's: it says when a day begins.
SET search_path = pg_catalog, pg_temp
SET standard_conforming_strings = on
SET client_min_messages = warning
-- The groups of a busy day fit into memory, a small sample is enough to tell large tables from
-- small ones, and compiling the queries takes longer than it saves.
SET work_mem = '32MB'
SET hash_mem_multiplier = 2
SET default_statistics_target = 3
SET jit = off
AS $$
DECLARE
    working_sets constant text := concat_ws(', ',
        'pg_temp.rh',              -- the hits of the day
        'pg_temp.rollup_paths',    -- their paths, and what a request for each gives away
        'pg_temp.rollup_deeds',    -- what each visitor did
        'pg_temp.rx',              -- scanners
        'pg_temp.rv',              -- visitors that are neither crawlers nor scanners
        'pg_temp.rp',              -- their page views
        'pg_temp.rollup_clients',  -- their countries, devices, browsers and systems
        'pg_temp.rollup_timed',    -- time on page
        'pg_temp.rollup_lines',    -- lines of the report
        'pg_temp.rs');             -- the visits of a scope
    sc text;
BEGIN
    -- One roll-up of a day at a time. The second waits, and then sees all that the first saw.
    PERFORM pg_advisory_xact_lock(hashtextextended(
        'vesk rollup ' || p_site || ' ' || (p_day - date '2000-01-01'), 0));

    DELETE FROM vesk.rollup WHERE site_id = p_site AND day = p_day;
    EXECUTE 'DROP TABLE IF EXISTS ' || working_sets;

    -- From one local midnight to the next.
    --
    -- Copies that are filtered and joined get statistics. Without them the planner expects a
    -- row or two and compares every hit with every visitor.
    CREATE TEMP TABLE rh AS
        SELECT *
        FROM vesk.hits
        WHERE site_id = p_site AND at >= p_day::timestamptz AND at < (p_day + 1)::timestamptz;
    ANALYZE pg_temp.rh (method, path, status, is_page, visitor, bot);

    -- A probe looks for secrets or administration tools; an asset is loaded by browsers to show
    -- a page. The C collation folds ASCII letters only: elsewhere "I" need not be the capital
    -- of "i".
    --
    -- Views are counted by the number of their page. The primary key of vesk.rollup has room
    -- for about 2,700 bytes: paths of more than 2,600 are cut to their first 600 characters,
    -- and those that are equal then are one page.
    CREATE TEMP TABLE rollup_paths AS
        SELECT path, key, dense_rank() OVER (ORDER BY key COLLATE "C")::integer AS page,
               path COLLATE "C" ~* ('/\.(?!well-known/)|phpinfo|dockerfile|/@fs/|/credentials'
                                    '|/actuator|phpunit|/cgi-bin/') AS probe,
               path COLLATE "C" ~* '\.(css|js|mjs|woff2?)$' AS asset
        FROM (SELECT path,
                     CASE WHEN octet_length(path) > 2600 THEN left(path, 600) ELSE path END AS key
              FROM (SELECT DISTINCT path FROM pg_temp.rh) d) k;
    ANALYZE pg_temp.rollup_paths;

    -- One row per visitor, crawler name and missing path. People, scanners and crawlers are told
    -- apart by these rows alone.
    --
    -- Here and below, joins and not IN: a set of more than work_mem is searched from one end
    -- to the other for each row by IN, and a few ten thousand long probes are that much.
    CREATE TEMP TABLE rollup_deeds AS
        SELECT visitor, bot, CASE WHEN status = 404 THEN rh.path END AS missing,
               count(*) AS hits,
               count(*) FILTER (WHERE is_page) AS pages,
               count(*) FILTER (WHERE method = 'BEACON') AS beacons,
               bool_or(probe IS TRUE) AS probed,
               bool_or(is_page AND source_kind NOT IN ('direct', 'internal')
                       OR NOT is_page AND status IN (200, 304) AND asset IS TRUE) AS browsed
        FROM pg_temp.rh
            LEFT JOIN pg_temp.rollup_paths p ON p.path = rh.path AND (probe OR asset)
        GROUP BY visitor, bot, missing;

    -- One probe makes a scanner, and so do five different missing paths. Crawlers can be
    -- scanners too.
    CREATE TEMP TABLE rx AS
        SELECT visitor FROM pg_temp.rollup_deeds WHERE probed
        UNION
        SELECT visitor
        FROM (SELECT DISTINCT visitor, missing
              FROM pg_temp.rollup_deeds
              WHERE missing IS NOT NULL) m
        GROUP BY visitor
        HAVING count(*) >= 5;
    ANALYZE pg_temp.rx;

    -- A person came from an outside source, or loaded style sheets, scripts or fonts, or ran the
    -- beacon script. Everybody else is an unverified browser. v numbers the visitors.
    CREATE TEMP TABLE rv AS
        SELECT visitor, row_number() OVER ()::integer AS v,
               bool_or(browsed OR beacons > 0) AS person
        FROM pg_temp.rollup_deeds d
        WHERE bot IS NULL AND NOT EXISTS (SELECT FROM pg_temp.rx WHERE rx.visitor = d.visitor)
        GROUP BY visitor;
    ANALYZE pg_temp.rv;

    CREATE TEMP TABLE rp AS
        SELECT v, person, session_id, at, id, page, source_kind, source, search_terms,
               country, device, browser, os
        FROM pg_temp.rh
            JOIN pg_temp.rv USING (visitor)
            JOIN pg_temp.rollup_paths USING (path)
        WHERE method = 'GET' AND is_page AND status BETWEEN 200 AND 299;
    ANALYZE pg_temp.rp (v, person, session_id, page);

    -- Mostly one each.
    CREATE TEMP TABLE rollup_clients AS
        SELECT DISTINCT v, person, country::text COLLATE "C" AS country,
               device COLLATE "C" AS device, browser COLLATE "C" AS browser, os COLLATE "C" AS os
        FROM pg_temp.rp;
    ANALYZE pg_temp.rollup_clients;

    -- From the beacons of visitors with page views. However often a page reports during a visit,
    -- it is one timed view. A beacon need not have seconds.
    CREATE TEMP TABLE rollup_timed AS
        SELECT page,
               count(DISTINCT session_id) AS timed,
               coalesce(sum(secs), 0) AS secs,
               count(DISTINCT session_id) FILTER (WHERE person) AS people_timed,
               coalesce(sum(secs) FILTER (WHERE person), 0) AS people_secs
        FROM (SELECT page, session_id, person, engaged_secs::float8 AS secs
              FROM pg_temp.rh
                  JOIN pg_temp.rv USING (visitor)
                  JOIN pg_temp.rollup_paths USING (path)
              WHERE method = 'BEACON'
                  AND EXISTS (SELECT FROM pg_temp.rollup_clients c WHERE c.v = rv.v)) b
        GROUP BY page;

    -- A visitor is either a person or not, so the lines of the two groups are counted apart and
    -- added up for scope "all". Lines that are the same in both scopes stand with the people.
    CREATE TEMP TABLE rollup_lines (person boolean, dim text, key text, n1 bigint, n2 bigint);

    INSERT INTO pg_temp.rollup_lines
        SELECT person, 'hour', to_char(hour, 'FM00'), count(DISTINCT v), count(*)
        FROM (SELECT v, person, date_part('hour', at)::integer AS hour FROM pg_temp.rp) h
        GROUP BY person, hour;

    INSERT INTO pg_temp.rollup_lines
        SELECT person, 'page', key, views, visitors
        FROM (SELECT person, page, count(*) AS views, count(DISTINCT v) AS visitors
              FROM pg_temp.rp
              GROUP BY person, page) g
            JOIN (SELECT DISTINCT page, key FROM pg_temp.rollup_paths) p USING (page);

    INSERT INTO pg_temp.rollup_lines
        SELECT person,
               CASE 0 WHEN grouping(country) THEN 'country'
                      WHEN grouping(device) THEN 'device'
                      WHEN grouping(browser) THEN 'browser'
                      ELSE 'os' END,
               CASE 0 WHEN grouping(country) THEN coalesce(country, '')
                      WHEN grouping(device) THEN device
                      WHEN grouping(browser) THEN browser
                      ELSE os END,
               count(DISTINCT v), 0
        FROM pg_temp.rollup_clients
        GROUP BY GROUPING SETS ((person, country), (person, device), (person, browser),
                                (person, os));

    INSERT INTO pg_temp.rollup_lines
        SELECT true, 'notfound', missing, sum(pages), 0
        FROM pg_temp.rollup_deeds d
        WHERE missing IS NOT NULL AND pages > 0
            AND NOT EXISTS (SELECT FROM pg_temp.rx WHERE rx.visitor = d.visitor)
        GROUP BY missing;

    INSERT INTO pg_temp.rollup_lines
        SELECT true, 'bot', bot, sum(hits), sum(pages)
        FROM pg_temp.rollup_deeds
        WHERE bot IS NOT NULL
        GROUP BY bot;

    INSERT INTO pg_temp.rollup_lines
        SELECT true, 'totals', 'requests', coalesce(sum(hits - beacons), 0), 0
        FROM pg_temp.rollup_deeds
        UNION ALL
        SELECT true, 'totals', 'bot_requests', coalesce(sum(hits), 0), 0
        FROM pg_temp.rollup_deeds WHERE bot IS NOT NULL
        UNION ALL
        SELECT true, 'totals', 'unverified', count(*), 0 FROM pg_temp.rv WHERE NOT person
        UNION ALL
        SELECT true, 'totals', 'scanners', count(*), 0 FROM pg_temp.rx;

    CREATE TEMP TABLE rs (session_id bigint, pages bigint, secs float8,
                          kind text, source text, terms text);

    FOREACH sc IN ARRAY ARRAY['people', 'all'] LOOP
        -- The visits of people remain in scope "all". Should a person and an unverified browser
        -- share a visit number, "all" has one visit of both, which is counted anew.
        DELETE FROM pg_temp.rs
            WHERE EXISTS (SELECT
                          FROM pg_temp.rp
                          WHERE rp.session_id = rs.session_id AND NOT person);

        -- A visit came from where its first page view came from: the earliest, and of several
        -- at the same time the one stored first.
        INSERT INTO pg_temp.rs
            SELECT DISTINCT ON (session_id)
                   session_id, count(*) OVER visit,
                   extract(epoch FROM max(at) OVER visit - at),
                   source_kind, source, search_terms
            FROM pg_temp.rp
            WHERE (person OR sc = 'all')
                AND NOT EXISTS (SELECT FROM pg_temp.rs WHERE rs.session_id = rp.session_id)
            WINDOW visit AS (PARTITION BY session_id ORDER BY at, id
                             ROWS BETWEEN UNBOUNDED PRECEDING AND UNBOUNDED FOLLOWING)
            ORDER BY session_id, at, id;
        ANALYZE pg_temp.rs (session_id);

        -- A page has a line even if only beacons know it: its view may be of the day before.
        -- All other keys are cut here as those of pages were above.
        INSERT INTO vesk.rollup (site_id, day, scope, dim, key, n1, n2, n3, x)
            SELECT p_site, p_day, sc, dim,
                   CASE WHEN octet_length(key) > 2600 THEN left(key, 600) ELSE key END AS cut,
                   sum(n1), sum(n2), sum(n3), sum(x)
            FROM (SELECT dim, key, n1, n2, 0 AS n3, 0 AS x
                  FROM pg_temp.rollup_lines
                  WHERE person OR sc = 'all'
                  UNION ALL
                  SELECT 'page', key, 0, 0, timed, secs
                  FROM pg_temp.rollup_timed
                      JOIN (SELECT DISTINCT page, key FROM pg_temp.rollup_paths) p USING (page)
                  WHERE sc = 'all'
                  UNION ALL
                  SELECT 'page', key, 0, 0, people_timed, people_secs
                  FROM pg_temp.rollup_timed
                      JOIN (SELECT DISTINCT page, key FROM pg_temp.rollup_paths) p USING (page)
                  WHERE sc = 'people' AND people_timed > 0
                  UNION ALL
                  SELECT 'totals', 'visitors', count(DISTINCT v), 0, 0, 0
                  FROM pg_temp.rollup_clients
                  WHERE person OR sc = 'all'
                  UNION ALL
                  SELECT 'totals', 'visits', count(*), 0, 0, coalesce(sum(secs), 0)
                  FROM pg_temp.rs
                  UNION ALL
                  SELECT 'totals', 'pageviews', coalesce(sum(pages), 0), 0, 0, 0
                  FROM pg_temp.rs
                  UNION ALL
                  SELECT 'totals', 'bounces', count(*), 0, 0, 0
                  FROM pg_temp.rs WHERE pages = 1
                  UNION ALL
                  SELECT 'source', kind || chr(9) || coalesce(source, ''), count(*), 0, 0, 0
                  FROM pg_temp.rs GROUP BY kind, source
                  UNION ALL
                  SELECT 'terms', terms, count(*), 0, 0, 0
                  FROM pg_temp.rs WHERE terms <> '' GROUP BY terms) l
            GROUP BY dim, cut;
    END LOOP;

    EXECUTE 'DROP TABLE ' || working_sets;
END
$$;
