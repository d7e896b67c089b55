-- Visitor analytics: settings, sites, followed logs, hits and the countries of addresses.

-- Settings of the whole suite, as text.
CREATE TABLE vesk.settings (
    key   text PRIMARY KEY,
    value text NOT NULL
);

-- Every installation draws its own secret. It salts the visitor hashes, so that they
-- cannot be traced back to addresses without this row.
INSERT INTO vesk.settings (key, value)
VALUES ('visitor_secret',
        encode(sha256(convert_to(gen_random_uuid()::text || gen_random_uuid()::text, 'UTF8')),
               'hex'));

-- Websites whose visitors are counted. The host is in lower case.
CREATE TABLE vesk.sites (
    id         integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    host       text NOT NULL UNIQUE,
    name       text NOT NULL,
    created_at timestamptz NOT NULL DEFAULT now()
);

-- Access logs that the collector follows. Inode and offset let it go on where it stopped
-- and tell a rotated file from a grown one.
CREATE TABLE vesk.log_sources (
    id          integer GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    site_id     integer NOT NULL REFERENCES vesk.sites ON DELETE CASCADE,
    path        text NOT NULL UNIQUE,
    inode       bigint,
    read_offset bigint NOT NULL DEFAULT 0,
    updated_at  timestamptz
);

-- Numbers of visits, unique across all sites.
CREATE SEQUENCE vesk.session_seq;

-- One row per request of an access log.
CREATE TABLE vesk.hits (
    id           bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    site_id      integer NOT NULL REFERENCES vesk.sites ON DELETE CASCADE,
    at           timestamptz NOT NULL,
    method       text NOT NULL,      -- BEACON: a page reported how long it was visible
    path         text NOT NULL,
    status       smallint NOT NULL,
    bytes        bigint,
    is_page      boolean NOT NULL,   -- not an asset, a feed, an API or administration call
    ip           inet,               -- for maintainers only, never shown to customers
    visitor      bytea NOT NULL,     -- hash of site, address and user agent, salted by the day
    session_id   bigint NOT NULL,    -- visit: requests of a visitor, at most half an hour apart
    country      char(2),            -- ISO 3166-1 alpha-2
    source_kind  text NOT NULL,      -- search, ai, social, email, campaign, referral,
                                     -- internal or direct
    source       text,               -- name of the engine or network, or the referring host
    referrer     text,
    search_terms text,
    device       text,               -- desktop, mobile, tablet
    browser      text,
    os           text,
    bot          text                -- name of the crawler, NULL for people
);
CREATE INDEX hits_site_at ON vesk.hits (site_id, at);
CREATE INDEX hits_session ON vesk.hits (session_id);
CREATE INDEX hits_visitor ON vesk.hits (visitor);

-- Countries of IPv4 and IPv6 ranges, both ends included: DB-IP Lite, licensed under CC BY 4.0.
-- geoip-update replaces the whole table.
CREATE TABLE vesk.geo_country (
    ip_from inet PRIMARY KEY,
    ip_to   inet NOT NULL,
    country char(2) NOT NULL
);
