#pragma once

#include "analytics/Ingest.h"
#include "nightly/Ledger.h"
#include "nightly/RotatedLogs.h"

namespace vesk::db {
class Transaction;
}

namespace vesk::nightly {

class LogContent;

/// A run for one site. What it does goes to standard output. What goes wrong is reported, a line
/// each, and the others of the logs are done all the same.
class Import
{
public:
    enum Task {
        Store, ///< import what is new
        Note, ///< only note it as imported
    };

    Import(Ledger &ledger, Task task)
        : m_ledger(ledger)
        , m_task(task)
    {
    }

    /// Looks at all \a logs, in their order, then rolls days up. False when anything went wrong.
    bool run(const QList<RotatedLog> &logs);

private:
    enum class Outcome { Done, Nothing, Waits, Failed };

    bool begin();
    Outcome look(const RotatedLog &log);
    Outcome take(const RotatedLog &log, const QByteArray &firstLine, db::Transaction &transaction);
    std::optional<analytics::Ingest::Result> store(
        const RotatedLog &log, LogContent &content, db::Transaction &transaction);
    Outcome refuse(const RotatedLog &log, const QString &why);
    void rollUp();

    Ledger &m_ledger;
    const Task m_task;
    analytics::Ingest m_ingest; ///< visits go on from log to log
    bool m_failed = false;
};

} // namespace vesk::nightly
