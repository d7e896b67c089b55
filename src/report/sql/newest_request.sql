-- When the newest request that is still there was made.
SELECT max(at)::date AS day, max(at)::time AS time
FROM vesk.hits
WHERE site_id = :site
