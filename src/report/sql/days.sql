-- The totals of each day.
SELECT day, scope,
       max(n1) FILTER (WHERE key = 'visitors') AS visitors,
       max(n1) FILTER (WHERE key = 'visits') AS visits,
       max(x) FILTER (WHERE key = 'visits') AS seconds,
       max(n1) FILTER (WHERE key = 'pageviews') AS pageviews,
       max(n1) FILTER (WHERE key = 'bounces') AS bounces,
       max(n1) FILTER (WHERE key = 'requests') AS requests,
       max(n1) FILTER (WHERE key = 'bot_requests') AS bot_requests,
       max(n1) FILTER (WHERE key = 'unverified') AS unverified,
       max(n1) FILTER (WHERE key = 'scanners') AS scanners
FROM vesk.rollup
WHERE site_id = :site AND day BETWEEN :from AND :last AND dim = 'totals'
GROUP BY day, scope
