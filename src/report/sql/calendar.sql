-- The newest two days of a site with requests, and what may be read of it.
WITH newest AS (
    SELECT day
    FROM vesk.rollup
    WHERE site_id = :site AND scope = 'people' AND dim = 'totals' AND key = 'requests' AND n1 > 0
    ORDER BY day DESC
    LIMIT 2
)
SELECT current_date AS today,
       (SELECT created_at::date FROM vesk.sites WHERE id = :site) AS added, max(day) AS newest, min(day) AS last_complete,
       has_table_privilege('vesk.hits', 'SELECT') AS may_read_hits,
       has_table_privilege('vesk.search_days', 'SELECT')
           AND has_table_privilege('vesk.search_rows', 'SELECT') AS may_read_search,
       EXISTS (SELECT FROM pg_class AS c JOIN pg_namespace AS n ON n.oid = c.relnamespace
               WHERE nspname = 'vesk_nightly' AND relname = 'figures'
                     AND has_schema_privilege(n.oid, 'USAGE')
                     AND has_table_privilege(c.oid, 'SELECT')) AS may_read_figures
FROM newest
