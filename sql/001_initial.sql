-- Panel logins, their browser sessions, the audit trail and the host's health samples.

-- Panel logins. A name is stored as entered, but unique without regard to case.
CREATE TABLE vesk.users (
    id            integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    username      text NOT NULL CHECK (username ~ '^[A-Za-z0-9._-]{1,64}$'),
    password_hash text NOT NULL,
    role          text NOT NULL CHECK (role IN ('maintainer', 'customer')),
    disabled      boolean NOT NULL DEFAULT false,
    created_at    timestamptz NOT NULL DEFAULT now(),
    last_login_at timestamptz
);
CREATE UNIQUE INDEX users_username_ci ON vesk.users (lower(username));

-- Login sessions of the panel. The token itself exists only in the browser's cookie;
-- the SHA-256 kept here is of no use to somebody who reads the table.
CREATE TABLE vesk.sessions (
    token_hash bytea PRIMARY KEY,
    user_id    integer NOT NULL REFERENCES vesk.users ON DELETE CASCADE,
    created_at timestamptz NOT NULL DEFAULT now(),
    expires_at timestamptz NOT NULL,
    ip         inet,
    user_agent text
);
CREATE INDEX sessions_expires ON vesk.sessions (expires_at);

-- Who did what in the panel. Entries outlive the user they speak of.
CREATE TABLE vesk.audit_log (
    id      bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    at      timestamptz NOT NULL DEFAULT now(),
    user_id integer REFERENCES vesk.users ON DELETE SET NULL,
    action  text NOT NULL,
    detail  jsonb,
    ip      inet
);
CREATE INDEX audit_log_at ON vesk.audit_log (at);

-- Health of the server, one row per sampling time. Memory in KiB, disk in bytes.
CREATE TABLE vesk.host_samples (
    at               timestamptz PRIMARY KEY DEFAULT now(),
    load1            real,
    load5            real,
    load15           real,
    mem_total_kb     bigint,
    mem_avail_kb     bigint,
    disk_total_bytes bigint,
    disk_avail_bytes bigint
);
