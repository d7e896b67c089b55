#include "nightly/Ledger.h"

#include "analytics/RollUp.h"
#include "common/Db.h"

#include <QSet>

namespace vesk::nightly {

namespace {

constexpr auto kSchema = R"(
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
    PRIMARY KEY (site_id, day)))";

QVariant nullable(const std::optional<qint64> &number)
{
    return number ? QVariant(*number) : QVariant(QMetaType(QMetaType::LongLong));
}

std::optional<qint64> number(const QVariant &value)
{
    return value.isNull() ? std::nullopt : std::optional(value.toLongLong());
}

QString lockKey(int siteId)
{
    return QStringLiteral("hashtextextended('vesk nightly %1', 0)").arg(siteId);
}

} // namespace

bool Ledger::tryLock()
{
    auto q = db::run(QStringLiteral("SELECT pg_try_advisory_lock(%1)").arg(lockKey(m_site.id)));
    return q && q->next() && q->value(0).toBool();
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
    db::Transaction transaction;
    // Of two sites' first runs at the same time one makes the tables, and the other waits.
    auto q = transaction.isOpen() ? db::run(QStringLiteral("SELECT pg_advisory_xact_lock("
                                                           "hashtextextended('vesk nightly', 0))"))
                                  : std::nullopt;
    if (!q)
        return false;
    q = db::run(QStringLiteral("SELECT to_regclass('vesk_nightly.days') IS NOT NULL"));
    if (!q || !q->next())
        return false;
    QString error;
    if (!q->value(0).toBool() && !db::execScript(QString::fromLatin1(kSchema), &error)) {
        db::reportFailure(error);
        return false;
    }
    return transaction.commit();
}

std::optional<QList<Entry>> Ledger::entries()
{
    return read(QStringLiteral("? <> first_line ORDER BY at, id"), QByteArrayLiteral("-"));
}

std::optional<QList<Entry>> Ledger::entries(const QByteArray &firstLine)
{
    return read(QStringLiteral("? = first_line ORDER BY bytes DESC"), firstLine);
}

std::optional<QList<Entry>> Ledger::read(const QString &condition, const QByteArray &firstLine)
{
    auto q = db::run(QStringLiteral("SELECT id, first_line, content, bytes, name, lines, stored,"
                                    " to_char(at, 'YYYY-MM-DD HH24:MI:SS')"
                                    " FROM vesk_nightly.logs WHERE site_id = ? AND ")
            + condition,
        { m_site.id, QString::fromLatin1(firstLine) });
    if (!q)
        return {};
    QList<Entry> entries;
    while (q->next())
        entries.append({ q->value(0).toLongLong(), q->value(1).toByteArray(),
            q->value(2).toByteArray(), q->value(3).toLongLong(), q->value(4).toString(),
            number(q->value(5)), number(q->value(6)), q->value(7).toString() });
    return entries;
}

bool Ledger::save(const Entry &entry)
{
    QVariantList values { m_site.id, QString::fromLatin1(entry.firstLine),
        QString::fromLatin1(entry.content), entry.bytes, entry.name, nullable(entry.lines),
        nullable(entry.stored) };
    if (entry.id == 0)
        return db::run(QStringLiteral("INSERT INTO vesk_nightly.logs (site_id, first_line, content,"
                                      " bytes, name, lines, stored) VALUES (?, ?, ?, ?, ?, ?, ?)"),
            values)
            .has_value();
    values.append(entry.id);
    return db::run(
        QStringLiteral("UPDATE vesk_nightly.logs SET (site_id, first_line, content, bytes,"
                       " name, lines, stored, at) = (?, ?, ?, ?, ?, ?, ?, now())"
                       " WHERE id = ?"),
        values)
        .has_value();
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

bool Ledger::rollUp(QDate day)
{
    db::Transaction transaction;
    return transaction.isOpen() && analytics::rollUpDay(m_site.id, day)
        && db::run(QStringLiteral("DELETE FROM vesk_nightly.days WHERE site_id = ? AND day = ?"),
            { m_site.id, day })
        && transaction.commit();
}

} // namespace vesk::nightly
