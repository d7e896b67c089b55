-- Prints the report of one site, for a day or a period, as a page of text:
--
--   psql -d DATABASE -v site=example.org -v day=2026-03-02 -f share/report.sql
--   psql -d DATABASE -v site=example.org -v from=2026-03-01 -v to=2026-03-31 -f share/report.sql
--
-- site      may be left out when there is only one
-- day       also "yesterday" and the like; the last day with a report when left out
-- from, to  the first and the last day of a period; one of them may be left out
-- scope     whose visits the lists show: people (the default), or all to have the browsers that
--           could not be verified counted in
--
-- Changes are against the period before, of the same length. Needs psql 13 or later, the right to
-- read vesk.rollup, vesk.sites and vesk.search_*, and that to make temporary objects. The status
-- is 3 when there is nothing to report.

\set ON_ERROR_STOP on
\set most_bars 31
\ir report-common.sql

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

-- The lines of a section under its title; nothing at all when there are no lines. total is the
-- number of lines that there are, those beyond the shown ones included.
CREATE FUNCTION pg_temp.section(title text, heads text, lines text[], total bigint DEFAULT 0)
RETURNS text[] LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE WHEN cardinality(lines) > 0 THEN
        ARRAY['', rpad('── ' || title || ' ', 80, '─'), heads] || lines
        || CASE WHEN total > cardinality(lines)
                THEN ARRAY[format('%8s  more', '+' || pg_temp.num(total - cardinality(lines)))]
                ELSE '{}' END
    END
$$;

-- A bar, of the given columns for the most: full blocks for people, light ones for unverified
-- browsers.
CREATE FUNCTION pg_temp.bar(people numeric, everyone numeric, most numeric, columns integer)
RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT concat(repeat('█', blocks), repeat('░', all_blocks - blocks))
    FROM (SELECT round(columns * people / nullif(most, 0))::integer AS blocks,
                 round(columns * everyone / nullif(most, 0))::integer AS all_blocks) AS b
$$;

-- Head and totals

SELECT E'\n'
       || pg_temp.fit(host || CASE WHEN name IN ('', host) THEN '' ELSE ' · ' || name END, 80)
       || E'\n' || CASE WHEN :days = 1 THEN to_char(:'first'::date, 'FMDay, ') ELSE '' END
       || pg_temp.period(:'first', :'last')
       || CASE WHEN :days > 1 THEN format(' (%s)', pg_temp.days(:days)) ELSE '' END
       || coalesce(E'\n' || nullif(:'gaps', ''), '')
       || E'\n' || :'compared'
FROM vesk.sites WHERE id = :site_id;

SELECT unnest(pg_temp.section('Totals',
        format('%25s%12s%10s%20s%10s', 'people', 'before', 'change', 'with unverified', 'change'),
        array_agg(format('  %-13s %9s %11s %9s %19s %9s', name,
                         pg_temp.show(people, kind), pg_temp.show(people_before, kind),
                         pg_temp.change(people, people_before, kind),
                         pg_temp.show(everyone, kind), pg_temp.change(everyone, everyone_before, kind))
                  ORDER BY n)))
FROM figure
JOIN unnest(ARRAY['Visitors', 'Visits', 'Page views', 'Bounces', 'Bounce rate', 'Average visit'])
     WITH ORDINALITY AS shown (name, n) USING (name);

SELECT unnest(array_prepend('',
        array_agg(format('  %-13s %9s %11s %9s   %s', name,
                         pg_temp.show(everyone, kind), pg_temp.show(everyone_before, kind),
                         pg_temp.change(everyone, everyone_before, kind), meaning) ORDER BY n)))
FROM figure
JOIN (SELECT unnest(ARRAY[1, 2, 3, 4]) AS n,
             unnest(ARRAY['Requests', 'By crawlers', 'Unverified', 'Scanners']) AS name,
             unnest(ARRAY['of all kinds',
                          (SELECT pg_temp.percent(max(everyone) FILTER (WHERE name = 'By crawlers'),
                                                  max(everyone) FILTER (WHERE name = 'Requests'))
                                  || ' of all' FROM figure),
                          'showed no sign of a person',
                          'looked for weak spots']) AS meaning) AS shown USING (name);

\if :one_day
\else
\qecho
\qecho Every day counts its visitors anew: who came on two days is in these sums twice.

