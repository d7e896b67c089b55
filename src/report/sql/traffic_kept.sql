-- What was sent on each day, and how many requests failed on the server, from the figures that are kept.
SELECT day, max(v1) FILTER (WHERE list = 'day') AS requests,
       coalesce(max(v2) FILTER (WHERE list = 'day'), 0)::float8 AS bytes,
       coalesce(sum(v1) FILTER (WHERE CASE list WHEN 'status' THEN key::integer END >= 500), 0) AS errors
FROM (SELECT day, list, unnest(key) AS key, unnest(n1) AS v1, unnest(n2) AS v2
      FROM vesk_nightly.figures
      WHERE site_id = :site AND day = ANY (CAST(:kept AS date[])) AND list IN ('day', 'status')) AS l
GROUP BY day
