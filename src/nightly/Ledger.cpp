#include "nightly/Ledger.h"

#include "analytics/RollUp.h"
#include "common/Db.h"
#include "figures/Figures.h"
#include "nightly/LedgerTables.h"

#include <QVariant>

namespace vesk::nightly {

namespace {

constexpr auto kNumber = QMetaType::LongLong;

QVariant nullable(const std::optional<qint64> &number)
{
    return number ? QVariant(*number) : QVariant(QMetaType(kNumber));
}

std::optional<qint64> number(const QVariant &value)
{
    return value.isNull() ? std::nullopt : std::optional(value.toLongLong());
}

/// Bound as NULL a byte array would be that was never set.
QByteArray bytes(const QByteArray &value)
{
    return value.isNull() ? QByteArrayLiteral("") : value;
}

std::optional<bool> boolean(std::optional<QSqlQuery> q)
{
    return q && q->next() ? std::optional(q->value(0).toBool()) : std::nullopt;
}

QString lockKey(int siteId)
{
    return QStringLiteral("hashtextextended('vesk nightly %1', 0)").arg(siteId);
}

/// Numbers as a literal of an array.
template <typename Numbers> QString array(const Numbers &numbers)
{
    QStringList items;
    for (const qint64 number : numbers)
        items += QString::number(number);
    return QLatin1Char('{') + items.join(u',') + QLatin1Char('}');
}

} // namespace

bool Ledger::tryLock()
{
    const QString sql = QStringLiteral("SELECT pg_try_advisory_lock(%1)").arg(lockKey(m_site.id));
    return boolean(db::run(sql)).value_or(false);
}

bool Ledger::lock()
{
    return db::run(QStringLiteral("SELECT pg_advisory_lock(%1)").arg(lockKey(m_site.id)))
        .has_value();
}

bool Ledger::lockTransaction()
{
    return db::run(QStringLiteral("SELECT pg_advisory_xact_lock(%1)").arg(lockKey(m_site.id)))
        .has_value();
}

bool Ledger::create()
{
    return createLedgerTables();
}

std::optional<bool> Ledger::isEmpty()
{
    return boolean(db::run(
        QStringLiteral("SELECT NOT EXISTS (SELECT FROM vesk_nightly.logs WHERE site_id = ?)"),
        { m_site.id }));
}

std::optional<bool> Ledger::isNew()
{
    return boolean(
        db::run(QStringLiteral(
                    "SELECT created_at > now() - interval '3 days' FROM vesk.sites WHERE id = ?"),
            { m_site.id }));
}

std::optional<QList<Entry>> Ledger::entries()
{
    const auto made = ledgerVersion();
    if (!made)
        return {};
    if (*made == LedgerVersion::None)
        return QList<Entry>();
    auto q = db::run(QStringLiteral("SELECT name, lines, stored,"
                                    " to_char(at, 'YYYY-MM-DD HH24:MI:SS')"
                                    " FROM vesk_nightly.logs WHERE site_id = ? ORDER BY at, id"),
        { m_site.id });
    if (!q)
        return {};
    QList<Entry> entries;
    while (q->next()) {
        Entry entry;
        entry.name = q->value(0).toString();
        entry.lines = number(q->value(1));
        entry.stored = number(q->value(2));
        entry.at = q->value(3).toString();
        entries.append(entry);
    }
    return entries;
}

std::optional<QList<Entry>> Ledger::entriesBeginning(const QByteArray &firstLine)
{
    return read(QStringLiteral("first_line = ? ORDER BY bytes DESC, id"),
        { QString::fromLatin1(firstLine) });
}

std::optional<QList<Entry>> Ledger::entriesWithin(const Span &span)
{
    return read(QStringLiteral("first_at <= to_timestamp(?) AND last_at >= to_timestamp(?)"
                               " ORDER BY at DESC, id DESC"),
        { nullable(span.last), nullable(span.first) });
}

std::optional<QList<Entry>> Ledger::entriesWithId(qint64 id)
{
    return read(QStringLiteral("id = ?"), { id });
}

std::optional<QList<Entry>> Ledger::read(const QString &condition, const QVariantList &values)
{
    auto q = db::run(QStringLiteral("SELECT id, first_line, content, bytes, beginnings,"
                                    " extract(epoch FROM first_at)::bigint,"
                                    " extract(epoch FROM last_at)::bigint, name, lines, stored,"
                                    " to_char(at, 'YYYY-MM-DD HH24:MI:SS')"
                                    " FROM vesk_nightly.logs WHERE site_id = ? AND ")
            + condition,
        QVariantList { m_site.id } + values);
    if (!q)
        return {};
    QList<Entry> entries;
    while (q->next())
        entries.append({ q->value(0).toLongLong(), q->value(1).toByteArray(),
            q->value(2).toByteArray(), q->value(3).toLongLong(), q->value(4).toByteArray(),
            Span { number(q->value(5)), number(q->value(6)) }, q->value(7).toString(),
            number(q->value(8)), number(q->value(9)), q->value(10).toString() });
    return entries;
}

bool Ledger::save(Entry &entry)
{
    const QVariantList values { m_site.id, QString::fromLatin1(entry.firstLine),
        QString::fromLatin1(entry.content), entry.bytes, bytes(entry.beginnings),
        nullable(entry.span.first), nullable(entry.span.last), entry.name, nullable(entry.lines),
        nullable(entry.stored) };
    const QString columns = QStringLiteral(
        "(site_id, first_line, content, bytes, beginnings, first_at, last_at, name, lines, stored");
    const QString row = QStringLiteral("(?, ?, ?, ?, ?, to_timestamp(?), to_timestamp(?), ?, ?, ?");
    if (entry.id != 0)
        return db::run(QStringLiteral("UPDATE vesk_nightly.logs SET ") + columns
                + QStringLiteral(", at, seen) = ") + row
                + QStringLiteral(", now(), now()) WHERE id = ?"),
            values + QVariantList { entry.id })
            .has_value();
    auto q = db::run(QStringLiteral("INSERT INTO vesk_nightly.logs ") + columns
            + QStringLiteral(") VALUES ") + row + QStringLiteral(") RETURNING id"),
        values);
    if (!q || !q->next())
        return false;
    entry.id = q->value(0).toLongLong();
    return true;
}

bool Ledger::saveMissing(const Entry &entry)
{
    return db::run(QStringLiteral("UPDATE vesk_nightly.logs SET (beginnings, first_at, last_at) ="
                                  " (?, to_timestamp(?), to_timestamp(?)) WHERE id = ?"),
        { bytes(entry.beginnings), nullable(entry.span.first), nullable(entry.span.last),
            entry.id })
        .has_value();
}

std::optional<QList<KnownFile>> Ledger::files()
{
    auto q = db::run(QStringLiteral("SELECT device, inode, modified, size, log_id, whole, settled"
                                    " FROM vesk_nightly.files WHERE site_id = ?"),
        { m_site.id });
    if (!q)
        return {};
    QList<KnownFile> files;
    while (q->next())
        files.append({ FileState { q->value(0).toLongLong(), q->value(1).toLongLong(),
                           q->value(2).toLongLong(), q->value(3).toLongLong() },
            q->value(4).toLongLong(), q->value(5).toBool(), q->value(6).toBool() });
    return files;
}

bool Ledger::save(const KnownFile &file)
{
    return db::run(
        QStringLiteral(
            "INSERT INTO vesk_nightly.files (site_id, device, inode, modified, size,"
            " log_id, whole, settled) VALUES (?, ?, ?, ?, ?, ?, ?, ?)"
            " ON CONFLICT (site_id, device, inode) DO UPDATE SET (modified, size, log_id,"
            " whole, settled) = (excluded.modified, excluded.size, excluded.log_id,"
            " excluded.whole, excluded.settled)"),
        { m_site.id, file.state.device, file.state.inode, file.state.modified, file.state.size,
            file.entry, file.whole, file.settled })
        .has_value();
}

bool Ledger::tidy(const QList<FileState> &there, const QSet<qint64> &seen, qint64 oldest)
{
    QList<qint64> devices;
    QList<qint64> inodes;
    for (const FileState &state : there) {
        devices.append(state.device);
        inodes.append(state.inode);
    }
    return db::run(
               QStringLiteral("DELETE FROM vesk_nightly.files WHERE site_id = ? AND (device,"
                              " inode) NOT IN (SELECT * FROM unnest(?::bigint[], ?::bigint[]))"),
               { m_site.id, array(devices), array(inodes) })
        && db::run(
            QStringLiteral("UPDATE vesk_nightly.logs SET seen = now()"
                           " WHERE id = ANY (?::bigint[]) AND seen < now() - interval '1 day'"),
            { array(seen) })
        && db::run(QStringLiteral("DELETE FROM vesk_nightly.logs WHERE site_id = ? AND seen <"
                                  " least(now() - interval '400 days', to_timestamp(? / 1e9))"),
            { m_site.id, oldest });
}

std::optional<QHash<QByteArray, int>> Ledger::young()
{
    auto q
        = db::run(QStringLiteral("SELECT content, runs FROM vesk_nightly.young WHERE site_id = ?"),
            { m_site.id });
    if (!q)
        return {};
    QHash<QByteArray, int> young;
    while (q->next())
        young.insert(q->value(0).toByteArray(), q->value(1).toInt());
    return young;
}

bool Ledger::replaceYoung(const QHash<QByteArray, int> &young)
{
    bool done
        = db::run(QStringLiteral("DELETE FROM vesk_nightly.young WHERE site_id = ?"), { m_site.id })
              .has_value();
    for (auto it = young.begin(); done && it != young.end(); ++it)
        done = db::run(QStringLiteral("INSERT INTO vesk_nightly.young VALUES (?, ?, ?)"),
            { m_site.id, QString::fromLatin1(it.key()), it.value() })
                   .has_value();
    return done;
}

std::optional<Ledger::Repeats> Ledger::repeats(const Span &span)
{
    auto q = db::run(
        QStringLiteral("SELECT count(*), count(*) FILTER (WHERE EXISTS (SELECT FROM vesk.hits h"
                       " WHERE h.site_id = fresh.site_id AND h.at = fresh.at"
                       " AND h.xmin <> fresh.xmin AND (h.method, h.path, h.status, h.bytes)"
                       " IS NOT DISTINCT FROM"
                       " (fresh.method, fresh.path, fresh.status, fresh.bytes)))"
                       " FROM vesk.hits fresh WHERE site_id = ? AND at BETWEEN to_timestamp(?)"
                       " AND to_timestamp(?) AND xmin = pg_current_xact_id()::xid"),
        { m_site.id, nullable(span.first), nullable(span.last) });
    if (!q || !q->next())
        return {};
    return Repeats { q->value(0).toLongLong(), q->value(1).toLongLong() };
}

std::optional<QList<QDate>> Ledger::days()
{
    auto q = db::run(
        QStringLiteral("SELECT day FROM vesk_nightly.days WHERE site_id = ? ORDER BY day"),
        { m_site.id });
    if (!q)
        return {};
    QList<QDate> days;
    while (q->next())
        days.append(q->value(0).toDate());
    return days;
}

bool Ledger::addDays(const QSet<QDate> &days)
{
    for (const QDate day : days) {
        if (!db::run(QStringLiteral("INSERT INTO vesk_nightly.days VALUES (?, ?)"
                                    " ON CONFLICT DO NOTHING"),
                { m_site.id, day }))
            return false;
    }
    return true;
}

Ledger::RolledUp Ledger::rollUp(QDate day)
{
    db::Transaction transaction;
    if (!transaction.isOpen())
        return RolledUp::Failed;
    auto q = db::run(
        QStringLiteral(
            "SELECT r.n1 > (SELECT count(*) FROM vesk.hits h WHERE h.site_id = r.site_id"
            " AND h.at >= r.day::timestamptz AND h.at < (r.day + 1)::timestamptz"
            " AND h.method <> 'BEACON') OR EXISTS (SELECT FROM vesk_nightly.deleted_days d"
            " WHERE (d.site_id, d.day) = (r.site_id, r.day))"
            " FROM vesk.rollup r WHERE r.site_id = ?"
            " AND r.day = ? AND (r.scope, r.dim, r.key) = ('all', 'totals', 'requests')"),
        { m_site.id, day });
    if (!q)
        return RolledUp::Failed;
    const bool isPart = q->next() && q->value(0).toBool();
    const bool made
        = isPart || (analytics::rollUpDay(m_site.id, day) && figures::store(m_site.id, day));
    const bool done = made
        && db::run(QStringLiteral("DELETE FROM vesk_nightly.days WHERE site_id = ? AND day = ?"),
            { m_site.id, day })
        && transaction.commit();
    if (!done)
        return RolledUp::Failed;
    return isPart ? RolledUp::Left : RolledUp::Done;
}

std::optional<QList<QDate>> Ledger::daysWithoutFigures()
{
    return figures::missingDays(m_site.id);
}

bool Ledger::storeFigures(QDate day)
{
    db::Transaction transaction;
    return transaction.isOpen() && figures::store(m_site.id, day) && transaction.commit();
}

} // namespace vesk::nightly
