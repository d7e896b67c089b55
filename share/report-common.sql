-- What report.sql and report-html.sql share: settings of psql, helper functions, the choice of the
-- site and the period, and the figures, in temporary tables. It prints nothing.
--
-- The script that includes it has set ON_ERROR_STOP, which would come too late here, and most_bars:
-- how many bars the course of the visitors may have.

\set QUIET on
\set ECHO none
\set AUTOCOMMIT on
\set SHOW_CONTEXT never
\set VERBOSITY default
\timing off
\encoding UTF8
\pset pager off
\pset format unaligned
\pset expanded off
\pset tuples_only on
\pset recordsep '\n'
SET client_min_messages = error;
SET standard_conforming_strings = on;
SET search_path = pg_catalog, pg_temp;
SET DateStyle = ISO;

-- Paths, referrers and search terms come from strangers. What a terminal would obey, what would
-- turn the reading order around and what is no character is shown as a replacement character.
CREATE FUNCTION pg_temp.clean(t text) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT regexp_replace(t, '[\u0001-\u001F\u007F-\u009F\u00AD\u061C\u180E\u200B-\u200F'
        '\u2028-\u202E\u2060-\u206F\uFEFF\uFFF9-\uFFFB\uFFFE\uFFFF\U000E0000-\U000E0FFF]', '�', 'g')
$$;

CREATE FUNCTION pg_temp.num(n numeric) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT to_char(n, 'FM999,999,999,999,990')
$$;

CREATE FUNCTION pg_temp.percent(part numeric, whole numeric)
RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT coalesce(to_char(100 * part / nullif(whole, 0), 'FM990.0') || ' %', '-')
$$;

-- Seconds as minutes and seconds.
CREATE FUNCTION pg_temp.minutes(secs numeric) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT coalesce(round(secs)::bigint / 60 || ':' || lpad((round(secs)::bigint % 60)::text, 2, '0'),
                    '-')
$$;

-- A figure of the kind count, mean, rate (a part of 1), time (in seconds) or place.
CREATE FUNCTION pg_temp.show(n numeric, kind text) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE kind WHEN 'count' THEN coalesce(pg_temp.num(n), '-')
                     WHEN 'rate' THEN pg_temp.percent(n, 1)
                     WHEN 'time' THEN pg_temp.minutes(n)
                     ELSE coalesce(to_char(n, 'FM999,999,999,990.0'), '-') END
$$;

-- How a figure changed: in percent, rates in percentage points, places by their difference.
-- Without a figure before there is no change to speak of.
CREATE FUNCTION pg_temp.change(n numeric, before numeric, kind text DEFAULT 'count')
RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE WHEN n IS NULL OR before IS NULL THEN '-'
                WHEN kind IN ('count', 'time') AND before = 0 AND n > 0 THEN 'new'
                WHEN kind IN ('count', 'time') AND before > 0 AND n >= 10 * before
                THEN '×' || pg_temp.num(n / before)
                ELSE CASE sign(change) WHEN 1 THEN '+' WHEN -1 THEN '−' ELSE '' END
                     || CASE kind WHEN 'rate' THEN to_char(abs(change), 'FM990.0') || ' pt'
                                  WHEN 'place' THEN to_char(abs(change), 'FM990.0')
                                  ELSE to_char(abs(change), 'FM990') || ' %' END END
    FROM (SELECT CASE kind WHEN 'rate' THEN round(100 * (n - before), 1)
                           WHEN 'place' THEN round(n - before, 1)
                           ELSE coalesce(round(100 * (n - before) / nullif(before, 0)), 0) END) AS c (change)
$$;

-- "2 March 2026", "1 to 3 March 2026", and what is longer in full.
CREATE FUNCTION pg_temp.period(first date, last date) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE WHEN first = last THEN ''
                WHEN to_char(first, 'YYYYMM') = to_char(last, 'YYYYMM') THEN to_char(first, 'FMDD "to "')
                WHEN to_char(first, 'YYYY') = to_char(last, 'YYYY') THEN to_char(first, 'FMDD FMMonth "to "')
                ELSE to_char(first, 'FMDD FMMonth YYYY "to "') END
           || to_char(last, 'FMDD FMMonth YYYY')
$$;

