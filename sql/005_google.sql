-- The suite's own connection to the search engines, through which the collector fetches
-- their figures every day.

-- The one signed-in account per engine.
CREATE TABLE vesk.engine_accounts (
    engine        text PRIMARY KEY,
    account_email text,
    refresh_token text NOT NULL,
    connected_at  timestamptz NOT NULL DEFAULT now(),
    last_sync_at  timestamptz,
    last_result   text   -- "ok" or the error of the last synchronisation
);

-- Which property of the engine a site is, matched by host name: "sc-domain:" and the host,
-- or the site's address with a slash at its end.
CREATE TABLE vesk.search_properties (
    site_id  integer NOT NULL REFERENCES vesk.sites ON DELETE CASCADE,
    engine   text NOT NULL,
    property text NOT NULL,
    PRIMARY KEY (site_id, engine)
);
