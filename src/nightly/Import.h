#pragma once

#include "analytics/Ingest.h"
#include "nightly/Tonight.h"

#include <memory>

namespace vesk::db {
class Transaction;
} // namespace vesk::db

namespace vesk::nightly {

/// A run for one site. What it does goes to standard output. What goes wrong is reported, a line
/// each, and the others of the logs are done all the same.
class Import
{
public:
    enum Task {
        Store, ///< import what is new
        Note, ///< only note it as imported
    };

    Import(const Site &site, Task task);

    /// Looks at all logs that match \a patterns, in the order of their last change, then rolls days
    /// up. False when anything went wrong.
    bool run(const QStringList &patterns);

    /// The same of the logs \a paths alone.
    bool runOn(const QStringList &paths);

private:
    using Log = Tonight::Log;

    enum class Outcome { Done, Nothing, Waits, Failed };

    /// The lines of a log that are to be taken.
    struct Portion
    {
        std::unique_ptr<LogContent> content;
        Entry entry; ///< what is imported of the log, or a new one
        QByteArray firstLine;
    };

    bool begin();
    bool lookForLogs(const QStringList &patterns);
    void lookAtAll();
    Outcome look(Log &log);
    Outcome lookAtPortion(Log &log, Portion portion, db::Transaction &transaction);
    Outcome settle(Log &log, const Entry &entry, bool whole, LogContent &content,
        db::Transaction &transaction);
    Outcome take(Log &log, Portion portion, db::Transaction &transaction);
    Outcome leave(const Log &log, const char *why);
    Outcome damaged(Log &log, Portion portion, db::Transaction &transaction);
    Outcome takeStrange(Log &log, Portion &portion, const analytics::Ingest::Result &result,
        db::Transaction &transaction);
    bool save(Log &log, Portion &portion, const QSet<QDate> &days, db::Transaction &transaction);
    void tell(const Log &log, const analytics::Ingest::Result &result);
    std::optional<analytics::Ingest::Result> passOver(Portion &portion);
    std::optional<analytics::Ingest::Result> store(
        const Log &log, Portion &portion, db::Transaction &transaction);
    std::optional<Entry> changedFrom(
        const Log &log, const Entry &own, const analytics::Ingest::Result &result);
    bool isYoung(const Log &log) const;
    bool isBeingMade(const Log &log) const;
    bool mayBeTaken(const LogContent &content);
    Outcome refuse(const Log &log, const QString &why);
    Outcome postpone(const Log &log);
    void finish();
    void rollUp();

    Ledger m_ledger;
    Tonight m_tonight;
    const Task m_task;
    const bool m_readsLive; ///< takes young logs as far as they are written
    analytics::Ingest m_ingest;
    QHash<QByteArray, int> m_wereYoung; ///< runs on end that left a content for being young
    QHash<QByteArray, int> m_areYoung; ///< this one included
    bool m_failed = false;
};

} // namespace vesk::nightly