CREATE FUNCTION pg_temp.days(n bigint) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT pg_temp.num(n) || CASE n WHEN 1 THEN ' day' ELSE ' days' END
$$;

-- Ends the script with a message and status 3.
CREATE FUNCTION pg_temp.fail(message text, hint text) RETURNS text LANGUAGE plpgsql AS $$
BEGIN
    RAISE EXCEPTION USING MESSAGE = pg_temp.clean(left(message, 300)), HINT = pg_temp.clean(left(hint, 2000));
END
$$;

CREATE FUNCTION pg_temp.as_day(t text) RETURNS date LANGUAGE plpgsql AS $$
BEGIN
    IF t::date BETWEEN '1000-01-01' AND '9999-12-31' THEN
        RETURN t::date;
    END IF;
    RAISE data_exception;
EXCEPTION WHEN data_exception THEN
    RETURN pg_temp.fail(format('"%s" is not a day', t), 'Write a day like 2026-03-02.');
END
$$;

-- From here on all figures are of one moment, whatever is rolled up meanwhile.

BEGIN ISOLATION LEVEL REPEATABLE READ;

-- Which site?

\if :{?site}
\else
    \set site ''
\endif
\if :{?day}
\else
    \set day ''
\endif
\if :{?from}
\else
    \set from ''
\endif
\if :{?to}
\else
    \set to ''
\endif
\if :{?scope}
\else
    \set scope people
\endif

SELECT CASE WHEN count(*) = 0
            THEN pg_temp.fail('there are no sites yet', 'Add one with vesk-admin add-site.')
            WHEN :'site' = '' AND count(*) > 1
            THEN pg_temp.fail('which site?', 'Add -v site=HOST with one of these: '
                                             || string_agg(host, ', ' ORDER BY host))
            WHEN :'site' <> '' AND NOT bool_or(host = lower(:'site'))
            THEN pg_temp.fail(format('unknown site %s', :'site'),
                              'There are these: ' || string_agg(host, ', ' ORDER BY host))
            WHEN :'scope' NOT IN ('people', 'all')
            THEN pg_temp.fail(format('unknown scope %s', :'scope'), 'It is people or all.')
            END AS nothing,
       min(id) FILTER (WHERE :'site' = '' OR host = lower(:'site')) AS site_id
FROM vesk.sites \gset

-- Which period? first to last are its days, before_first to before_last as many days before them.

WITH known AS (
    SELECT (SELECT min(day) FROM vesk.rollup WHERE site_id = :site_id) AS oldest,
           (SELECT max(day) FROM vesk.rollup WHERE site_id = :site_id) AS newest
)
SELECT CASE WHEN :'day' <> '' AND :'from' || :'to' <> ''
            THEN pg_temp.fail('both a day and a period', 'Give either day, or from and to.')
            WHEN newest IS NULL
            THEN pg_temp.fail('the site has no reports yet', 'Import its log with vesk-admin import-log.')
            END AS nothing,
       CASE WHEN :'day' <> '' THEN pg_temp.as_day(:'day')
            WHEN :'from' <> '' THEN pg_temp.as_day(:'from')
            WHEN :'to' <> '' THEN least(oldest, pg_temp.as_day(:'to'))
            ELSE newest END AS first,
       CASE WHEN :'day' <> '' THEN pg_temp.as_day(:'day')
            WHEN :'to' <> '' THEN pg_temp.as_day(:'to')
            WHEN :'from' <> '' THEN greatest(newest, pg_temp.as_day(:'from'))
            ELSE newest END AS last
FROM known \gset

SELECT :'last'::date - :'first'::date + 1 AS days \gset
SELECT CASE WHEN :days < 1 THEN pg_temp.fail('the period ends before it begins', 'Swap from and to.')
            WHEN :days > 3660 THEN pg_temp.fail('the period is too long', 'Ten years are the most.')
            END AS nothing,
       :days = 1 AS one_day,
       :'first'::date - :days AS before_first,
       :'first'::date - 1 AS before_last,
       CASE WHEN :days <= :most_bars THEN 'day'
            WHEN :days <= 7 * :most_bars THEN 'week'
            ELSE 'month' END AS unit,
       -- Search engines report days later than the log does, hence four weeks at least.
       greatest(:days, 28) AS search_days,
       :'last'::date - greatest(:days, 28) + 1 AS search_first \gset

