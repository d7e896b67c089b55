-- What people searched for, as search engines report it.
SELECT 'query' AS list, query AS key, '' AS detail,
       sum(clicks)::float8 AS v1, sum(impressions)::float8 AS v2,
       sum(clicks)::float8 / nullif(sum(impressions), 0) AS v3,
       sum(position::float8 * impressions) / nullif(sum(impressions), 0) AS v4,
       NULL::float8 AS before, count(*) OVER () AS total, 0 AS summed_up,
       NULL::float8 AS whole
FROM vesk.search_rows
WHERE site_id = :site AND day BETWEEN :from AND :last
GROUP BY query
ORDER BY v1 DESC, v2 DESC, query COLLATE "C"
LIMIT :rows
