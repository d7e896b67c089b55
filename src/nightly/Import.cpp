#include "nightly/Import.h"

#include "common/Db.h"
#include "common/FilePath.h"
#include "common/Sha256.h"
#include "common/Text.h"
#include "nightly/Complaints.h"
#include "nightly/OldMarks.h"

#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace vesk::nightly {

using analytics::Ingest;

namespace {

/// The web server may not be done with a log that was written to so recently.
constexpr qint64 kYoungSecs = 300;

/// A log that was left so often with the same content is not being written to.
constexpr int kMostRunsLeft = 2;

/// A log is taken for another one that was changed when of its requests so many are stored already:
/// one in two of those from the time of the other, and one in twenty of all. Less than that comes
/// of one second with many like requests, in which the log was rotated.
constexpr qint64 kRepeatedWithin = 2;
constexpr qint64 kRepeatedOfAll = 20;

QByteArray shown(const QString &text)
{
    return clean(text).toLocal8Bit();
}

/// The times of what was imported.
Span spanOf(const Ingest::Result &result)
{
    Span span;
    if (result.first.isValid()) {
        span.add(result.first.toSecsSinceEpoch());
        span.add(result.last.toSecsSinceEpoch());
    }
    return span;
}

} // namespace

Import::Import(const Site &site, Task task)
    : m_ledger(site)
    , m_tonight(m_ledger)
    , m_task(task)
    , m_readsLive(readsLiveLogs())
{
}

bool Import::run(const QStringList &patterns)
{
    if (!begin() || !lookForLogs(patterns))
        return false;
    if (m_task == Store && !takeOldMarks(m_ledger, m_tonight))
        return false;
    lookAtAll();
    finish();
    if (m_task == Store)
        rollUp();
    return !m_failed;
}

bool Import::runOn(const QStringList &paths)
{
    if (!begin() || !m_tonight.open(paths))
        return false;
    for (const QString &path : paths) {
        if (!QFileInfo(filePath(path)).isFile()) {
            qWarning("%s is no file", shown(path).constData());
            m_failed = true;
        }
    }
    lookAtAll();
    return !m_failed;
}

bool Import::begin()
{
    if (!m_ledger.tryLock()) {
        printf("waiting for another run for %s\n", shown(m_ledger.site().host).constData());
        if (!m_ledger.lock())
            return false;
    }
    if (!m_ledger.create())
        return false;
    if (m_task == Store && !m_ingest.init()) {
        qCritical("the database has no visitor_secret: run vesk-admin migrate, or restore the "
                  "setting from a backup");
        return false;
    }
    return true;
}

/// Lists and opens the logs. False, after a message, when there is nothing to do for the task.
bool Import::lookForLogs(const QStringList &patterns)
{
    if (!m_tonight.open(expand(patterns)))
        return false;
    for (const QString &folder : closedFolders(patterns)) {
        qWarning("the folder %s cannot be searched (Debian's log folders are for the group adm)",
            shown(folder).constData());
        m_failed = true;
    }
    if (!m_tonight.logs().isEmpty())
        return true;
    const QByteArray where = shown(patterns.join(QLatin1String(" or ")));
    const bool isAwaited = m_task == Store && !m_failed && m_ledger.isEmpty().value_or(false)
        && m_ledger.isNew().value_or(false);
    if (isAwaited) {
        printf("no file matches %s yet: the first rotation is awaited\n", where.constData());
        return true;
    }
    qWarning("no file matches %s%s", where.constData(),
        m_task == Note ? "; name the files, or set VESK_LOGS as the service does" : "");
    m_failed = true;
    return m_task == Store;
}

void Import::lookAtAll()
{
    m_wereYoung = m_ledger.young().value_or(QHash<QByteArray, int>());
    std::map<Outcome, qint64> count;
    for (Log &log : m_tonight.logs())
        ++count[look(log)];
    m_failed = m_failed || count[Outcome::Failed] > 0;
    const bool nothing
        = count[Outcome::Nothing] > 0 && count[Outcome::Nothing] == m_tonight.logs().size();
    if (m_task == Note)
        printf("noted as imported: %lld logs\n", qlonglong { count[Outcome::Done] });
    else if (nothing && !m_failed)
        printf("no new logs of %s\n", shown(m_ledger.site().host).constData());
}

