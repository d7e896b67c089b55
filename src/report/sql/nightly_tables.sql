-- Which tables of the nightly imports there are, and whether they may be read.
SELECT relname AS name,
       has_schema_privilege(n.oid, 'USAGE') AND has_table_privilege(c.oid, 'SELECT') AS may_read
FROM pg_class AS c JOIN pg_namespace AS n ON n.oid = c.relnamespace
WHERE nspname = 'vesk_nightly' AND relname IN ('days', 'runs')
