-- Hosting accounts. Each is a Linux user with a website, a PHP-FPM pool and a PostgreSQL role
-- and database, all of the same name.
CREATE TABLE vesk.accounts (
    id           integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    username     text NOT NULL UNIQUE CHECK (username ~ '^[a-z][a-z0-9]{2,15}$'),
    domain       text NOT NULL UNIQUE,
    site_id      integer REFERENCES vesk.sites ON DELETE SET NULL,   -- its visitor analytics
    status       text NOT NULL DEFAULT 'active' CHECK (status IN ('active', 'suspended')),
    php_version  text,
    notes        text NOT NULL DEFAULT '',
    created_at   timestamptz NOT NULL DEFAULT now(),
    suspended_at timestamptz
);
