-- PostgreSQL cannot limit the size of a database. The collector measures each account's
-- database and makes it read-only by default while it is over the limit. NULL is no limit.
ALTER TABLE vesk.accounts
    ADD COLUMN db_limit_mb   integer CHECK (db_limit_mb > 0),
    ADD COLUMN db_used_bytes bigint,
    ADD COLUMN db_readonly   boolean NOT NULL DEFAULT false;
