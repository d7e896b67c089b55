-- The first days whose figures are missing or do not agree with their report, but all of whose requests
-- are there. The offset has the requests counted of those days alone, and of no more than are needed.
SELECT day
FROM (SELECT r.day, r.n1
      FROM vesk.rollup AS r
      WHERE r.site_id = :site AND (r.scope, r.dim, r.key) = ('all', 'totals', 'requests') AND r.n1 > 0
            AND NOT EXISTS (SELECT FROM vesk_nightly.figures AS f
                            WHERE f.site_id = r.site_id AND f.day = r.day AND f.list = 'day'
                                  AND f.n1[1] = r.n1)
      ORDER BY r.day
      OFFSET 0) AS lacking
WHERE n1 = (SELECT count(*) FROM vesk.hits
            WHERE site_id = :site AND at >= day::timestamptz AND at < (day + 1)::timestamptz
                  AND method <> 'BEACON')
LIMIT 100
