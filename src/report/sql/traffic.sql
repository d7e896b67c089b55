-- What was sent on each day, and how many requests failed on the server.
SELECT at::date AS day, count(*) AS requests, coalesce(sum(bytes), 0)::float8 AS bytes,
       count(*) FILTER (WHERE status >= 500) AS errors
FROM vesk.hits
WHERE site_id = :site AND at >= CAST(:first AS date)::timestamptz
      AND at < (CAST(:last AS date) + 1)::timestamptz AND method <> 'BEACON'
GROUP BY at::date