SELECT unnest(pg_temp.section(
    CASE :'unit' WHEN 'day' THEN 'Days' WHEN 'week' THEN 'Weeks, by their average day'
                 ELSE 'Months, by their average day' END,
    format('%17s%9s%9s', '', 'visitors', 'views'),
    array_agg(rtrim(format('%17s %8s %8s  %s', label, pg_temp.show(people, 'count'),
                           pg_temp.show(views, 'count'), pg_temp.bar(people, everyone, most, 43)))
              ORDER BY n)))
FROM bin, (SELECT max(everyone) AS most FROM bin) AS m;
\endif

SELECT unnest(pg_temp.section('Hours', format('%8s%10s%10s', 'hour', 'visitors', 'views'),
    array_agg(rtrim(format('%8s %9s %9s  %s', hour, pg_temp.num(visitors), pg_temp.num(people),
                           pg_temp.bar(people, everyone, most, 48)))
              ORDER BY hour)))
FROM hours, (SELECT max(everyone) AS most FROM hours) AS m;

-- Lists

SELECT unnest(pg_temp.section('Pages', format('%8s%8s%10s%8s', 'views', 'change', 'visitors', 'time'),
    array_agg(format('%8s %7s %9s %7s  %s', pg_temp.num(n1), pg_temp.change(n1, before),
                     pg_temp.num(n2), pg_temp.minutes(x / nullif(n3, 0)), pg_temp.fit(key, 44))
              ORDER BY rank) FILTER (WHERE rank <= 15), max(total)))
FROM line WHERE dim = 'page';

SELECT unnest(pg_temp.section('Sources', format('%8s%8s%10s', 'visits', 'change', 'share'),
    array_agg(rtrim(format('%8s %7s %9s  %-9s %s', pg_temp.num(n1), pg_temp.change(n1, before),
                           pg_temp.percent(n1, sum1), pg_temp.fit(split_part(key, E'\t', 1), 9),
                           pg_temp.fit(substr(key, strpos(key, E'\t') + 1), 42)))
              ORDER BY rank) FILTER (WHERE rank <= 15), max(total)))
FROM line WHERE dim = 'source';

SELECT unnest(pg_temp.section('Search terms and campaigns', format('%8s%8s', 'visits', 'change'),
    array_agg(format('%8s %7s  %s', pg_temp.num(n1), pg_temp.change(n1, before), pg_temp.fit(key, 62))
              ORDER BY rank) FILTER (WHERE rank <= 10), max(total)))
FROM line WHERE dim = 'terms';

WITH shown AS (
    SELECT dim, rank, total, pg_temp.num(n1) AS n,
           pg_temp.fit(coalesce(nullif(key, ''), 'unknown'),
                       CASE dim WHEN 'browser' THEN 16 WHEN 'os' THEN 9 ELSE 7 END) AS key
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

SELECT unnest(pg_temp.section('Crawlers', format('%8s%8s%10s', 'requests', 'change', 'pages'),
    array_agg(format('%8s %7s %9s  %s', pg_temp.num(n1), pg_temp.change(n1, before), pg_temp.num(n2),
                     pg_temp.fit(key, 52))
              ORDER BY rank) FILTER (WHERE rank <= 15), max(total)))
FROM line WHERE dim = 'bot';

SELECT unnest(pg_temp.section('Not found', format('%8s%8s', 'requests', 'change'),
    array_agg(format('%8s %7s  %s', pg_temp.num(n1), pg_temp.change(n1, before), pg_temp.fit(key, 62))
              ORDER BY rank) FILTER (WHERE rank <= 15), max(total)))
FROM line WHERE dim = 'notfound';

-- Search engines

SELECT unnest(pg_temp.section('Search console, ' || pg_temp.period(:'search_first', :'last'),
    format('%8s%8s%10s%9s%10s', 'clicks', 'change', 'shown', 'rate', 'position'),
    array_agg(format('%8s %7s %9s %8s %9s  %s, up to %s', pg_temp.num(clicks),
                     pg_temp.change(clicks, clicks_before), pg_temp.num(shown),
                     pg_temp.percent(clicks, shown), pg_temp.show(place, 'place'),
                     pg_temp.fit(engine, 12), to_char(newest, 'FMDD FMMonth')) ORDER BY engine)))
FROM engine;

SELECT unnest(pg_temp.section('Search queries',
    format('%8s%10s%9s%10s', 'clicks', 'shown', 'rate', 'position'),
    array_agg(format('%8s %9s %8s %9s  %s', pg_temp.num(clicks), pg_temp.num(shown),
                     pg_temp.percent(clicks, shown), pg_temp.show(place, 'place'),
                     pg_temp.fit(query, 41)) ORDER BY rank) FILTER (WHERE rank <= 10), max(total)))
FROM query;

\qecho
