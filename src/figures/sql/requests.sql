-- What the single requests tell, as the relations of a statement; the last one, line, has all of it but
-- durations. What stands in braces are the rules of vesk.rollup_day, taken from its script, which
-- requests these are, and their day. Scanners, crawlers, people and unverified browsers are told apart,
-- and visits begin and end, as there.
hit AS NOT MATERIALIZED (
    SELECT {day} AS day, method <> 'BEACON' AS is_request, *
    FROM vesk.hits
    WHERE site_id = :site AND ({when})
), file AS MATERIALIZED (
    SELECT path, status, is_page, is_request, count(*) AS requests, sum(bytes) AS bytes
    FROM hit
    GROUP BY path, status, is_page, is_request
), answer AS (
    SELECT * FROM file WHERE is_request
), known AS MATERIALIZED (
    -- The offset keeps the patterns from being applied to each single request.
    SELECT *
    FROM (SELECT path, path COLLATE "C" ~* {probe} AS probe, path COLLATE "C" ~* {asset} AS asset
          FROM (SELECT DISTINCT path FROM file OFFSET 0) AS p) AS k
    WHERE probe OR asset
), lost AS MATERIALIZED (
    SELECT path, day, visitor, status, referrer FROM hit WHERE is_request AND status IN (404, 410)
), gone AS MATERIALIZED (
    SELECT path, day, visitor, count(*) AS requests, bool_or(status = 404) AS not_found
    FROM lost
    GROUP BY path, day, visitor
), sweeper AS (
    SELECT day, visitor FROM gone WHERE not_found GROUP BY day, visitor HAVING count(*) >= {sweep}
), act AS (
    SELECT day, visitor, count(*) FILTER (WHERE is_request) AS requests,
           sum(bytes) FILTER (WHERE is_request) AS bytes,
           bool_or(probe IS TRUE) AS probed,
           bool_or(bot IS NULL) AS browser,
           bool_or(bot IS NULL AND NOT is_request) AS timed,
           bool_or(bot IS NULL AND NOT is_page AND status IN (200, 304) AND asset IS TRUE) AS styled,
           bool_or(bot IS NULL AND is_page AND source_kind NOT IN ('direct', 'internal')) AS led,
           bool_or(is_page AND method = 'GET' AND status BETWEEN 200 AND 299) AS viewed
    FROM hit LEFT JOIN known USING (path)
    GROUP BY day, visitor
), visitor AS MATERIALIZED (
    SELECT day, visitor, requests, bytes, viewed,
           CASE WHEN timed THEN 'beacon' WHEN styled THEN 'style_sheet' ELSE 'referrer' END AS sign,
           CASE WHEN probed OR sweeper.visitor IS NOT NULL THEN 'scanners'
                WHEN NOT browser THEN 'crawlers'
                WHEN timed OR styled OR led THEN 'people'
                ELSE 'unverified' END AS kind
    FROM act LEFT JOIN sweeper USING (day, visitor)
), visit AS MATERIALIZED (
    -- Should a person and an unverified browser share a visit number, scope "all" has one visit of both.
    SELECT DISTINCT ON (day, session_id, scope)
           scope, path AS entry, last_value(path) OVER visit AS exit, count(*) OVER visit AS views,
           extract(epoch FROM max(at) OVER visit - at) AS seconds,
           CASE source_kind WHEN 'campaign' THEN search_terms END AS campaign
    FROM hit
        JOIN visitor USING (day, visitor)
        JOIN (VALUES ('people' COLLATE "C", 'people'), ('all', 'people'), ('all', 'unverified'))
            AS s (scope, kind) USING (kind)
    WHERE is_page AND method = 'GET' AND status BETWEEN 200 AND 299
          AND scope = ANY (CAST(:scopes AS text[]))
    WINDOW visit AS (PARTITION BY day, session_id, scope ORDER BY at, id
                     ROWS BETWEEN UNBOUNDED PRECEDING AND UNBOUNDED FOLLOWING)
    ORDER BY day, session_id, scope, at, id
), line (list, scope, key, detail, v1, v2, v3) AS (
    SELECT 'day', '', day::text, '', sum(requests), sum(bytes), NULL::bigint
    FROM visitor GROUP BY day
    UNION ALL
    SELECT 'client', '', kind, '', sum(requests), sum(bytes), count(*) FROM visitor GROUP BY kind
    UNION ALL
    SELECT 'people_by', '', sign, '', count(*), NULL, NULL
    FROM visitor WHERE kind = 'people' AND viewed GROUP BY sign
    UNION ALL
    SELECT 'campaign_name', scope, campaign, '', count(*), NULL, NULL
    FROM visit WHERE campaign <> '' GROUP BY scope, campaign
    UNION ALL
    SELECT 'address', '', host(ip), '', count(*), sum(hit.bytes), NULL
    FROM hit JOIN visitor USING (day, visitor)
    WHERE CAST(:addresses AS boolean) AND is_request AND kind = 'scanners' AND ip IS NOT NULL
    GROUP BY ip
    UNION ALL
    SELECT 'status', '', status::text, '', sum(requests), sum(bytes), NULL
    FROM answer GROUP BY status
    UNION ALL
    SELECT 'missing', '', path, '', sum(gone.requests),
           coalesce(sum(gone.requests) FILTER (WHERE kind = 'scanners'), 0), NULL
    FROM gone JOIN visitor USING (day, visitor)
    GROUP BY path
    UNION ALL
    SELECT 'link', '', path, referrer, count(*), NULL, NULL
    FROM lost WHERE referrer IS NOT NULL GROUP BY path, referrer
    UNION ALL
    SELECT 'error', '', path, status::text, sum(requests), NULL, NULL
    FROM answer WHERE status >= 500 GROUP BY path, status
    UNION ALL
    SELECT 'download', '', path, '', sum(bytes), sum(requests), NULL
    FROM answer
    WHERE NOT is_page AND status IN (200, 206) AND path ~* '\.[a-z0-9]+$'
          AND path !~* ('\.(css|m?js|map|json|xml|xhtml|rss|atom|webmanifest|png|jpe?g|gif|svg|webp|avif'
                        '|ico|bmp|woff2?|ttf|otf|eot)$|/(robots|ads|humans|security)\.txt$')
    GROUP BY path
    UNION ALL
    SELECT 'type', '', CASE WHEN is_page THEN 'pages'
                            ELSE coalesce(lower(substring(path FROM '\.([A-Za-z0-9]{1,8})$')), 'other') END
           AS type, '', sum(bytes), sum(requests), NULL
    FROM answer GROUP BY type
    UNION ALL
    SELECT 'entry', scope, entry, '', count(*), NULL, NULL FROM visit GROUP BY scope, entry
    UNION ALL
    SELECT 'exit', scope, exit, '', count(*), NULL, NULL FROM visit GROUP BY scope, exit
    UNION ALL
    SELECT 'length', scope, place::text, '', count(*), NULL, NULL
    FROM (SELECT scope, width_bucket(seconds, '{0.000001,10,30,60,180,600,1800}') AS place
          FROM visit) AS v
    GROUP BY scope, place
    UNION ALL
    SELECT 'depth', scope, place::text, '', count(*), NULL, NULL
    FROM (SELECT scope, width_bucket(views, '{2,3,4,5,6,11,21}') AS place FROM visit) AS v
    GROUP BY scope, place
)
