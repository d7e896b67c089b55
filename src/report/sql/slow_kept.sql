-- The slowest paths, from the histograms that durations.sql describes: a percentile is the middle of its
-- bucket, by ratio, and so at most 2.5 % off.
WITH {relations}, path AS (
    SELECT key AS path, sum(v1) AS requests, max(v2) AS longest,
           CAST('{' || string_agg(detail, ',') || '}' AS bigint[]) AS histogram
    FROM ({lines}) AS l
    WHERE key IS NOT NULL
    GROUP BY key
    HAVING sum(v1) >= 5
), slowness AS (
    SELECT path, requests, longest, CASE WHEN most > 0 THEN round(1.05::float8 ^ (most - 0.5)) ELSE 0 END AS most,
           CASE WHEN median > 0 THEN round(1.05::float8 ^ (median - 0.5)) ELSE 0 END AS median
    FROM path, LATERAL (
        SELECT min(bucket) FILTER (WHERE 100 * done >= 95 * requests),
               min(bucket) FILTER (WHERE 2 * done >= requests)
        FROM (SELECT bucket, sum(sum(n)) OVER (ORDER BY bucket) AS done
              FROM (SELECT number % 512 AS bucket, number / 512 AS n FROM unnest(histogram) AS number) AS b
              GROUP BY bucket) AS d
    ) AS p (most, median)
)
SELECT 'slow' AS list, path AS key, '' AS detail, least(most, longest)::float8 AS v1,
       least(median, longest)::float8 AS v2, longest::float8 AS v3, requests::float8 AS v4,
       NULL::float8 AS before, count(*) OVER () AS total, 0 AS summed_up, NULL::float8 AS whole
FROM slowness
ORDER BY v1 DESC, requests DESC, path COLLATE "C"
LIMIT :rows
