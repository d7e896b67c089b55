-- The totals of each search engine in a period, next to those of the one before it when that has
-- about as many days.
WITH sums AS (
    SELECT engine, day >= :from AS now, count(*) AS days, max(day) AS newest,
           sum(clicks)::float8 AS clicks, sum(impressions)::float8 AS impressions,
           sum(position::float8 * impressions) / nullif(sum(impressions), 0) AS position
    FROM vesk.search_days
    WHERE site_id = :site AND day BETWEEN :before_from AND :last
    GROUP BY engine, now
)
SELECT n.engine, n.newest, n.days, n.clicks, b.clicks AS clicks_before,
       n.impressions, b.impressions AS impressions_before,
       n.clicks / nullif(n.impressions, 0) AS click_rate,
       b.clicks / nullif(b.impressions, 0) AS click_rate_before,
       n.position, b.position AS position_before
FROM sums AS n
LEFT JOIN sums AS b ON b.engine = n.engine AND NOT b.now
                    AND b.days BETWEEN 0.9 * n.days AND 1.1 * n.days
WHERE n.now
ORDER BY n.engine
