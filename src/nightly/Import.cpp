#include "nightly/Import.h"

#include "common/Db.h"
#include "common/FilePath.h"
#include "common/Sha256.h"
#include "common/Text.h"
#include "nightly/Complaints.h"
#include "nightly/OldMarks.h"
#include "nightly/Turn.h"

#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace vesk::nightly {

namespace {

/// The web server may not be done with a log that was written to so recently.
constexpr qint64 kYoungSecs = 300;
constexpr auto kIsYoung = "was written to in the last five minutes";

/// A log that was left so often with the same content is not being written to.
constexpr int kMostRunsLeft = 2;

/// Whether one of two logs that begin with the same line begins with all of the other. None may be
/// open.
bool areAlike(Portion &one, Portion &other)
{
    const QByteArray &a = one.beginnings();
    const QByteArray &b = other.beginnings();
    return a.startsWith(b) || b.startsWith(a);
}

} // namespace

Import::Import(const Site &site, Task task)
    : m_ledger(site)
    , m_tonight(m_ledger)
    , m_task(task)
    , m_readsLive(readsLiveLogs())
    , m_intake(m_ledger, m_tonight, task, m_count)
{
}

bool Import::run(const QStringList &patterns)
{
    if (!begin() || !lookForLogs(patterns))
        return false;
    if (m_task == Task::Store && !takeOldMarks(m_ledger, m_tonight))
        return false;
    lookAtAll();
    finish();
    if (m_task == Task::Store) {
        rollUp();
        makeUpFigures();
    }
    return !m_failed;
}

bool Import::runOn(const QStringList &paths)
{
    if (!begin() || !m_tonight.open(paths))
        return false;
    for (const QString &path : paths) {
        if (!QFileInfo(filePath(path)).isFile()) {
            qWarning("%s is no file", qPrintable(clean(path)));
            m_failed = true;
        }
    }
    lookAtAll();
    return !m_failed;
}

bool Import::begin()
{
    return takeTurn(m_ledger) && m_ledger.create() && m_intake.init();
}

/// Lists and opens the logs. False, after a message, when there is nothing to do for the task.
bool Import::lookForLogs(const QStringList &patterns)
{
    if (!m_tonight.open(expand(patterns)))
        return false;
    for (const QString &folder : closedFolders(patterns)) {
        qWarning("the folder %s cannot be searched (Debian's log folders are for the group adm)",
            qPrintable(clean(folder)));
        m_failed = true;
    }
    if (!m_tonight.logs().isEmpty())
        return true;
    const QByteArray where = clean(patterns.join(QLatin1String(" or "))).toLocal8Bit();
    const bool isAwaited = m_task == Task::Store && !m_failed && m_ledger.isEmpty().value_or(false)
        && m_ledger.isNew().value_or(false);
    if (isAwaited) {
        printf("no file matches %s yet: the first rotation is awaited\n", where.constData());
        return true;
    }
    qWarning("no file matches %s%s", where.constData(),
        m_task == Task::Note ? "; name the files, or set VESK_LOGS as the service does" : "");
    m_failed = true;
    return m_task == Task::Store;
}

void Import::lookAtAll()
{
    m_wereYoung = m_ledger.young().value_or(QHash<QByteArray, int>());
    for (Log &log : m_tonight.logs())
        look(log);
    takePending();
    while (!m_later.empty()) {
        Log *log = m_later.back();
        m_later.pop_back();
        look(*log);
        takePending();
    }
    m_failed = m_failed || m_count.failed > 0;
    if (m_task == Task::Note)
        printf("noted as imported: %lld logs\n", qlonglong { m_count.taken });
    else if (m_count.known > 0 && m_count.taken + m_count.waiting == 0 && !m_failed)
        printf("no new logs of %s\n", qPrintable(clean(m_ledger.site().host)));
}

/// Finds out whether a log has anything new.
void Import::look(Log &log)
{
    if (log.entry != 0) {
        ++m_count.known;
        return;
    }
    if (const QString why = log.file.obstacle(); !why.isEmpty())
        return refuse(log, why);
    db::Transaction transaction;
    if (!transaction.isOpen() || !m_ledger.lockTransaction())
        return refuse(log, postponed());
    Portion portion;
    portion.log = &log;
    portion.content = std::make_unique<LogContent>(log.file);
    const auto line = portion.content->first();
    portion.firstLine = line ? line->toByteArray() : QByteArray();
    portion.entry.firstLine = sha256({ portion.firstLine, "\n" }).toHex();
    const auto relatives = m_ledger.entriesBeginning(portion.entry.firstLine);
    if (!relatives)
        return refuse(log, postponed());
    portion.relatives = *relatives;
    if ((!line || portion.content->endsInFirst()) && !portion.content->intact())
        return damaged(std::move(portion), transaction);
    if (line)
        compareWith(std::move(portion), transaction);
    else
        ++m_count.known;
}

/// Compares a log with what is imported, unless it begins like nothing of that.
void Import::compareWith(Portion portion, db::Transaction &transaction)
{
    const Log &log = *portion.log;
    const bool mustWait = isYoung(log) && !m_readsLive;
    if (portion.relatives.isEmpty() && !mustWait)
        return addPending(std::move(portion));

    const Likeness likeness = compare(*portion.content, portion.relatives);
    if (likeness.same || likeness.beginningOf)
        return settle(portion, likeness.same ? *likeness.same : *likeness.beginningOf,
            likeness.same.has_value(), transaction);
    if (!portion.content->intact())
        return damaged(std::move(portion), transaction);
    if (mustWait && !mayBeTaken(*portion.content))
        return wait(log, kIsYoung);
    if (const auto grown = m_tonight.grownFrom(log, likeness.continues))
        portion.entry = *grown;
    portion.content = nullptr;
    addPending(std::move(portion));
}

