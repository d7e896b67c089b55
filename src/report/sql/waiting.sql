-- Days to be rolled up.
SELECT site_id, day FROM vesk_nightly.days ORDER BY site_id, day
