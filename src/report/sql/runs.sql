-- How the last nightly import of each site ended.
SELECT site_id, at::date AS day, failing_since::date AS failing_since, complaint
FROM vesk_nightly.runs
