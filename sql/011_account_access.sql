-- Which customers may manage which accounts. Maintainers see every account and need no row.
CREATE TABLE vesk.account_access (
    user_id    integer NOT NULL REFERENCES vesk.users ON DELETE CASCADE,
    account_id integer NOT NULL REFERENCES vesk.accounts ON DELETE CASCADE,
    PRIMARY KEY (user_id, account_id)
);
CREATE INDEX account_access_account ON vesk.account_access (account_id);
