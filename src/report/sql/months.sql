-- The months that have reports.
SELECT DISTINCT date_trunc('month', day)::date AS month
FROM vesk.rollup
WHERE site_id = :site AND scope = 'people' AND dim = 'totals' AND key = 'requests' AND n1 > 0
ORDER BY month DESC
