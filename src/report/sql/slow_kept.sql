-- Paths that were asked for five times or more, with the histograms of all their days, as durations.sql
-- describes them.
WITH {relations}
SELECT key AS path, sum(v1)::float8 AS requests, max(v2)::float8 AS longest,
       string_agg(detail, ',') AS histograms
FROM ({lines}) AS l
WHERE key IS NOT NULL
GROUP BY key
HAVING sum(v1) >= 5
