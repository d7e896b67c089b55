-- Prints one day of one site as a page of text:
--
--   psql -d DATABASE -v site=example.org -v day=2026-03-02 -f share/report.sql
--
-- site   may be left out when there is only one
-- day    the last day with a report when left out; also "yesterday" and the like
-- scope  whose visits the lists show: people (the default), or all to have the browsers that
--        could not be verified counted in
--
-- Needs psql 13 or later and the right to read vesk.rollup, vesk.sites and vesk.search_*.

\set QUIET on
\set ON_ERROR_STOP on
\encoding UTF8
\pset pager off
\pset format unaligned
\pset tuples_only on
\pset null ''
SET client_min_messages = warning;

-- Paths, referrers and search terms come from strangers. What a terminal would obey or what would
-- turn the reading order around is shown as a replacement character.
CREATE FUNCTION pg_temp.clean(t text) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT regexp_replace(t, '[\u0001-\u001F\u007F-\u009F\u00AD\u061C\u180E\u200B-\u200F'
        '\u2028-\u202E\u2060-\u206F\uFEFF\uFFF9-\uFFFB\U000E0000-\U000E0FFF]', '�', 'g')
$$;

-- The text, cleaned and cut to the given number of terminal columns. East Asian characters and
-- emoji take two.
CREATE FUNCTION pg_temp.fit(t text, columns integer) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE WHEN max(upto) > columns
                THEN concat(string_agg(c, '' ORDER BY n) FILTER (WHERE upto < columns), '…')
                ELSE pg_temp.clean(t) END
    FROM (SELECT c, n, sum(CASE WHEN c ~
                     '[\u1100-\u115F\u2E80-\uA4CF\uAC00-\uD7A3\uF900-\uFAFF\uFE30-\uFE6F'
                     '\uFF00-\uFF60\uFFE0-\uFFE6\U0001F300-\U0001FAFF\U00020000-\U0003FFFD]'
                     THEN 2 ELSE 1 END) OVER (ORDER BY n) AS upto
          FROM unnest(string_to_array(left(pg_temp.clean(t), columns + 1), NULL))
               WITH ORDINALITY AS letter (c, n)) AS letters
$$;

CREATE FUNCTION pg_temp.num(n numeric) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT to_char(n, 'FM999,999,999,990')
$$;

CREATE FUNCTION pg_temp.percent(part numeric, whole numeric)
RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT coalesce(to_char(100 * part / nullif(whole, 0), 'FM990.0') || ' %', '-')
$$;

-- An average of seconds as minutes and seconds.
CREATE FUNCTION pg_temp.minutes(secs float8, n numeric) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT coalesce(average / 60 || ':' || lpad((average % 60)::text, 2, '0'), '-')
    FROM (SELECT round(secs::numeric / nullif(n, 0))::integer AS average) AS a
$$;

-- The lines of a section under its title; nothing at all when there are no lines. total is the
-- number of lines that there are, those beyond the shown ones included.
CREATE FUNCTION pg_temp.section(title text, heads text, lines text[], total bigint)
RETURNS text[] LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE WHEN cardinality(lines) > 0 THEN
        ARRAY['', rpad('── ' || title || ' ', 80, '─'), heads] || lines
        || CASE WHEN total > cardinality(lines)
                THEN ARRAY[format('%8s  more', '+' || pg_temp.num(total - cardinality(lines)))]
                ELSE '{}' END
    END
$$;

-- Which site and which day?

\if :{?site}
\else
    SELECT CASE WHEN count(*) = 1 THEN min(host) ELSE '' END AS site FROM vesk.sites \gset
\endif
\if :{?day}
\else
    \set day ''
\endif
\if :{?scope}
\else
    \set scope people
\endif

SELECT coalesce(min(id), 0) AS site_id, count(*) > 0 AS site_known
FROM vesk.sites WHERE host = lower(:'site') \gset
\if :site_known
\else
    SELECT CASE WHEN :'site' = '' THEN 'Which site? Add -v site=HOST.'
                ELSE 'Unknown site ' || pg_temp.fit(:'site', 100) || '.' END;
    SELECT coalesce('Sites: ' || string_agg(pg_temp.clean(host), ', ' ORDER BY host),
                    'There are no sites yet (add one with vesk-admin add-site).')
    FROM vesk.sites;
    \quit
\endif

SELECT :'scope' IN ('people', 'all') AS scope_known \gset
\if :scope_known
\else
    \echo The scope is either people or all.
    \quit
\endif

SELECT coalesce(nullif(:'day', '')::date, max(day), 'epoch') AS day,
       coalesce(bool_or(day = coalesce(nullif(:'day', '')::date, day)), false) AS day_known
FROM vesk.rollup WHERE site_id = :site_id \gset
\if :day_known
\else
    SELECT CASE WHEN count(*) = 0 THEN
               format('%s has no reports yet (import its log with vesk-admin import-log).',
                      pg_temp.clean(:'site'))
           ELSE
               format('%s has no report for %s. There are reports for %s days from %s to %s.',
                      pg_temp.clean(:'site'), :'day', count(DISTINCT day), min(day), max(day))
           END
    FROM vesk.rollup WHERE site_id = :site_id;
    \quit