/// Of two logs of which one begins with all of the other, or is a copy, the second one is looked at
/// again once the first one is taken. Only a single one stays open, or there could be too many.
void Import::addPending(Portion portion)
{
    if (!m_pending.empty()) {
        m_pending.front().content = nullptr;
        portion.content = nullptr;
    }
    const bool isAlike = std::any_of(m_pending.begin(), m_pending.end(), [&portion](Portion &one) {
        return one.entry.firstLine == portion.entry.firstLine && areAlike(one, portion);
    });
    if (isAlike)
        m_later.insert(m_later.begin(), portion.log);
    else
        m_pending.push_back(std::move(portion));
}

void Import::takePending()
{
    for (const std::vector<size_t> &group : groups(m_pending)) {
        std::vector<Portion *> portions;
        portions.reserve(group.size());
        for (const size_t index : group)
            portions.push_back(&m_pending[index]);
        const std::vector<Log *> again = m_intake.take(portions);
        m_later.insert(m_later.begin(), again.rbegin(), again.rend());
    }
    m_pending.clear();
}

/// Notes that all of a log was imported as \a entry before.
void Import::settle(Portion &portion, const Entry &entry, bool whole, db::Transaction &transaction)
{
    Log &log = *portion.log;
    const bool intact = portion.content->intact();
    if (!intact && isBeingMade(log))
        return wait(log, kIsYoung);
    if (!m_tonight.know(log, entry, whole, *portion.content) || !transaction.commit())
        return refuse(log, postponed());
    if (!intact)
        printf("%s is damaged, but it was imported as %s on %s\n",
            qPrintable(clean(log.file.path())), qPrintable(clean(entry.name)),
            qPrintable(entry.at));
    ++m_count.known;
}

/// What becomes of a log of which not all can be read. It may be known by its name, its time or its
/// file.
void Import::damaged(Portion portion, db::Transaction &transaction)
{
    const Log &log = *portion.log;
    if (m_task == Task::Note) {
        portion.content = nullptr;
        return addPending(std::move(portion));
    }
    if (isBeingMade(log))
        return wait(log, kIsYoung);
    if (const auto former = m_tonight.former(log, *portion.content, portion.entry.firstLine))
        return settle(portion, *former, false, transaction);
    refuse(log, damage(log.file));
}

bool Import::isYoung(const Log &log) const
{
    return m_task == Task::Store && std::abs(log.file.age()) < kYoungSecs;
}

/// Whether it may be an archive that is not complete yet.
bool Import::isBeingMade(const Log &log) const
{
    return log.file.isArchive() && isYoung(log);
}

/// Whether a young log with \a content is taken all the same.
bool Import::mayBeTaken(const LogContent &content)
{
    const int runs = m_wereYoung.value(content.checksum());
    if (runs >= kMostRunsLeft)
        return true;
    m_areYoung.insert(content.checksum(), runs + 1);
    return false;
}

void Import::refuse(const Log &log, const QString &why)
{
    complain(log.file, why);
    ++m_count.failed;
}

void Import::wait(const Log &log, const char *why)
{
    leave(log.file, why);
    ++m_count.waiting;
}

void Import::finish()
{
    db::Transaction transaction;
    const bool done = transaction.isOpen() && m_tonight.tidy()
        && (m_task == Task::Note || m_ledger.replaceYoung(m_areYoung)) && transaction.commit();
    m_failed = m_failed || !done;
}

void Import::rollUp()
{
    const auto days = m_ledger.days();
    m_failed = m_failed || !days;
    if (!days || days->isEmpty())
        return;
    qint64 done = 0;
    for (const QDate day : *days) {
        const Ledger::RolledUp outcome = m_ledger.rollUp(day);
        done += outcome == Ledger::RolledUp::Done;
        m_failed = m_failed || outcome != Ledger::RolledUp::Done;
        const QString name = day.toString(Qt::ISODate);
        if (outcome == Ledger::RolledUp::Left)
            qWarning(
                "%s keeps its report: some of the requests that it counts are deleted, and new "
                "ones are stored; to count these, import all logs of the day again",
                qPrintable(name));
        else if (outcome == Ledger::RolledUp::Failed)
            qWarning("%s is not rolled up, the next run tries again", qPrintable(name));
    }
    printf("rolled up %lld days\n", qlonglong { done });
}

/// Stores the figures of days that were rolled up without them, by hand or by an earlier version.
void Import::makeUpFigures()
{
    const auto days = m_ledger.daysWithoutFigures();
    m_failed = m_failed || !days;
    if (!days || days->isEmpty())
        return;
    qint64 done = 0;
    for (const QDate day : *days) {
        if (m_ledger.storeFigures(day))
            ++done;
        else
            qWarning("%s has no figures yet, the next run tries again",
                qPrintable(day.toString(Qt::ISODate)));
    }
    m_failed = m_failed || done < days->size();
    printf("made up the figures of %lld days\n", qlonglong { done });
}

} // namespace vesk::nightly
