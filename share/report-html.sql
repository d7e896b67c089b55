-- Writes the report of one site, for a day or a period, as a web page without script or other files:
--
--   psql -d DATABASE -v site=example.org -v from=2026-03-01 -v to=2026-03-31 \
--        -f share/report-html.sql > report.html
--
-- The variables, what changes are against and what it needs are those of report.sql.

\set ON_ERROR_STOP on
\set most_bars 92
\ir report-common.sql

-- Text as content of an element or a quoted attribute: cleaned and cut to a number of characters.
CREATE FUNCTION pg_temp.html(t text, most integer DEFAULT 100)
RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT replace(replace(replace(replace(replace(
               CASE WHEN length(c) > most THEN left(c, most - 1) || '…' ELSE c END,
               '&', '&amp;'), '<', '&lt;'), '>', '&gt;'), '"', '&quot;'), '''', '&#39;')
    FROM pg_temp.clean(t) AS c
$$;

-- A text of a stranger. The element keeps letters that are written from right to left from turning
-- what is around them.
CREATE FUNCTION pg_temp.stranger(t text) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT '<bdi>' || pg_temp.html(t) || '</bdi>'
$$;

CREATE FUNCTION pg_temp.kind(kind text) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE kind WHEN 'search' THEN 'Search engines' WHEN 'ai' THEN 'AI assistants'
                     WHEN 'social' THEN 'Social networks' WHEN 'email' THEN 'Mail'
                     WHEN 'campaign' THEN 'Campaigns' WHEN 'referral' THEN 'Other sites'
                     WHEN 'internal' THEN 'The site itself' WHEN 'direct' THEN 'Direct'
                     ELSE pg_temp.html(kind) END
$$;

-- The name of a source with its kind: the key of its report line.
CREATE FUNCTION pg_temp.source(key text) RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT CASE name WHEN '' THEN pg_temp.kind(kind)
                     ELSE format('%s <span class="kind">%s</span>', pg_temp.stranger(name),
                                 pg_temp.html(kind)) END
    FROM (SELECT split_part(key, E'\t', 1), substr(key, strpos(key, E'\t') + 1)) AS s (kind, name)
$$;

-- The distance of the lines of a scale that has at most five, from 1, 2, 5, 10, 20...
CREATE FUNCTION pg_temp.step(most numeric) RETURNS numeric LANGUAGE sql IMMUTABLE AS $$
    SELECT min(digit * 10 ^ zeros)
    FROM unnest(ARRAY[1, 2, 5]::numeric[]) AS digit, generate_series(0, 14) AS zeros
    WHERE digit * 10 ^ zeros * 5 >= most
$$;

-- Upright bars. people and everyone are the heights, NULL where there is nothing to tell; ticks the
-- labels below, NULL where there is none; every thin-th of these remains on a narrow screen.
-- Places across are in percent and upright ones in pixels, so that letters keep their size.
CREATE FUNCTION pg_temp.chart(about text, labels text[], people numeric[], everyone numeric[],
                              ticks text[], thin bigint)
RETURNS text LANGUAGE sql IMMUTABLE AS $$
    WITH scale AS (
        SELECT step, step * ceil(most / step) AS top, 100.0 / cardinality(labels) AS slot
        FROM (SELECT greatest(max(e), 1) AS most FROM unnest(everyone) AS e) AS m, pg_temp.step(most) AS step
    ), bars AS (
        SELECT n, label, tick, slot * (n - 1) AS x, slot, count(tick) OVER (ORDER BY n) AS nth,
               180 * p / top AS p, 180 * e / top AS e,
               label || CASE WHEN e IS NULL THEN ': no report'
                             ELSE format(': %s, %s with unverified', pg_temp.show(p, kind),
                                         pg_temp.show(e, kind)) END AS tip
        FROM scale,
             unnest(labels, people, everyone, ticks) WITH ORDINALITY AS b (label, p, e, tick, n),
             LATERAL (SELECT CASE WHEN e = trunc(e) AND p = trunc(p) THEN 'count' ELSE 'mean' END) AS k (kind)
    )
    SELECT '<ul class="legend">'
           '<li><svg aria-hidden="true"><rect class="people" width="12" height="12"/></svg>people</li>'
           '<li><svg aria-hidden="true"><rect class="unverified" width="12" height="12"/></svg>'
           'unverified browsers, on top</li></ul>'
           || format('<svg class="chart" role="img" aria-label="%s" height="220" style="max-width:%spx">',
                     about, 96 * cardinality(labels))
           || (SELECT string_agg(format('<line class="grid" x2="100%%" y1="%s" y2="%1$s"/>'
                                        '<text class="y" x="-8" y="%1$s" dy="4">%s</text>',
                                        round(190 - 180 * y / top, 1),
                                        CASE WHEN top < 100000 OR y = 0 THEN pg_temp.num(y)
                                             WHEN top < 10000000 THEN pg_temp.num(y / 1000) || 'k'
                                             ELSE pg_temp.num(y / 1000000) || 'M' END), '' ORDER BY y)
               FROM scale, generate_series(0, top, step) AS y)
           || (SELECT string_agg(
                   format('<g><title>%s</title><rect class="hit" x="%s%%" width="%s%%" y="10" height="180"/>',
                          tip, round(x, 3), round(slot, 3))
                   || CASE WHEN e > 0 THEN
                          format('<rect class="unverified" x="%s%%" width="%s%%" y="%s" height="%s"/>'
                                 '<rect class="people" x="%1$s%%" width="%2$s%%" y="%5$s" height="%6$s"/>',
                                 round(x + 0.12 * slot, 3), round(0.76 * slot, 3),
                                 round(190 - e, 1), round(e - p, 1), round(190 - p, 1), round(p, 1))
                      ELSE '' END || '</g>'
                   || CASE WHEN tick IS NULL THEN '' ELSE
                          format('<text class="x%s" x="%s%%" y="210">%s</text>',
                                 CASE WHEN (nth - 1) % thin = 0 THEN '' ELSE ' wide' END,
                                 round(x + slot / 2, 3), tick) END, E'\n' ORDER BY n)
               FROM bars)
           || '</svg>'
$$;

-- A row of a table. The first cell holds a name, as HTML, and a bar that is long by share, 0 to 1.
CREATE FUNCTION pg_temp.row(name text, share numeric, VARIADIC cells text[])
RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT format('<tr><th scope="row">%s<svg class="bar" aria-hidden="true" height="5">'
                  '<rect width="%s%%" height="5"/></svg></th>', name, round(100 * share, 2))
           || string_agg('<td>' || cell || '</td>', '' ORDER BY n) || '</tr>'
    FROM unnest(cells) WITH ORDINALITY AS c (cell, n)
$$;

-- A number with its change below.
CREATE FUNCTION pg_temp.changed(n numeric, before numeric, kind text DEFAULT 'count')
RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT pg_temp.show(n, kind)
           || CASE WHEN before IS NULL THEN ''
                   ELSE format('<small>%s</small>', pg_temp.change(n, before, kind)) END
$$;

-- A table with its heading. total is the number of rows that there are, also those not shown.
CREATE FUNCTION pg_temp.listing(id text, title text, heads text[], rows text[], total bigint DEFAULT 0)
RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT format('<div class="list"><h3 id="%s">%s</h3>', id, title)
           || CASE WHEN rows IS NULL THEN '<p class="none">None.</p>' ELSE
                  format('<table aria-labelledby="%s"><thead><tr><th scope="col">', id)
                  || array_to_string(heads, '</th><th scope="col">') || E'</th></tr></thead><tbody>\n'
                  || array_to_string(rows, E'\n') || '</tbody></table>'
                  || CASE WHEN total > cardinality(rows)
                          THEN format('<p class="more">and %s more</p>',
                                      pg_temp.num(total - cardinality(rows)))
                          ELSE '' END END
           || '</div>'
$$;

-- The most important figures, large.
CREATE FUNCTION pg_temp.tile(name text, n text, VARIADIC notes text[])
RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT format('<li>%s<b>%s</b>', name, n)
           || coalesce((SELECT string_agg('<small>' || note || '</small>', '' ORDER BY i)
                        FROM unnest(notes) WITH ORDINALITY AS t (note, i) WHERE note IS NOT NULL), '')
           || '</li>'
$$;

CREATE FUNCTION pg_temp.since(n numeric, before numeric, kind text)
RETURNS text LANGUAGE sql IMMUTABLE AS $$
    SELECT format('%s from %s', pg_temp.change(n, before, kind), pg_temp.show(before, kind))
    WHERE n IS NOT NULL AND before IS NOT NULL
$$;

-- Head

SELECT format($html$<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<meta name="referrer" content="no-referrer">
<meta name="robots" content="noindex">
<title>%s, %s</title>$html$, pg_temp.html(host), pg_temp.period(:'first', :'last'))
FROM vesk.sites WHERE id = :site_id;

SELECT $html$<style>
:root {
    --paper: #fff; --ink: #1b2126; --soft: #55606b; --line: #d5dbe0; --faint: #edf0f2;
    --people: #17695a; --hatch: #4d9485;
}
@media screen and (prefers-color-scheme: dark) {
    :root {
        --paper: #14181b; --ink: #e3e7ea; --soft: #a2adb6; --line: #384047; --faint: #232a2f;
        --people: #5cc4ab; --hatch: #4a9a88;
    }
}
* { box-sizing: border-box; }
html { background: var(--paper); color: var(--ink); -webkit-text-size-adjust: 100%; text-size-adjust: 100%; }
body {
    max-width: 62rem; margin: 0 auto; padding: 2rem 1rem 3rem;
    font: 1rem/1.45 system-ui, -apple-system, "Segoe UI", Roboto, "Noto Sans", "Liberation Sans", sans-serif;
    font-variant-numeric: tabular-nums;
}
h1, h2, h3, p, ul, table { margin: 0; }
ul { padding: 0; list-style: none; }
h1 { font-size: 1.75rem; line-height: 1.2; overflow-wrap: anywhere; }
h2 { font-size: 1.25rem; line-height: 1.3; }
h3 { font-size: 1rem; }
header p { overflow-wrap: anywhere; }
header .period { font-size: 1.25rem; margin-top: .25rem; }
section { margin-top: 2.5rem; padding-top: 1rem; border-top: 1px solid var(--line); }
small, .soft, .none, .more, .legend, footer, summary { color: var(--soft); font-size: .875rem; }
small { display: block; }
section > .soft { margin-top: .25rem; }
.tiles + .soft { margin-top: 1rem; }
.none, .more { margin-top: .5rem; }

.tiles {
    display: grid; grid-template-columns: repeat(auto-fit, minmax(9.25rem, 1fr)); gap: 1.25rem 1rem;
    margin-top: 1rem;
}
.tiles li { color: var(--soft); font-size: .875rem; }
.tiles b { display: block; color: var(--ink); font-size: 1.75rem; line-height: 1.25; font-weight: 600; }

.legend { display: flex; flex-wrap: wrap; gap: .25rem 1.25rem; margin-top: .5rem; }
.legend svg { width: 12px; height: 12px; margin-right: .4rem; }
.chart { display: block; width: calc(100% - 3rem); margin: .75rem 0 0 3rem; overflow: visible; }
.chart text { font-size: .75rem; fill: var(--soft); }
.y { text-anchor: end; }
.x { text-anchor: middle; }
.grid { stroke: var(--line); stroke-width: 1; shape-rendering: crispEdges; }
.hit { fill: transparent; }
g:hover > .hit { fill: var(--faint); }
.people, .bar rect { fill: var(--people); }
.unverified { fill: url(#hatch); stroke: var(--hatch); stroke-width: 1; }
#hatch path { stroke: var(--hatch); stroke-width: 1.5; }
.defs { position: absolute; }
details { margin-top: .75rem; overflow-x: auto; }
summary { cursor: pointer; }

.lists { display: grid; gap: 2rem; margin-top: 1rem; align-content: start; }
.lists .lists { margin-top: 0; min-width: 0; }
.engine { margin-top: 1rem; }
.list { min-width: 0; }
table { width: 100%; border-collapse: collapse; margin-top: .25rem; font-size: .9375rem; }
th, td {
    padding: .4rem 0 .4rem .9rem; border-bottom: 1px solid var(--faint);
    text-align: right; vertical-align: top; font-weight: 400; white-space: nowrap;
}
th:first-child {
    width: 100%; padding-left: 0;
    text-align: left; white-space: normal; overflow-wrap: anywhere;
}
thead th { color: var(--soft); font-size: .8125rem; vertical-align: bottom; border-color: var(--line); }
.plain th:first-child { overflow-wrap: normal; }
/* Three lines of it at most, and no marks that reach out of them. */
bdi { display: inline-block; max-width: 100%; max-height: 4.35em; overflow: hidden; vertical-align: bottom; }
.kind { color: var(--soft); font-size: .8125rem; }
.bar { display: block; width: 100%; margin-top: .2rem; }
footer { margin-top: 3rem; padding-top: 1rem; border-top: 1px solid var(--line); max-width: 46rem; }
footer p + p { margin-top: .5rem; }

@media (min-width: 48rem) {
    body { padding: 3rem 2rem 4rem; }
    .two { grid-template-columns: repeat(2, minmax(0, 1fr)); gap: 2rem 3rem; }
}
@media (max-width: 40rem) {
    .wide, [aria-labelledby="query"] :is(th, td):nth-child(4) { display: none; }
    th, td { padding-left: .6rem; }
}
@media print {
    body { max-width: none; padding: 0; font-size: 9pt; }
    section { margin-top: 1.5rem; }
    .two { grid-template-columns: repeat(2, minmax(0, 1fr)); gap: 1.5rem 2rem; }
    table { font-size: .875rem; }
    th, td { padding-top: .2rem; padding-bottom: .2rem; }
    .tiles { grid-template-columns: repeat(auto-fit, minmax(7.5rem, 1fr)); }
    .chart, .tiles, tr { break-inside: avoid; }
    h2, h3, thead, .legend { break-after: avoid; }
}
</style>
</head>
<body>
<svg class="defs" width="0" height="0" aria-hidden="true"><defs>
<pattern id="hatch" width="4" height="4" patternUnits="userSpaceOnUse">
<path d="M-1 1l2-2M0 4l4-4M3 5l2-2"/></pattern>
</defs></svg>$html$;

SELECT format('<header><h1>%s</h1>%s<p class="period">%s%s</p><p class="soft">%s</p></header><main>',
              pg_temp.stranger(host),
              '<p>' || pg_temp.stranger(nullif(nullif(name, ''), host)) || '</p>',
              CASE WHEN :days = 1 THEN to_char(:'first'::date, 'FMDay, ') ELSE '' END,
              pg_temp.period(:'first', :'last'),
              concat_ws(' ', CASE WHEN :days > 1 THEN pg_temp.days(:days) || '.' END,
                        nullif(:'gaps', ''), :'compared'))
FROM vesk.sites WHERE id = :site_id;

-- Totals and the course of the visitors

SELECT '<section><h2>People</h2><ul class="tiles">'
       || string_agg(pg_temp.tile(name, pg_temp.show(people, kind),
                                  pg_temp.since(people, people_before, kind),
                                  pg_temp.show(everyone, kind) || ' with unverified'), E'\n' ORDER BY n)
       || '</ul>'
FROM figure
JOIN unnest(ARRAY['Visitors', 'Visits', 'Page views', 'Bounce rate', 'Average visit'])
     WITH ORDINALITY AS shown (name, n) USING (name);

\if :one_day
SELECT '</section>';
\else
SELECT '<p class="soft">Every day counts its visitors anew: who came on two days is in these sums twice.</p>'
       '</section>';

-- Below the bars: every day, every other, or Mondays; months; years.
WITH ticked AS (
    SELECT *, CASE :'unit' WHEN 'week' THEN 'Week of ' ELSE '' END || label AS long_label,
           CASE WHEN :days <= 26 AND (n - 1) % (1 + :days / 14) = 0 THEN to_char(first, 'FMDD Mon')
                WHEN :days > 26 AND :'unit' = 'day' AND extract(isodow FROM first) = 1
                THEN to_char(first, 'FMDD Mon')
                WHEN :'unit' = 'day' OR first > month THEN NULL
                WHEN extract(month FROM month) > 1 THEN CASE WHEN :days < 800 THEN to_char(month, 'Mon') END
                ELSE to_char(month, CASE WHEN :days < 800 THEN 'Mon ’YY' ELSE 'YYYY' END) END AS tick
    FROM (SELECT *, date_trunc('month', coalesce(lead(first) OVER (ORDER BY n) - 1, :'last'))::date AS month
          FROM bin) AS b
), course AS (
    SELECT 'Visitors by ' || :'unit' AS title, count(*) AS bars,
           array_agg(long_label ORDER BY n) AS labels, array_agg(people ORDER BY n) AS people,
           array_agg(everyone ORDER BY n) AS everyone, array_agg(tick ORDER BY n) AS ticks,
           (count(tick) + 5) / 6 AS thin,
           string_agg(format('<tr><th scope="row">%s</th><td>%s</td><td>%s</td><td>%s</td><td>%s</td></tr>',
                             long_label, pg_temp.show(people, kind), pg_temp.show(everyone - people, kind),
                             pg_temp.show(visits, kind), pg_temp.show(views, kind)),
                      E'\n' ORDER BY n) AS rows,
           (array_agg(format('%s: %s', long_label, pg_temp.show(people, kind))
                      ORDER BY people DESC NULLS LAST, n))[1] AS best
    FROM ticked, (SELECT CASE :'unit' WHEN 'day' THEN 'count' ELSE 'mean' END AS kind) AS k
)
SELECT format($html$<section><h2>%s</h2>%s%s<details%s><summary>The same in numbers</summary>
<table class="plain"><thead><tr><th scope="col">%s</th><th scope="col">People</th>
<th scope="col">Unverified</th><th scope="col">Visits</th><th scope="col">Page views</th></tr></thead>
<tbody>%s</tbody></table></details></section>$html$,
              title,
              CASE :'unit' WHEN 'day' THEN ''
                           ELSE format('<p class="soft">The average day of each %s.</p>', :'unit') END,
              pg_temp.chart(format('%s. The most people: %s.', title, best), labels, people, everyone, ticks,
                            thin),
              CASE WHEN bars <= 10 THEN ' open' ELSE '' END, initcap(:'unit'), rows)
FROM course;
\endif

WITH course AS (
    SELECT array_agg(hour || ':00' ORDER BY hour) AS labels, array_agg(people ORDER BY hour) AS people,
           array_agg(everyone ORDER BY hour) AS everyone,
           array_agg(CASE WHEN hour::integer % 3 = 0 THEN hour END ORDER BY hour) AS ticks,
           (array_agg(hour ORDER BY people DESC, hour))[1] AS best,
           string_agg(format('<tr><th scope="row">%s:00</th><td>%s</td><td>%s</td><td>%s</td></tr>', hour,
                             pg_temp.num(visitors), pg_temp.num(people), pg_temp.num(everyone - people)),
                      E'\n' ORDER BY hour) AS rows
    FROM hours
)
SELECT format($html$<section><h2>Page views by hour</h2>%s<details><summary>The same in numbers</summary>
<table class="plain"><thead><tr><th scope="col">Hour</th><th scope="col">Visitors</th>
<th scope="col">Page views</th><th scope="col">Unverified</th></tr></thead>
<tbody>%s</tbody></table></details></section>$html$,
              pg_temp.chart(format('Page views by hour. Most are at %s:00.', best), labels, people, everyone,
                            ticks, 2), rows)
FROM course;

-- Lists

\ir report-countries.sql

CREATE TEMPORARY TABLE lists AS
SELECT dim, pg_temp.listing(dim, title, heads, array_agg(html ORDER BY rank) FILTER (WHERE rank <= most),
                            max(total)) AS html
FROM (VALUES
    ('page', 'Most viewed', 20, ARRAY['Page', 'Views', 'Visitors', 'Time']),
    ('notfound', 'Not found', 15, ARRAY['Path', 'Requests']),
    ('source', 'Services and sites', 15, ARRAY['Source', 'Visits', 'Share']),
    ('terms', 'Search terms and campaigns', 10, ARRAY['Term or campaign', 'Visits']),
    ('country', 'Countries', 15, ARRAY['Country', 'Visitors', 'Share']),
    ('device', 'Devices', 3, ARRAY['Device', 'Visitors', 'Share']),
    ('browser', 'Browsers', 8, ARRAY['Browser', 'Visitors', 'Share']),
    ('os', 'Systems', 8, ARRAY['System', 'Visitors', 'Share']),
    ('bot', 'Crawlers', 15, ARRAY['Crawler', 'Requests', 'Pages'])) AS shown (dim, title, most, heads)
LEFT JOIN (
    SELECT dim, rank, total,
           pg_temp.row(CASE dim
                           WHEN 'source' THEN pg_temp.source(key)
                           WHEN 'country' THEN coalesce(name, CASE key WHEN '' THEN 'Unknown'
                                                                      ELSE pg_temp.stranger(key) END)
                           WHEN 'device' THEN pg_temp.html(initcap(key))
                           ELSE pg_temp.stranger(key) END,
                       n1 / nullif(max1, 0),
                       VARIADIC ARRAY[pg_temp.changed(n1, before)]
                       || CASE WHEN dim = 'page'
                               THEN ARRAY[pg_temp.num(n2), pg_temp.minutes(x / nullif(n3, 0))]
                               WHEN dim = 'bot' THEN ARRAY[pg_temp.num(n2)]
                               WHEN dim IN ('terms', 'notfound') THEN '{}'
                               ELSE ARRAY[pg_temp.percent(n1, sum1)] END) AS html
    FROM line LEFT JOIN country ON dim = 'country' AND code = key
    WHERE rank <= 20) AS r USING (dim)
GROUP BY dim, title, heads;

INSERT INTO lists
SELECT 'kind', pg_temp.listing('kind', 'Kinds', ARRAY['Kind', 'Visits', 'Share'],
                               array_agg(pg_temp.row(pg_temp.kind(kind), n / max, pg_temp.num(n),
                                                     pg_temp.percent(n, sum)) ORDER BY n DESC, kind))
FROM (SELECT split_part(key, E'\t', 1) AS kind, sum(n1) AS n,
             sum(sum(n1)) OVER () AS sum, max(sum(n1)) OVER () AS max
      FROM line
      WHERE dim = 'source'
      GROUP BY kind) AS k;

INSERT INTO lists
SELECT 'query', pg_temp.listing('query', 'Queries', ARRAY['Query', 'Clicks', 'Shown', 'Rate', 'Position'],
                                array_agg(html ORDER BY rank), max(total))
FROM (SELECT rank, total,
             pg_temp.row(pg_temp.stranger(query), clicks::numeric / nullif(max1, 0), pg_temp.num(clicks),
                         pg_temp.num(shown), pg_temp.percent(clicks, shown),
                         pg_temp.show(place, 'place')) AS html
      FROM query
      WHERE rank <= 20) AS q;

SELECT format($html$<section><h2>Pages</h2><div class="lists">%s</div></section>
<section><h2>Sources of visits</h2>
<div class="lists two"><div class="lists">%s%s</div>%s</div></section>
<section><h2>Visitors</h2>
<div class="lists two">%s<div class="lists">%s%s%s</div></div></section>$html$,
              VARIADIC array_agg(html ORDER BY n))
FROM lists
JOIN unnest(ARRAY['page', 'kind', 'terms', 'source', 'country', 'device', 'browser', 'os'])
     WITH ORDINALITY AS t (dim, n) USING (dim);

-- Search engines

SELECT '<section><h2>Search console</h2><p class="soft">'
       || format('What the search engines report of %s. They are some days late.</p>',
                 pg_temp.period(:'search_first', :'last'))
       || coalesce(string_agg(
              format('<h3 class="engine">%s, up to %s</h3><ul class="tiles">', pg_temp.html(initcap(engine)),
                     pg_temp.period(newest, newest))
              || pg_temp.tile('Clicks', pg_temp.num(clicks), pg_temp.since(clicks, clicks_before, 'count'))
              || pg_temp.tile('Shown', pg_temp.num(shown), pg_temp.since(shown, shown_before, 'count'))
              || pg_temp.tile('Click rate', pg_temp.percent(clicks, shown),
                              pg_temp.since(clicks::numeric / nullif(shown, 0),
                                            clicks_before::numeric / nullif(shown_before, 0), 'rate'))
              || pg_temp.tile('Average position', pg_temp.show(place, 'place'),
                              pg_temp.since(place, place_before, 'place'))
              || '</ul>', E'\n' ORDER BY engine)
              || '<div class="lists">' || (SELECT html FROM lists WHERE dim = 'query') || '</div>',
              '<p class="none">No figures (import them with vesk-admin import-gsc).</p>')
       || '</section>'
FROM engine;

-- All requests

SELECT '<section><h2>All requests</h2><ul class="tiles">'
       || string_agg(pg_temp.tile(name, pg_temp.num(everyone), pg_temp.since(everyone, everyone_before, kind),
                                  meaning), E'\n' ORDER BY n)
       || '</ul><div class="lists two">'
       || (SELECT string_agg(html, '' ORDER BY dim) FROM lists WHERE dim IN ('bot', 'notfound'))
       || '</div></section></main>'
FROM figure
JOIN unnest(ARRAY['Requests', 'By crawlers', 'Unverified', 'Scanners'],
            ARRAY['of all kinds', 'by programs that say so', 'browsers that showed no sign of a person',
                  'visitors that looked for weak spots'])
     WITH ORDINALITY AS shown (name, meaning, n) USING (name);

-- Foot

SELECT format($html$<footer>
<h2>How to read this</h2>
<p>All figures come from the web server’s log. A visitor is one address with one browser on one day.
A visit is a run of requests without a pause of more than half an hour; with one page view it is a bounce.</p>
<p>People loaded style sheets, scripts or fonts, came from a search, a link or a campaign, or reported a time
on page. Unverified browsers did nothing of that: many are programs, some are people who came directly. %s</p>
<p>Changes are against the period before, in percent of it, and of rates in percentage points (pt). × is how
many times as much; what is new was not there.</p>%s
</footer>
</body>
</html>$html$,
    CASE :'scope' WHEN 'people' THEN 'The lists show people.'
                  ELSE 'The lists show both; the large figures and dark bars are people.' END,
    CASE WHEN EXISTS (SELECT FROM line WHERE dim = 'country' AND key <> '')
         THEN E'\n<p>Countries: IP data by DB-IP, CC BY 4.0.</p>' ELSE '' END);
