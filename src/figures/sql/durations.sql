-- How long the answers to each path took, after the relations of requests.sql. The detail of a line is a
-- histogram: numbers of 512 times the requests of a bucket, plus the bucket. Bucket 0 is for durations of
-- nothing, and each further one ends 5 % above its beginning; the first begins at a microsecond.
duration AS (
    SELECT path, bucket, count(*) AS requests, max(response_us) AS longest
    FROM (SELECT path, response_us,
                 CASE WHEN response_us < 1 THEN 0
                      ELSE 1 + floor(ln(response_us::float8) / ln(1.05::float8))::integer END AS bucket
          FROM hit
          WHERE is_request AND response_us IS NOT NULL) AS h
    GROUP BY path, bucket
), timed (list, scope, key, detail, v1, v2, v3) AS (
    SELECT 'slow', '', path, string_agg((512 * requests + bucket)::text, ',' ORDER BY bucket),
           sum(requests), max(longest), NULL::bigint
    FROM duration GROUP BY path
)
