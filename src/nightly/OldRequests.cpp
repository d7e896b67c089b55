#include "nightly/OldRequests.h"

#include "common/Db.h"
#include "common/Text.h"
#include "figures/Figures.h"

#include <QVariant>

namespace vesk::nightly {

namespace {

constexpr int kMostDays = 99999;

/// What is stored of a site from one day to another, as the roll-up cuts them.
constexpr QLatin1String kOfDays(
    "site_id = ? AND at >= ?::date::timestamptz AND at < (?::date + 1)::timestamptz");

/// Waits no longer than others that wait behind it can bear, nor until one of them takes itself for
/// the victim of a deadlock, but until an autovacuum has made room.
constexpr auto kBePatient
    = "SELECT set_config('lock_timeout', (setting::integer * 3 / 2)::text, true)"
      " FROM pg_settings WHERE name = 'deadlock_timeout';";

bool runQuietly(const QString &sql)
{
    QString error;
    return db::execScript(QLatin1String(kBePatient) + sql, &error);
}

} // namespace

std::optional<QList<OldDay>> OldRequests::days(const Days &days)
{
    auto q = db::run(
        QStringLiteral(
            "SELECT s.day, s.n, s.requests, r.n1,"
            " EXISTS (SELECT FROM vesk_nightly.days d WHERE (d.site_id, d.day) = (?, s.day)),"
            " EXISTS (SELECT FROM vesk_nightly.deleted_days d"
            " WHERE (d.site_id, d.day) = (?, s.day))"
            " FROM (SELECT at::date AS day, count(*) AS n,"
            " count(*) FILTER (WHERE method <> 'BEACON') AS requests FROM vesk.hits"
            " WHERE %1 GROUP BY 1) s LEFT JOIN vesk.rollup r"
            " ON (r.site_id, r.day, r.scope, r.dim, r.key)"
            " = (?, s.day, 'all', 'totals', 'requests') ORDER BY s.day")
            .arg(kOfDays),
        { m_siteId, m_siteId, m_siteId, days.first, days.last, m_siteId });
    const auto withFigures = figures::validDays(m_siteId, days.first, days.last);
    if (!q || !withFigures)
        return {};
    QList<OldDay> stored;
    while (q->next()) {
        OldDay day;
        day.day = q->value(0).toDate();
        day.rows = q->value(1).toLongLong();
        day.requests = q->value(2).toLongLong();
        if (!q->value(3).isNull())
            day.reported = q->value(3).toLongLong();
        day.isQueued = q->value(4).toBool();
        day.isBegun = q->value(5).toBool();
        day.hasFigures = withFigures->contains(day.day) || day.reported == 0;
        stored.append(day);
    }
    return stored;
}

bool OldRequests::begin(QDate day)
{
    return db::run(QStringLiteral("INSERT INTO vesk_nightly.deleted_days VALUES (?, ?)"
                                  " ON CONFLICT DO NOTHING"),
        { m_siteId, day })
        .has_value();
}

std::optional<qint64> OldRequests::remove(const OldDay &day)
{
    const QVariantList range { m_siteId, day.day, day.day };
    const auto q = db::run(QStringLiteral("DELETE FROM vesk.hits WHERE %1"
                                          " AND ? = (SELECT count(*) FROM vesk.hits WHERE %1)")
                               .arg(kOfDays),
        range + QVariantList { day.rows } + range);
    return q ? std::optional(qint64 { q->numRowsAffected() }) : std::nullopt;
}

std::optional<QStringList> OldRequests::partitions()
{
    auto q = db::run(
        QStringLiteral(
            "SELECT format('%I.%I', nspname, relname) FROM pg_inherits"
            " JOIN pg_class c ON c.oid = inhrelid JOIN pg_namespace n ON n.oid = relnamespace"
            " WHERE inhparent = 'vesk.hits'::regclass AND relkind = 'r'"
            " AND pg_get_partkeydef(inhparent) = 'RANGE (at)'"
            " AND pg_has_role(relowner, 'USAGE')"
            " AND substring(pg_get_expr(relpartbound, c.oid) FROM ' TO .''(.*)''')"
            "::timestamptz <= ?::date::timestamptz ORDER BY 1"),
        { m_border });
    if (!q)
        return {};
    QStringList names;
    while (q->next())
        names += q->value(0).toString();
    return names;
}

bool OldRequests::lock(const QString &partition)
{
    return runQuietly(QStringLiteral("LOCK TABLE %1 IN SHARE MODE").arg(partition));
}

std::optional<OldRequests::Share> OldRequests::share(const QString &partition)
{
    auto q = db::run(QStringLiteral("SELECT NOT EXISTS (SELECT FROM %1 WHERE site_id < ?)"
                                    " AND NOT EXISTS (SELECT FROM %1 WHERE site_id > ?), count(*),"
                                    " min(at)::date, max(at)::date FROM %1 WHERE site_id = ?")
                         .arg(partition),
        { m_siteId, m_siteId, m_siteId });
    if (!q || !q->next())
        return {};
    Share share { q->value(0).toBool(), q->value(1).toLongLong(), {} };
    if (share.rows > 0)
        share.days = Days { q->value(2).toDate(), q->value(3).toDate() };
    return share;
}

bool OldRequests::drop(const QString &partition)
{
    return runQuietly(
        QStringLiteral("LOCK TABLE vesk.hits, vesk.sites IN ACCESS EXCLUSIVE MODE; DROP TABLE %1")
            .arg(partition));
}

std::optional<QDate> firstKeptDay()
{
    auto setting
        = db::run(QStringLiteral("SELECT value FROM vesk.settings WHERE key = 'raw_hit_days'"));
    if (!setting)
        return {};
    const QString value = setting->next() ? setting->value(0).toString() : QString();
    const int days = value.toInt();
    if (days < 1 || days > kMostDays) {
        qCritical(
            "nothing is deleted: the setting raw_hit_days is \"%s\", and no number of days from "
            "1 to %d (vesk-admin set raw_hit_days 90)",
            qPrintable(clean(value)), kMostDays);
        return {};
    }
    auto q = db::run(QStringLiteral("SELECT (now() - make_interval(days => ?))::date"), { days });
    return q && q->next() ? std::optional(q->value(0).toDate()) : std::nullopt;
}

} // namespace vesk::nightly
