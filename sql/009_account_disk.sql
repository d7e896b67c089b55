-- Disk use of an account as the collector measures it. A limit of NULL is no limit.
ALTER TABLE vesk.accounts
    ADD COLUMN disk_limit_mb   integer CHECK (disk_limit_mb > 0),
    ADD COLUMN disk_used_bytes bigint,
    ADD COLUMN disk_checked_at timestamptz;