-- A day that was rolled up has all of its totals, however little happened.
SELECT count(DISTINCT day) FILTER (WHERE day >= :'first') AS reports,
       count(DISTINCT day) FILTER (WHERE day < :'first') AS reports_before
FROM vesk.rollup
WHERE site_id = :site_id AND day BETWEEN :'before_first' AND :'last' AND dim = 'totals' \gset
SELECT CASE WHEN :reports = 0
            THEN pg_temp.fail('there is no report for ' || pg_temp.period(:'first', :'last'),
                              format('There are reports for %s from %s to %s.',
                                     pg_temp.days(count(DISTINCT day)), min(day), max(day))) END AS nothing
FROM vesk.rollup
WHERE site_id = :site_id AND dim = 'totals' AND :reports = 0 \gset

-- Days without a report are no zeros. Sums of very different numbers of days are not compared.
SELECT :reports_before BETWEEN 0.9 * :reports AND 1.1 * :reports AS comparable,
       CASE WHEN :reports < :days
            THEN format('There is a report for %s of these days.', :reports)
            ELSE '' END AS gaps \gset
SELECT CASE WHEN :reports_before = 0
            THEN format('There is no report for %s to compare with.', before)
            WHEN NOT :'comparable'
            THEN format('Not compared with %s: there is a report for %s of those days.',
                        before, :reports_before)
            WHEN :reports_before < :days
            THEN format('Compared with %s; there is a report for %s of those days.', before, :reports_before)
            ELSE format('Compared with %s.', before) END AS compared
FROM pg_temp.period(:'before_first', :'before_last') AS before \gset

-- figure: the totals of the period and of the one before; of people, and with unverified browsers.

CREATE TEMPORARY TABLE figure AS
WITH sums AS (
    SELECT scope, day >= :'first' AS now,
           sum(n1) FILTER (WHERE key = 'visitors') AS visitors,
           sum(n1) FILTER (WHERE key = 'visits') AS visits,
           sum(x) FILTER (WHERE key = 'visits')::numeric AS secs,
           sum(n1) FILTER (WHERE key = 'pageviews') AS pageviews,
           sum(n1) FILTER (WHERE key = 'bounces') AS bounces,
           sum(n1) FILTER (WHERE key = 'requests') AS requests,
           sum(n1) FILTER (WHERE key = 'bot_requests') AS bot_requests,
           sum(n1) FILTER (WHERE key = 'unverified') AS unverified,
           sum(n1) FILTER (WHERE key = 'scanners') AS scanners
    FROM vesk.rollup
    WHERE site_id = :site_id AND day BETWEEN :'before_first' AND :'last' AND dim = 'totals'
          AND (day >= :'first' OR :'comparable')
    GROUP BY scope, now
)
SELECT name, kind,
       max(value) FILTER (WHERE scope = 'people' AND now) AS people,
       max(value) FILTER (WHERE scope = 'people' AND NOT now) AS people_before,
       max(value) FILTER (WHERE scope = 'all' AND now) AS everyone,
       max(value) FILTER (WHERE scope = 'all' AND NOT now) AS everyone_before
FROM sums, LATERAL (VALUES
    ('Visitors', 'count', visitors),
    ('Visits', 'count', visits),
    ('Page views', 'count', pageviews),
    ('Bounces', 'count', bounces),
    ('Bounce rate', 'rate', bounces / nullif(visits, 0)),
    ('Average visit', 'time', secs / nullif(visits, 0)),
    ('Requests', 'count', requests),
    ('By crawlers', 'count', bot_requests),
    ('Unverified', 'count', unverified),
    ('Scanners', 'count', scanners)) AS f (name, kind, value)
GROUP BY name, kind;

-- bin: the course of the period in days, weeks or months, by what an average day had. Days without
-- a report are in no average.

