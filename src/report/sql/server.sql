-- What days tell beyond their report lines: in braces stand relations of their requests and of the figures
-- that are kept of them, and the lines of both. A line without a key stands for as many as its third value
-- says.
WITH {relations}, summed AS MATERIALIZED (
    SELECT list, key, detail, sum(v1) AS v1, sum(v2) AS v2, sum(v3) AS v3
    FROM ({lines}) AS l
    GROUP BY list, key, detail
), link AS (
    SELECT DISTINCT ON (key) key, detail
    FROM summed
    WHERE list = 'link' AND key IS NOT NULL
    ORDER BY key, v1 DESC, detail
), listed (list, key, detail, v1, v2, v3, place) AS (
    SELECT list, s.key, CASE list WHEN 'missing' THEN link.detail ELSE s.detail END, v1, v2, v3,
           CASE WHEN list = 'day' THEN s.key::date - date '2000-01-01'
                WHEN list IN ('status', 'length', 'depth') THEN s.key::integer
                ELSE 0 END
    FROM summed AS s LEFT JOIN link ON list = 'missing' AND link.key = s.key
    WHERE list <> 'link'
    UNION ALL
    SELECT 'class', class || 'xx', '', sum(v1), sum(v2), NULL, class
    FROM (SELECT key::integer / 100 AS class, v1, v2 FROM summed WHERE list = 'status') AS s
    GROUP BY class
), ranked AS (
    SELECT *, row_number() OVER (PARTITION BY list
                                 ORDER BY key IS NULL, place, v1 DESC, v2 DESC, key COLLATE "C", detail)
               AS rank,
           count(key) OVER (PARTITION BY list) AS known,
           coalesce(sum(v3) FILTER (WHERE key IS NULL) OVER (PARTITION BY list), 0) AS summed_up,
           sum(v1) OVER (PARTITION BY list) AS whole
    FROM listed
)
SELECT list, key, detail, v1::float8, v2::float8, v3::float8, NULL::float8 AS v4,
       NULL::float8 AS before, known + summed_up AS total, summed_up, whole::float8
FROM ranked
WHERE key IS NOT NULL AND (rank <= :rows OR list IN ('day', 'campaign_name', 'people_by'))
ORDER BY list, rank