/// Finds out whether a log has anything new, and takes that.
Import::Outcome Import::look(Log &log)
{
    if (log.entry != 0)
        return Outcome::Nothing;
    if (const QString why = log.file.obstacle(); !why.isEmpty())
        return refuse(log, why);
    db::Transaction transaction;
    if (!transaction.isOpen() || !m_ledger.lockTransaction())
        return postpone(log);
    Portion portion { std::make_unique<LogContent>(log.file), {}, {} };
    const auto line = portion.content->first();
    portion.firstLine = line ? line->toByteArray() : QByteArray();
    portion.entry.firstLine = sha256({ portion.firstLine, "\n" }).toHex();
    if ((!line || portion.content->endsInFirst()) && !portion.content->intact())
        return damaged(log, std::move(portion), transaction);
    if (!line)
        return Outcome::Nothing;
    return lookAtPortion(log, std::move(portion), transaction);
}

/// Compares a log with what is imported, unless it begins like nothing of that, and takes what is
/// new.
Import::Outcome Import::lookAtPortion(Log &log, Portion portion, db::Transaction &transaction)
{
    const auto known = m_ledger.entriesBeginning(portion.entry.firstLine);
    if (!known)
        return postpone(log);
    const bool mustWait = isYoung(log) && !m_readsLive;
    if (known->isEmpty() && !mustWait)
        return take(log, std::move(portion), transaction);

    const Likeness likeness = compare(*portion.content, *known);
    if (likeness.same || likeness.beginningOf)
        return settle(log, likeness.same ? *likeness.same : *likeness.beginningOf,
            likeness.same.has_value(), *portion.content, transaction);
    if (!portion.content->intact())
        return damaged(log, std::move(portion), transaction);
    if (mustWait && !mayBeTaken(*portion.content))
        return leave(log, "was written to in the last five minutes");
    if (const auto grown = m_tonight.grownFrom(log, likeness.continues))
        portion.entry = *grown;
    portion.content = nullptr; // two cannot read at the same time
    portion.content = std::make_unique<LogContent>(log.file);
    if (portion.entry.id != 0 && !portion.content->skip(portion.entry))
        return leave(log, "was changed while it was read");
    return take(log, std::move(portion), transaction);
}

/// Notes that all of a log was imported as \a entry before.
Import::Outcome Import::settle(
    Log &log, const Entry &entry, bool whole, LogContent &content, db::Transaction &transaction)
{
    const bool intact = content.intact();
    if (!intact && isBeingMade(log))
        return leave(log, "was written to in the last five minutes");
    if (!m_tonight.know(log, entry, whole, content) || !transaction.commit())
        return postpone(log);
    if (!intact)
        printf("%s is damaged, but it was imported as %s on %s\n",
            shown(log.file.path()).constData(), shown(entry.name).constData(),
            qPrintable(entry.at));
    return Outcome::Nothing;
}

/// Takes what is left of a log, in one transaction.
Import::Outcome Import::take(Log &log, Portion portion, db::Transaction &transaction)
{
    const bool isNew = portion.entry.id == 0;
    const auto result = m_task == Store ? store(log, portion, transaction) : passOver(portion);
    if (!result)
        return Outcome::Failed;
    if (!log.file.isArchive() && log.file.isShorterThan(portion.content->bytes()))
        return leave(log, "was cut off while it was read");
    if (isNew && result->lines > 0 && result->skipped == result->lines)
        return takeStrange(log, portion, *result, transaction);
    if (!save(log, portion, result->days, transaction))
        return Outcome::Failed;
    if (m_task == Store)
        tell(log, *result);
    return Outcome::Done;
}

/// What becomes of a log without one entry: only rubbish is noted, so that it is told once.
Import::Outcome Import::takeStrange(
    Log &log, Portion &portion, const Ingest::Result &result, db::Transaction &transaction)
{
    tell(log, result);
    portion.entry.lines = portion.entry.stored = std::nullopt;
    if (isRubbish(portion.firstLine) && !save(log, portion, {}, transaction))
        return Outcome::Failed;
    return refuse(log, strangeFormat(portion.firstLine));
}