CREATE TEMPORARY TABLE bin AS
WITH days AS (
    SELECT day,
           max(n1) FILTER (WHERE key = 'visitors' AND scope = 'people') AS people,
           max(n1) FILTER (WHERE key = 'visitors' AND scope = 'all') AS everyone,
           max(n1) FILTER (WHERE key = 'visits' AND scope = 'people') AS visits,
           max(n1) FILTER (WHERE key = 'pageviews' AND scope = 'people') AS views
    FROM vesk.rollup
    WHERE site_id = :site_id AND day BETWEEN :'first' AND :'last' AND dim = 'totals'
    GROUP BY day
)
SELECT row_number() OVER (ORDER BY min(at)) AS n, min(at)::date AS first, count(day) AS reports,
       avg(people) AS people, avg(everyone) AS everyone, avg(visits) AS visits, avg(views) AS views,
       to_char(min(at), CASE :'unit' WHEN 'day' THEN 'Dy FMDD Mon YYYY'
                                     WHEN 'week' THEN 'FMDD Mon YYYY'
                                     ELSE 'Mon YYYY' END) AS label
FROM generate_series(:'first'::timestamp, :'last'::timestamp, interval '1 day') AS at
LEFT JOIN days ON day = at
GROUP BY date_trunc(:'unit', at);

-- hours: what they add up to over the period.

CREATE TEMPORARY TABLE hours AS
SELECT to_char(hour, 'FM00') AS hour,
       coalesce(sum(n1) FILTER (WHERE scope = 'people'), 0) AS visitors,
       coalesce(sum(n2) FILTER (WHERE scope = 'people'), 0) AS people,
       coalesce(sum(n2) FILTER (WHERE scope = 'all'), 0) AS everyone
FROM generate_series(0, 23) AS hour
LEFT JOIN vesk.rollup ON site_id = :site_id AND day BETWEEN :'first' AND :'last'
                      AND dim = 'hour' AND key = to_char(hour, 'FM00')
GROUP BY hour;

-- line: all other lines, the most first. before is n1 of the period before, total the number of
-- lines of the dimension, sum1 and max1 are of their n1.

CREATE TEMPORARY TABLE line AS
SELECT *, row_number() OVER (PARTITION BY dim ORDER BY n1 DESC, n2 DESC, key COLLATE "C") AS rank,
       count(*) OVER (PARTITION BY dim) AS total,
       sum(n1) OVER (PARTITION BY dim) AS sum1,
       max(n1) OVER (PARTITION BY dim) AS max1
FROM (SELECT dim, key,
             sum(n1) FILTER (WHERE day >= :'first') AS n1,
             sum(n2) FILTER (WHERE day >= :'first') AS n2,
             sum(n3) FILTER (WHERE day >= :'first') AS n3,
             sum(x) FILTER (WHERE day >= :'first')::numeric AS x,
             CASE WHEN :'comparable'
                  THEN coalesce(sum(n1) FILTER (WHERE day < :'first'), 0) END AS before
      FROM vesk.rollup
      WHERE site_id = :site_id AND day BETWEEN :'before_first' AND :'last' AND scope = :'scope'
            AND dim NOT IN ('totals', 'hour')
      GROUP BY dim, key) AS sums
WHERE n1 IS NOT NULL;

-- engine and query: what search engines report, of the last search_days days.

CREATE TEMPORARY TABLE engine AS
WITH sums AS (
    SELECT engine, day >= :'search_first' AS now, count(*) AS days, max(day) AS newest,
           sum(clicks) AS clicks, sum(impressions) AS shown,
           sum(position::numeric * impressions) / nullif(sum(impressions), 0) AS place
    FROM vesk.search_days
    WHERE site_id = :site_id AND day BETWEEN :'search_first'::date - :search_days AND :'last'
    GROUP BY engine, now
)
SELECT n.engine, n.newest, n.clicks, n.shown, n.place,
       b.clicks AS clicks_before, b.shown AS shown_before, b.place AS place_before
FROM sums AS n
LEFT JOIN sums AS b ON b.engine = n.engine AND NOT b.now AND b.days BETWEEN 0.9 * n.days AND 1.1 * n.days
WHERE n.now;

CREATE TEMPORARY TABLE query AS
SELECT *, row_number() OVER (ORDER BY clicks DESC, shown DESC, query COLLATE "C") AS rank,
       count(*) OVER () AS total, max(clicks) OVER () AS max1
FROM (SELECT query, sum(clicks) AS clicks, sum(impressions) AS shown,
             sum(position::numeric * impressions) / nullif(sum(impressions), 0) AS place
      FROM vesk.search_rows
      WHERE site_id = :site_id AND day BETWEEN :'search_first' AND :'last'
      GROUP BY query) AS q;
