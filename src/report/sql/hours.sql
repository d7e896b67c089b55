-- Page views and visitors of each hour, summed up over the period.
SELECT to_char(hour, 'FM00') AS hour,
       coalesce(sum(n2) FILTER (WHERE scope = 'people'), 0)::float8 AS people_views,
       coalesce(sum(n2) FILTER (WHERE scope = 'all'), 0)::float8 AS all_views,
       coalesce(sum(n1) FILTER (WHERE scope = 'people'), 0)::float8 AS people
FROM generate_series(0, 23) AS hour
LEFT JOIN vesk.rollup ON site_id = :site AND day BETWEEN :first AND :last AND dim = 'hour'
                      AND key = to_char(hour, 'FM00')
GROUP BY hour
ORDER BY hour
