#include "nightly/Retain.h"

#include "common/Db.h"
#include "common/Text.h"
#include "nightly/Ledger.h"
#include "nightly/OldRequests.h"
#include "nightly/Turn.h"

#include <algorithm>
#include <cstdio>
#include <set>

namespace vesk::nightly {

namespace {

/// Why the requests of a day are kept; null when they may be deleted.
const char *obstacle(const OldDay &day)
{
    if (day.isBegun)
        return nullptr;
    if (day.isQueued || !day.isCounted())
        return "its report does not count all of them; the next import rolls it up";
    if (day.hasFigures)
        return nullptr;
    return day.reported == day.requests
        ? "its figures are not stored; the next import makes them up"
        : "its figures are not stored, and others of its requests are deleted, so that they cannot "
          "be made up; delete them by hand";
}

class Retention
{
public:
    Retention(Ledger &ledger, QDate border)
        : m_ledger(ledger)
        , m_old(ledger.site().id, border)
        , m_border(border)
    {
    }

    bool run();

private:
    bool drop(const QString &partition);
    bool remove(const OldDay &day);
    void keep(const OldDay &day, const char *why);
    void tell() const;

    Ledger &m_ledger;
    OldRequests m_old;
    const QDate m_border;
    qint64 m_rows = 0; ///< that are deleted
    std::set<QDate> m_days; ///< that they are of
    bool m_isInUse = false; ///< the table of requests: others would wait with each further try
    bool m_failed = false;
};

bool Retention::run()
{
    const auto partitions = m_old.partitions();
    m_failed = !partitions;
    for (const QString &partition : partitions.value_or(QStringList())) {
        if (!m_isInUse)
            m_failed = !drop(partition) || m_failed;
    }
    const auto days = m_old.days();
    m_failed = m_failed || !days;
    for (const OldDay &day : days.value_or(QList<OldDay>())) {
        if (const char *why = obstacle(day))
            keep(day, why);
        else if (!remove(day))
            m_failed = true;
    }
    tell();
    return !m_failed;
}

/// Drops a partition that holds nothing but what may be deleted. When others are at work there, its
/// requests are deleted a day at a time. False when that is not known.
bool Retention::drop(const QString &partition)
{
    db::Transaction transaction;
    if (!transaction.isOpen() || !m_ledger.lockTransaction())
        return false;
    if (!m_old.lock(partition))
        return true;
    const auto share = m_old.share(partition);
    const auto days = share && share->days ? m_old.days(*share->days) : QList<OldDay>();
    if (!share || !days)
        return false;
    if (!share->isAll || std::any_of(days->begin(), days->end(), obstacle))
        return true;
    for (const OldDay &day : *days) {
        if (!m_old.begin(day.day))
            return false;
    }
    m_isInUse = !m_old.drop(partition);
    if (m_isInUse)
        return true;
    if (!transaction.commit())
        return false;
    printf("dropped the partition %s\n", qPrintable(clean(partition)));
    m_rows += share->rows;
    for (const OldDay &day : *days)
        m_days.insert(day.day);
    return true;
}

/// Deletes what is stored of a day in one transaction.
bool Retention::remove(const OldDay &day)
{
    db::Transaction transaction;
    if (!transaction.isOpen() || !m_ledger.lockTransaction() || !m_old.begin(day.day))
        return false;
    const auto rows = m_old.remove(day);
    if (!rows)
        return false;
    if (*rows == 0) {
        qWarning("requests of %s were stored just now, the next run tries again",
            qPrintable(day.day.toString(Qt::ISODate)));
        return false;
    }
    if (!transaction.commit())
        return false;
    m_rows += *rows;
    m_days.insert(day.day);
    return true;
}

void Retention::keep(const OldDay &day, const char *why)
{
    qWarning("%s keeps %lld requests: %s", qPrintable(day.day.toString(Qt::ISODate)),
        qlonglong { day.rows }, why);
    m_failed = true;
    if (!day.isCounted())
        m_ledger.addDays({ day.day });
}

void Retention::tell() const
{
    if (!m_days.empty())
        printf("deleted %lld requests of %zu days, %s to %s\n", qlonglong { m_rows }, m_days.size(),
            qPrintable(m_days.begin()->toString(Qt::ISODate)),
            qPrintable(m_days.rbegin()->toString(Qt::ISODate)));
    else if (!m_failed)
        printf("%s has no requests from before %s\n", qPrintable(clean(m_ledger.site().host)),
            qPrintable(m_border.toString(Qt::ISODate)));
}

} // namespace

bool retain(const Site &site)
{
    Ledger ledger(site);
    if (!takeTurn(ledger) || !ledger.create())
        return false;
    const auto border = firstKeptDay();
    return border && Retention(ledger, *border).run();
}

} // namespace vesk::nightly
