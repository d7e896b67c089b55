-- Report lines of a period and of the one before it, summed up and ranked. Search terms and names of
-- campaigns share a dimension; the campaigns, as the requests tell them, split it.
WITH campaign AS (
    SELECT key FROM json_array_elements_text(:campaigns) AS key
), line AS (
    SELECT CASE WHEN dim = 'terms' AND :split
                THEN CASE WHEN campaign.key IS NULL THEN 'term' ELSE 'campaign' END
                ELSE dim END AS list,
           CASE WHEN dim = 'terms' THEN regexp_replace(r.key, '([^\s+])\+(?=[^\s+])', '\1 ', 'g')
                ELSE r.key END AS key,
           day, n1, n2, n3, x
    FROM vesk.rollup AS r LEFT JOIN campaign ON dim = 'terms' AND campaign.key = r.key
    WHERE site_id = :site AND scope = :scope AND day BETWEEN :before AND :last
          AND dim NOT IN ('totals', 'hour')
), every_line AS (
    SELECT * FROM line
    UNION ALL
    SELECT 'kind', split_part(key, chr(9), 1), day, n1, n2, n3, x FROM line WHERE list = 'source'
), summed AS (
    SELECT list, key,
           sum(n1) FILTER (WHERE day >= :first) AS n1,
           sum(n2) FILTER (WHERE day >= :first) AS n2,
           sum(n3) FILTER (WHERE day >= :first) AS n3,
           sum(x) FILTER (WHERE day >= :first) AS x,
           coalesce(sum(n1) FILTER (WHERE day < :first), 0) AS before
    FROM every_line
    GROUP BY list, key
), ranked AS (
    SELECT *, row_number() OVER (PARTITION BY list ORDER BY n1 DESC, n2 DESC, key COLLATE "C") AS rank,
           count(*) OVER (PARTITION BY list) AS total,
           sum(n1) OVER (PARTITION BY list) AS whole
    FROM summed
    WHERE n1 IS NOT NULL
)
SELECT list, key, '' AS detail, n1::float8 AS v1, n2::float8 AS v2,
       CASE WHEN list = 'page' THEN x / nullif(n3, 0) END AS v3, NULL::float8 AS v4,
       before::float8, total, 0 AS summed_up, whole::float8
FROM ranked
WHERE rank <= :rows
ORDER BY list, rank
