#include "nightly/LedgerTables.h"

#include "common/Db.h"

namespace vesk::nightly {

namespace {

constexpr auto kFirst = R"(
CREATE SCHEMA IF NOT EXISTS vesk_nightly;
CREATE TABLE vesk_nightly.logs (
    id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
    site_id integer NOT NULL REFERENCES vesk.sites (id) ON DELETE CASCADE,
    first_line text NOT NULL,
    content text NOT NULL,
    bytes bigint NOT NULL,
    name text NOT NULL,
    lines bigint,
    stored bigint,
    at timestamptz NOT NULL DEFAULT now());
CREATE INDEX ON vesk_nightly.logs (site_id, first_line);
CREATE TABLE vesk_nightly.days (
    site_id integer NOT NULL REFERENCES vesk.sites (id) ON DELETE CASCADE,
    day date NOT NULL,
    PRIMARY KEY (site_id, day));)";

/// The first version had entries for logs in a strange format, which are looked at every night now.
constexpr auto kSecond = R"(
DELETE FROM vesk_nightly.logs WHERE lines > 0 AND stored = 0;
ALTER TABLE vesk_nightly.logs
    ADD COLUMN first_at timestamptz,
    ADD COLUMN last_at timestamptz,
    ADD COLUMN beginnings bytea NOT NULL DEFAULT '',
    ADD COLUMN seen timestamptz NOT NULL DEFAULT now();
CREATE TABLE vesk_nightly.files (
    site_id integer NOT NULL REFERENCES vesk.sites (id) ON DELETE CASCADE,
    device bigint NOT NULL,
    inode bigint NOT NULL,
    modified bigint NOT NULL,
    size bigint NOT NULL,
    log_id bigint NOT NULL REFERENCES vesk_nightly.logs (id) ON DELETE CASCADE,
    whole boolean NOT NULL,
    settled boolean NOT NULL,
    PRIMARY KEY (site_id, device, inode));
CREATE TABLE vesk_nightly.young (
    site_id integer NOT NULL REFERENCES vesk.sites (id) ON DELETE CASCADE,
    content text NOT NULL,
    runs integer NOT NULL,
    PRIMARY KEY (site_id, content));)";

/// A row is a list of a day. Its lines are in the arrays, the line of number i in the elements i.
/// The scope is people or all of lists of visits, and empty of others.
constexpr auto kThird = R"(
CREATE TABLE vesk_nightly.figures (
    site_id integer NOT NULL REFERENCES vesk.sites (id) ON DELETE CASCADE,
    day date NOT NULL,
    list text NOT NULL,
    scope text NOT NULL,
    key text[] NOT NULL,
    detail text[] NOT NULL,
    n1 bigint[] NOT NULL,
    n2 bigint[] NOT NULL,
    n3 bigint[] NOT NULL,
    PRIMARY KEY (site_id, day, list, scope));)";

constexpr auto kCurrent = R"(
CREATE TABLE vesk_nightly.deleted_days (
    site_id integer NOT NULL REFERENCES vesk.sites (id) ON DELETE CASCADE,
    day date NOT NULL,
    PRIMARY KEY (site_id, day));)";

bool runScript(const char *sql)
{
    QString error;
    const bool done = db::execScript(QString::fromLatin1(sql), &error);
    if (!done)
        db::reportFailure(error);
    return done;
}

} // namespace

std::optional<LedgerVersion> ledgerVersion()
{
    // Read from the catalogue, for what to_regclass() knows may be older than a lock just waited
    // for.
    auto q = db::run(QStringLiteral(
        "SELECT coalesce(bool_or(relname = 'days'), false),"
        " coalesce(bool_or(relname = 'young'), false),"
        " coalesce(bool_or(relname = 'figures'), false),"
        " coalesce(bool_or(relname = 'deleted_days'), false) FROM pg_catalog.pg_class c"
        " JOIN pg_catalog.pg_namespace n ON n.oid = relnamespace WHERE nspname = 'vesk_nightly'"));
    if (!q || !q->next())
        return {};
    if (q->value(3).toBool())
        return LedgerVersion::Current;
    if (q->value(2).toBool())
        return LedgerVersion::Third;
    if (q->value(1).toBool())
        return LedgerVersion::Second;
    return q->value(0).toBool() ? LedgerVersion::First : LedgerVersion::None;
}

bool lockLedgerTables()
{
    return db::run(
        QStringLiteral("SELECT pg_advisory_xact_lock(hashtextextended('vesk nightly', 0))"))
        .has_value();
}

bool createLedgerTables()
{
    auto version = ledgerVersion();
    if (version == LedgerVersion::Current)
        return true;
    db::Transaction transaction;
    if (!transaction.isOpen() || !lockLedgerTables())
        return false;
    version = ledgerVersion();
    return version && (version > LedgerVersion::None || runScript(kFirst))
        && (version > LedgerVersion::First || runScript(kSecond))
        && (version > LedgerVersion::Second || runScript(kThird))
        && (version > LedgerVersion::Third || runScript(kCurrent)) && transaction.commit();
}

} // namespace vesk::nightly