\endif

CREATE TEMPORARY VIEW line AS
SELECT dim, key, n1, n2, n3, x,
       row_number() OVER (PARTITION BY dim ORDER BY n1 DESC, n2 DESC, key) AS rank,
       count(*) OVER (PARTITION BY dim) AS total,
       sum(n1) OVER (PARTITION BY dim) AS sum1
FROM vesk.rollup
WHERE site_id = :site_id AND day = :'day' AND scope = :'scope';

-- Head and totals

SELECT E'\n'
       || pg_temp.fit(host || CASE WHEN name IN ('', host) THEN '' ELSE ' · ' || name END, 80)
       || E'\n' || to_char(:'day'::date, 'FMDay, FMDD FMMonth YYYY')
FROM vesk.sites WHERE id = :site_id;

WITH totals AS (
    SELECT scope,
           max(n1) FILTER (WHERE key = 'visitors') AS visitors,
           max(n1) FILTER (WHERE key = 'visits') AS visits,
           max(x) FILTER (WHERE key = 'visits') AS secs,
           max(n1) FILTER (WHERE key = 'pageviews') AS pageviews,
           max(n1) FILTER (WHERE key = 'bounces') AS bounces,
           max(n1) FILTER (WHERE key = 'requests') AS requests,
           max(n1) FILTER (WHERE key = 'bot_requests') AS bot_requests,
           max(n1) FILTER (WHERE key = 'unverified') AS unverified,
           max(n1) FILTER (WHERE key = 'scanners') AS scanners
    FROM vesk.rollup
    WHERE site_id = :site_id AND day = :'day' AND dim = 'totals'
    GROUP BY scope
)
SELECT unnest(pg_temp.section('Totals', format('%36s%22s', 'people', 'with unverified'), ARRAY[
        format('  Visitors      %20s%22s', pg_temp.num(p.visitors), pg_temp.num(a.visitors)),
        format('  Visits        %20s%22s', pg_temp.num(p.visits), pg_temp.num(a.visits)),
        format('  Page views    %20s%22s', pg_temp.num(p.pageviews), pg_temp.num(a.pageviews)),
        format('  Bounces       %20s%22s', pg_temp.num(p.bounces), pg_temp.num(a.bounces)),
        format('  Bounce rate   %20s%22s', pg_temp.percent(p.bounces, p.visits),
                                           pg_temp.percent(a.bounces, a.visits)),
        format('  Average visit %20s%22s', pg_temp.minutes(p.secs, p.visits),
                                           pg_temp.minutes(a.secs, a.visits)),
        '',
        format('  Requests      %20s   of all kinds', pg_temp.num(a.requests)),
        format('  By crawlers   %20s   %s', pg_temp.num(a.bot_requests),
                                           pg_temp.percent(a.bot_requests, a.requests)),
        format('  Unverified    %20s   browsers that show no sign of a person',
               pg_temp.num(a.unverified)),
        format('  Scanners      %20s   visitors that looked for weak spots',
               pg_temp.num(a.scanners))],
    0))
FROM totals AS p, totals AS a
WHERE p.scope = 'people' AND a.scope = 'all';

-- Hours: page views of people as full blocks, those of unverified browsers as light ones.

WITH hours AS (
    SELECT to_char(hour, 'FM00') AS hour,
           coalesce(p.n1, 0) AS visitors, coalesce(p.n2, 0) AS views, coalesce(a.n2, 0) AS all_views
    FROM generate_series(0, 23) AS hour
    LEFT JOIN vesk.rollup AS p ON p.site_id = :site_id AND p.day = :'day' AND p.scope = 'people'
                               AND p.dim = 'hour' AND p.key = to_char(hour, 'FM00')
    LEFT JOIN vesk.rollup AS a ON a.site_id = :site_id AND a.day = :'day' AND a.scope = 'all'
                               AND a.dim = 'hour' AND a.key = to_char(hour, 'FM00')
), bars AS (
    SELECT hour, visitors, views,
           round(48.0 * views / nullif(max(all_views) OVER (), 0))::integer AS full_blocks,
           round(48.0 * all_views / nullif(max(all_views) OVER (), 0))::integer AS blocks
    FROM hours
)
SELECT unnest(pg_temp.section('Hours', format('%8s%10s%10s', 'hour', 'visitors', 'views'),
    array_agg(rtrim(format('%8s%10s%10s  %s%s', hour, pg_temp.num(visitors), pg_temp.num(views),
                           repeat('█', full_blocks), repeat('░', blocks - full_blocks)))
              ORDER BY hour), 0))
FROM bars;

-- Lists

SELECT unnest(pg_temp.section('Pages', format('%8s%10s%9s', 'views', 'visitors', 'time'),
    array_agg(format('%8s%10s%9s  %s', pg_temp.num(n1), pg_temp.num(n2), pg_temp.minutes(x, n3),
                     pg_temp.fit(key, 51)) ORDER BY rank) FILTER (WHERE rank <= 15), max(total)))
