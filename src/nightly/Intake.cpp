#include "nightly/Intake.h"

#include "common/Db.h"
#include "common/Text.h"
#include "nightly/Complaints.h"

#include <algorithm>
#include <cstdio>

namespace vesk::nightly {

using analytics::Ingest;

namespace {

/// A log is taken for another one that was changed when of its requests so many are stored already:
/// one in two of those from the time of the other, and one in twenty of all. Less than that comes
/// of one second with many like requests, in which the log was rotated.
constexpr qint64 kRepeatedWithin = 2;
constexpr qint64 kRepeatedOfAll = 20;

/// Whether a log still begins with what was read of it. Otherwise it was cut off, maybe in the
/// middle of the reading, and what was read is of two logs.
bool stillBegins(const Portion &portion)
{
    LogContent again(portion.file());
    Entry read;
    read.bytes = portion.content->bytes();
    read.content = portion.content->checksum();
    return again.skip(read);
}

} // namespace

Intake::Intake(Ledger &ledger, Tonight &tonight, Task task, Count &count)
    : m_ledger(ledger)
    , m_tonight(tonight)
    , m_task(task)
    , m_count(count)
    , m_hosts(ledger.site().host, qEnvironmentVariable("VESK_HOSTS"))
{
}

bool Intake::init()
{
    if (m_task == Task::Note || m_ingest.init())
        return true;
    qCritical("the database has no visitor_secret: run vesk-admin migrate, or restore the setting "
              "from a backup");
    return false;
}

std::vector<Tonight::Log *> Intake::take(std::vector<Portion *> group)
{
    std::vector<Tonight::Log *> again;
    if (group.size() > 1)
        printf("%zu logs are merged by time\n", group.size());
    while (!group.empty() && !takeOnce(group, again)) { }
    return again;
}

/// Whether all of \a group is settled; otherwise those that cannot be taken are not in it any more.
bool Intake::takeOnce(std::vector<Portion *> &group, std::vector<Tonight::Log *> &again)
{
    db::Transaction transaction;
    if (!transaction.isOpen() || !m_ledger.lockTransaction()) {
        m_count.failed += static_cast<qint64>(group.size());
        for (const Portion *portion : group)
            complain(portion->file(), postponed());
        return true;
    }
    for (Portion *portion : group) {
        if (!isUpToDate(*portion))
            again.push_back(portion->log);
    }
    std::erase_if(
        group, [this](Portion *portion) { return !isUpToDate(*portion) || !isAsBefore(*portion); });
    Batch batch(group, m_hosts);
    const auto days = read(group, batch, transaction);
    if (!days)
        return true;
    if (Portion *unsound = findUnsound(batch)) {
        std::erase(group, unsound);
        for (Portion *portion : group)
            portion->content = nullptr;
        return false;
    }
    bool saved = m_ledger.addDays(*days);
    for (const auto &reading : batch.readings()) {
        const bool isLeftOut = reading->isStrange() && !isRubbish(reading->portion.firstLine);
        saved = saved && (isLeftOut || save(*reading));
    }
    saved = saved && transaction.commit();
    for (const auto &reading : batch.readings()) {
        if (saved)
            tell(*reading);
        else
            complain(reading->portion.file(), uncertain());
        m_count.taken += saved && !reading->isStrange();
        m_count.failed += !saved || reading->isStrange();
    }
    return true;
}

/// Whether the entries that begin like the log are those that it was compared with.
bool Intake::isUpToDate(const Portion &portion)
{
    const auto now = m_ledger.entriesBeginning(portion.entry.firstLine);
    return now
        && std::equal(portion.relatives.begin(), portion.relatives.end(), now->begin(), now->end(),
            [](const Entry &a, const Entry &b) { return a.id == b.id && a.bytes == b.bytes; });
}

/// Opens a portion unless it is new. False, after a message, when the log is not any more what was
/// looked at.
bool Intake::isAsBefore(Portion &portion)
{
    if (portion.isNew() || portion.open())
        return true;
    leave(portion.file(), "was changed while it was read");
    ++m_count.waiting;
    return false;
}

/// Stores the lines, or only passes over them, and gives the days that they are of. Nothing, after
/// messages, when the database did not keep them.
std::optional<QSet<QDate>> Intake::read(
    const std::vector<Portion *> &group, Batch &batch, db::Transaction &transaction)
{
    if (m_task == Task::Note) {
        for (const auto &reading : batch.readings()) {
            reading->portion.open();
            reading->span = spanOf(*reading->portion.content);
        }
        return QSet<QDate>();
    }
    const Site &site = m_ledger.site();
    const Ingest::Result result = m_ingest.ingest(
        site.id, site.host, [&batch] { return batch.next(); }, &transaction,
        [&batch](auto outcome, const auto &row) { batch.count(outcome, row); });
    if (result.lost.isEmpty())
        return result.days;
    for (const Portion *portion : group)
        complain(portion->file(), lostSlice(result.lost.first(), group.size() > 1));
    m_count.failed += static_cast<qint64>(group.size());
    return {};
}

/// A log that is not to be taken, after a message; null when there is none. Requests of one that is
/// a changed form of an earlier log of its server are not held against those merged with it.
Portion *Intake::findUnsound(const Batch &batch)
{
    for (const bool sameServer : { true, false }) {
        for (const auto &reading : batch.readings()) {
            if (!isSound(*reading, sameServer))
                return &reading->portion;
        }
    }
    return nullptr;
}

/// Whether all of a log was read as it is, and it is no changed form of an earlier one of the same
/// server, or of another.
bool Intake::isSound(const Reading &reading, bool sameServer)
{
    const Portion &portion = reading.portion;
    if (m_task == Task::Store && !portion.content->intact()) {
        complain(portion.file(), damage(portion.file()));
        ++m_count.failed;
        return false;
    }
    if (!portion.file().isUnchanged() && !stillBegins(portion)) {
        leave(portion.file(), "was changed while it was read");
        ++m_count.waiting;
        return false;
    }
    const auto former = m_task == Task::Store ? changedFrom(reading, sameServer) : std::nullopt;
    if (former) {
        complain(portion.file(), changed(*former, m_ledger.site().host));
        ++m_count.failed;
    }
    return !former;
}

/// The entry that a log, whose lines are stored by now, is a changed form of: one that is not there
/// any more, is of the same server or of another, has lines of the same time, and whose requests
/// are those of the log.
std::optional<Entry> Intake::changedFrom(const Reading &reading, bool sameServer)
{
    const Span &span = reading.span;
    const auto others = span.first ? m_ledger.entriesWithin(span) : QList<Entry>();
    for (const Entry &other : others.value_or(QList<Entry>())) {
        const bool isSameServer = lineage(other.name) == lineage(reading.portion.file().path());
        const Span common { std::max(span.first, other.span.first),
            std::min(span.last, other.span.last) };
        if (isSameServer != sameServer || other.id == reading.portion.entry.id
            || m_tonight.isThere(other, *reading.portion.log))
            continue;
        const auto repeats = m_ledger.repeats(common);
        if (repeats && repeats->repeated * kRepeatedOfAll > reading.stored
            && repeats->repeated * kRepeatedWithin
                >= std::min(repeats->requests, qint64 { reading.stored }))
            return other;
    }
    return {};
}

/// Notes what is taken of a log.
bool Intake::save(const Reading &reading)
{
    Portion &portion = reading.portion;
    Entry &entry = portion.entry;
    if (m_task == Task::Store && !reading.isStrange()) {
        entry.lines = entry.lines.value_or(0) + reading.lines;
        entry.stored = entry.stored.value_or(0) + reading.stored;
    }
    entry.span.unite(reading.span);
    entry.content = portion.content->checksum();
    entry.bytes = portion.content->bytes();
    entry.beginnings = portion.content->beginnings();
    entry.name = portion.file().path();
    return m_ledger.save(entry) && m_tonight.know(*portion.log, entry, true, *portion.content);
}

void Intake::tell(const Reading &reading)
{
    if (m_task == Task::Note)
        return;
    printf("%s: %s\n", qPrintable(clean(reading.portion.file().path())),
        reading.summary().toLocal8Bit().constData());
    if (reading.isStrange())
        complain(reading.portion.file(), strangeFormat(reading.portion.firstLine));
}

} // namespace vesk::nightly