/// Notes what is taken, and ends the transaction. False after a message.
bool Import::save(Log &log, Portion &portion, const QSet<QDate> &days, db::Transaction &transaction)
{
    Entry &entry = portion.entry;
    entry.content = portion.content->checksum();
    entry.bytes = portion.content->bytes();
    entry.beginnings = portion.content->beginnings();
    entry.name = log.file.path();
    const bool saved = m_ledger.save(entry) && m_tonight.know(log, entry, true, *portion.content)
        && m_ledger.addDays(days) && transaction.commit();
    if (!saved)
        refuse(log, QStringLiteral("may not be imported: the next run finds out and does it"));
    return saved;
}

void Import::tell(const Log &log, const Ingest::Result &result)
{
    printf("%s: %d lines, %d stored, %d not log entries\n", shown(log.file.path()).constData(),
        result.lines, result.stored, result.skipped);
}

/// Only notes the lines that are left.
std::optional<Ingest::Result> Import::passOver(Portion &portion)
{
    portion.entry.span.unite(spanOf(*portion.content));
    return Ingest::Result();
}

/// Stores the lines that are left. Nothing, after a message, when not all of them could be, or had
/// been before.
std::optional<Ingest::Result> Import::store(
    const Log &log, Portion &portion, db::Transaction &transaction)
{
    const Site &site = m_ledger.site();
    Ingest::Result result = m_ingest.ingest(
        site.id, site.host, [&] { return portion.content->next(); }, &transaction);
    QString why;
    if (!result.lost.isEmpty())
        why = lostSlice(result.lost.first());
    else if (!portion.content->intact())
        why = damage(log.file);
    else if (const auto former = changedFrom(log, portion.entry, result))
        why = changed(*former, site.host);
    if (!why.isEmpty()) {
        refuse(log, why);
        return {};
    }
    portion.entry.span.unite(spanOf(result));
    portion.entry.lines = portion.entry.lines.value_or(0) + result.lines;
    portion.entry.stored = portion.entry.stored.value_or(0) + result.stored;
    return result;
}

/// The entry that a log, whose lines are stored by now, is a changed form of: one that is not there
/// any more, has lines of the same time, and whose requests are those of the log.
std::optional<Entry> Import::changedFrom(
    const Log &log, const Entry &own, const Ingest::Result &result)
{
    const Span span = spanOf(result);
    const auto others = span.first ? m_ledger.entriesWithin(span) : QList<Entry>();
    for (const Entry &other : others.value_or(QList<Entry>())) {
        const Span common { std::max(span.first, other.span.first),
            std::min(span.last, other.span.last) };
        if (other.id == own.id || m_tonight.isThere(other, log))
            continue;
        const auto repeats = m_ledger.repeats(common);
        if (repeats && repeats->repeated * kRepeatedOfAll > result.stored
            && repeats->repeated * kRepeatedWithin >= repeats->requests)
            return other;
    }
    return {};
}

/// What becomes of a log of which not all can be read. One of which nothing can be read, not even
/// the first line, may be known by its name, its time or its file.
Import::Outcome Import::damaged(Log &log, Portion portion, db::Transaction &transaction)
{
    if (m_task == Note)
        return take(log, std::move(portion), transaction);
    if (isBeingMade(log))
        return leave(log, "was written to in the last five minutes");
    const auto former
        = portion.content->beginnings().isEmpty() ? m_tonight.former(log) : std::optional<Entry>();
    if (former)
        return settle(log, *former, false, *portion.content, transaction);
    return refuse(log, damage(log.file));
}

bool Import::isYoung(const Log &log) const
{
    return m_task == Store && std::abs(log.file.age()) < kYoungSecs;
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

Import::Outcome Import::leave(const Log &log, const char *why)
{
    printf("%s %s and is left for the next run\n", shown(log.file.path()).constData(), why);
    return Outcome::Waits;
}

Import::Outcome Import::refuse(const Log &log, const QString &why)
{
    qWarning("%s %s", shown(log.file.path()).constData(), shown(why).constData());
    return Outcome::Failed;
}

Import::Outcome Import::postpone(const Log &log)
{
    return refuse(log, QStringLiteral("is not imported, the next run tries again"));
}

void Import::finish()
{
    db::Transaction transaction;
    const bool done = transaction.isOpen() && m_tonight.tidy()
        && (m_task == Note || m_ledger.replaceYoung(m_areYoung)) && transaction.commit();
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

} // namespace vesk::nightly
