#pragma once

#include "nightly/Intake.h"

namespace vesk::nightly {

/// A run for one site. What it does goes to standard output. What goes wrong is reported, a line
/// each, and the others of the logs are done all the same.
class Import
{
public:
    Import(const Site &site, Task task);
    Q_DISABLE_COPY_MOVE(Import)

    /// Looks at all logs that match \a patterns, in the order of their last change, then rolls days
    /// up and stores figures that are missing. False when anything went wrong.
    bool run(const QStringList &patterns);

    /// The same of the logs \a paths alone.
    bool runOn(const QStringList &paths);

private:
    using Log = Tonight::Log;

    bool begin();
    bool lookForLogs(const QStringList &patterns);
    void lookAtAll();
    void look(Log &log);
    void compareWith(Portion portion, db::Transaction &transaction);
    void addPending(Portion portion);
    void takePending();
    void settle(Portion &portion, const Entry &entry, bool whole, db::Transaction &transaction);
    void damaged(Portion portion, db::Transaction &transaction);
    bool isYoung(const Log &log) const;
    bool isBeingMade(const Log &log) const;
    bool mayBeTaken(const LogContent &content);
    void refuse(const Log &log, const QString &why);
    void wait(const Log &log, const char *why);
    void finish();
    void rollUp();
    void makeUpFigures();

    Ledger m_ledger;
    Tonight m_tonight;
    const Task m_task;
    const bool m_readsLive; ///< takes young logs as far as they are written
    Count m_count;
    Intake m_intake;
    std::vector<Portion> m_pending; ///< to be taken
    std::vector<Log *> m_later; ///< to be looked at again once these are
    QHash<QByteArray, int> m_wereYoung; ///< runs on end that left a content for being young
    QHash<QByteArray, int> m_areYoung; ///< this one included
    bool m_failed = false;
};

} // namespace vesk::nightly
