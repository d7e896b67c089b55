-- The slowest paths, where the log has durations.
WITH path AS (
    SELECT path, array_agg(response_us) AS durations
    FROM vesk.hits
    WHERE site_id = :site AND at >= CAST(:first AS date)::timestamptz
          AND at < (CAST(:last AS date) + 1)::timestamptz
          AND method <> 'BEACON' AND response_us IS NOT NULL
    GROUP BY path
    HAVING count(*) >= 5
), timed AS (
    SELECT path, cardinality(durations) AS requests, parts[2] AS most, parts[1] AS median, longest
    FROM path, LATERAL (SELECT percentile_disc(ARRAY[0.5, 0.95]) WITHIN GROUP (ORDER BY us), max(us)
                        FROM unnest(durations) AS us) AS p (parts, longest)
)
SELECT 'slow' AS list, path AS key, '' AS detail, most::float8 AS v1, median::float8 AS v2,
       longest::float8 AS v3, requests::float8 AS v4, NULL::float8 AS before,
       count(*) OVER () AS total, 0 AS summed_up,
       NULL::float8 AS whole
FROM timed
ORDER BY most DESC, requests DESC, path COLLATE "C"
LIMIT :rows