FROM line WHERE dim = 'page';

SELECT unnest(pg_temp.section('Sources', format('%8s%10s', 'visits', 'share'),
    array_agg(rtrim(format('%8s%10s  %-9s %s', pg_temp.num(n1), pg_temp.percent(n1, sum1),
                           pg_temp.fit(split_part(key, E'\t', 1), 9),
                           pg_temp.fit(substr(key, strpos(key, E'\t') + 1), 50)))
              ORDER BY rank) FILTER (WHERE rank <= 15), max(total)))
FROM line WHERE dim = 'source';

SELECT unnest(pg_temp.section('Search terms and campaigns', format('%8s', 'visits'),
    array_agg(format('%8s  %s', pg_temp.num(n1), pg_temp.fit(key, 70)) ORDER BY rank)
    FILTER (WHERE rank <= 10), max(total)))
FROM line WHERE dim = 'terms';

WITH shown AS (
    SELECT dim, rank, total, pg_temp.num(n1) AS n,
           pg_temp.fit(coalesce(nullif(key, ''), 'unknown'), 16) AS key
    FROM line
    WHERE dim IN ('country', 'browser', 'os', 'device') AND rank <= 10
), rows AS (
    SELECT rank, max(total) AS total,
           format('%8s  %-8s', max(n) FILTER (WHERE dim = 'country'),
                               max(key) FILTER (WHERE dim = 'country'))
           || format('%7s  %-16s', max(n) FILTER (WHERE dim = 'browser'),
                                   max(key) FILTER (WHERE dim = 'browser'))
           || format('%7s  %-9s', max(n) FILTER (WHERE dim = 'os'),
                                  max(key) FILTER (WHERE dim = 'os'))
           || format('%7s  %s', max(n) FILTER (WHERE dim = 'device'),
                                max(key) FILTER (WHERE dim = 'device')) AS text
    FROM shown
    GROUP BY rank
)
SELECT unnest(pg_temp.section('Visitors',
    format('%10s%-17s%-25s%-18s%s', '', 'country', 'browser', 'system', 'device'),
    array_agg(rtrim(text) ORDER BY rank), max(total)))
FROM rows;

SELECT unnest(pg_temp.section('Crawlers', format('%8s%10s', 'requests', 'pages'),
    array_agg(format('%8s%10s  %s', pg_temp.num(n1), pg_temp.num(n2), pg_temp.fit(key, 60))
              ORDER BY rank) FILTER (WHERE rank <= 15), max(total)))
FROM line WHERE dim = 'bot';

SELECT unnest(pg_temp.section('Not found', format('%8s', 'requests'),
    array_agg(format('%8s  %s', pg_temp.num(n1), pg_temp.fit(key, 70)) ORDER BY rank)
    FILTER (WHERE rank <= 15), max(total)))
FROM line WHERE dim = 'notfound';

-- Search engines report days later than the log does, hence also the four weeks up to the day.

WITH spans (label, first) AS (
    VALUES ('this day', :'day'::date), ('28 days', :'day'::date - 27)
), sums AS (
    SELECT engine, label, sum(clicks) AS clicks, sum(impressions) AS impressions,
           sum(position::numeric * impressions) / nullif(sum(impressions), 0) AS position
    FROM vesk.search_days JOIN spans ON day BETWEEN first AND :'day'::date
    WHERE site_id = :site_id
    GROUP BY engine, label
)
SELECT unnest(pg_temp.section('Search console',
    format('%8s%12s%9s%10s', 'clicks', 'shown', 'rate', 'position'),
    array_agg(format('%8s%12s%9s%10s  %s, %s', pg_temp.num(clicks), pg_temp.num(impressions),
                     pg_temp.percent(clicks, impressions), to_char(position, 'FM9990.0'),
                     pg_temp.fit(engine, 12), label) ORDER BY engine, label DESC), 0))
FROM sums;

WITH queries AS (
    SELECT query, sum(clicks) AS clicks, sum(impressions) AS impressions,
           sum(position::numeric * impressions) / nullif(sum(impressions), 0) AS position,
           row_number() OVER (ORDER BY sum(clicks) DESC, sum(impressions) DESC, query) AS rank,
           count(*) OVER () AS total
    FROM vesk.search_rows
    WHERE site_id = :site_id AND day BETWEEN :'day'::date - 27 AND :'day'::date
    GROUP BY query
)
SELECT unnest(pg_temp.section('Search queries of 28 days',
    format('%8s%12s%9s%10s', 'clicks', 'shown', 'rate', 'position'),
    array_agg(format('%8s%12s%9s%10s  %s', pg_temp.num(clicks), pg_temp.num(impressions),
                     pg_temp.percent(clicks, impressions), to_char(position, 'FM9990.0'),
                     pg_temp.fit(query, 39)) ORDER BY rank) FILTER (WHERE rank <= 10), max(total)))
FROM queries;

\echo
