#pragma once

#include "analytics/Ingest.h"
#include "nightly/Batch.h"

namespace vesk::db {
class Transaction;
} // namespace vesk::db

namespace vesk::nightly {

enum class Task {
    Store, ///< import what is new
    Note, ///< only note it as imported
};

/// What became of logs, by their number.
struct Count
{
    qint64 taken = 0; ///< something of them
    qint64 known = 0; ///< nothing was new
    qint64 waiting = 0; ///< left for the next run
    qint64 failed = 0; ///< after a message
};

/// Takes logs, into the database or only into the ledger, and tells what became of them.
class Intake
{
public:
    Intake(Ledger &ledger, Tonight &tonight, Task task, Count &count);

    /// Prepares storing. False, after a message, when the database cannot be imported into.
    bool init();

    /// Takes portions together or not at all. One that cannot be taken is told and left out. Gives
    /// the logs that have to be looked at again, since what is imported of their like has changed.
    std::vector<Tonight::Log *> take(std::vector<Portion *> group);

private:
    bool takeOnce(std::vector<Portion *> &group, std::vector<Tonight::Log *> &again);
    bool isUpToDate(const Portion &portion);
    bool isAsBefore(Portion &portion);
    std::optional<QSet<QDate>> read(
        const std::vector<Portion *> &group, Batch &batch, db::Transaction &transaction);
    Portion *findUnsound(const Batch &batch);
    bool isSound(const Reading &reading, bool sameServer);
    std::optional<Entry> changedFrom(const Reading &reading, bool sameServer);
    bool save(const Reading &reading);
    void tell(const Reading &reading);

    Ledger &m_ledger;
    Tonight &m_tonight;
    const Task m_task;
    Count &m_count;
    const translate::SiteHosts m_hosts;
    analytics::Ingest m_ingest;
};

} // namespace vesk::nightly
