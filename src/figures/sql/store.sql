-- Stores what the requests of a day tell, of both scopes: of each list its first lines, and one without
-- a key for the others, whose third number says how many those are. Nothing is stored, and what is stays,
-- unless the requests are as many as the report of the day counts.
WITH {requests}, {durations}, ranked AS (
    SELECT *, row_number() OVER lines AS rank,
           sum(octet_length(key) + octet_length(detail)) OVER lines
               <= CASE list WHEN 'slow' THEN 200000 WHEN 'link' THEN 80000 ELSE 50000 END AS fits
    FROM (SELECT * FROM line UNION ALL SELECT * FROM timed) AS l
    WINDOW lines AS (PARTITION BY list, scope
                     ORDER BY v1 DESC, v2 DESC, key COLLATE "C", detail COLLATE "C"
                     ROWS UNBOUNDED PRECEDING)
), kept AS (
    SELECT list, scope, key, detail, v1, v2, v3, rank FROM ranked WHERE rank <= 1000 AND fits
    UNION ALL
    SELECT list, scope, NULL, NULL, sum(v1), sum(v2), count(*), max(rank)
    FROM ranked WHERE rank > 1000 OR NOT fits
    GROUP BY list, scope
), made AS MATERIALIZED (
    SELECT list, scope, array_agg(key ORDER BY rank) AS key, array_agg(detail ORDER BY rank) AS detail,
           array_agg(v1::bigint ORDER BY rank) AS n1, array_agg(v2::bigint ORDER BY rank) AS n2,
           array_agg(v3::bigint ORDER BY rank) AS n3
    FROM kept
    WHERE (SELECT v1 FROM line WHERE list = 'day')
          = (SELECT n1 FROM vesk.rollup
             WHERE site_id = :site AND day = :day
                   AND (scope, dim, key) = ('all', 'totals', 'requests'))
    GROUP BY list, scope
), outdated AS (
    DELETE FROM vesk_nightly.figures AS f
    WHERE site_id = :site AND day = :day AND EXISTS (SELECT FROM made)
          AND NOT EXISTS (SELECT FROM made WHERE (made.list, made.scope) = (f.list, f.scope))
)
INSERT INTO vesk_nightly.figures (site_id, day, list, scope, key, detail, n1, n2, n3)
SELECT CAST(:site AS integer), CAST(:day AS date), list, scope, key, detail, n1, n2, n3
FROM made
ON CONFLICT (site_id, day, list, scope) DO UPDATE
SET (key, detail, n1, n2, n3)
    = (excluded.key, excluded.detail, excluded.n1, excluded.n2, excluded.n3)
