#include "nightly/Tonight.h"

#include "common/Sha256.h"

#include <algorithm>

namespace vesk::nightly {

bool Tonight::open(const QStringList &paths)
{
    const auto files = m_ledger.files();
    if (!files)
        return false;
    m_files = *files;
    for (const RotatedLog &file : openLogs(paths)) {
        Log log { file };
        const auto known = std::find_if(m_files.begin(), m_files.end(),
            [&file](const KnownFile &one) { return one.state == file.state(); });
        if (known != m_files.end() && known->settled) {
            log.entry = known->entry;
            log.whole = known->whole;
            log.file.close();
        }
        m_logs.append(log);
    }
    return true;
}

qint64 Tonight::formerEntry(const Log &log) const
{
    for (const KnownFile &file : m_files) {
        if (file.state.isSameFile(log.file.state()))
            return file.entry;
    }
    return 0;
}

std::optional<Entry> Tonight::former(
    const Log &log, const LogContent &content, const QByteArray &firstLine)
{
    const FileState &state = log.file.state();
    for (const KnownFile &file : m_files) {
        const bool sameFile = file.state.isSameFile(state);
        const bool sameTime = file.state.modified / FileState::kNanoseconds
            == state.modified / FileState::kNanoseconds;
        const auto entries
            = sameFile || sameTime ? m_ledger.entriesWithId(file.entry) : QList<Entry>();
        for (const Entry &entry : entries.value_or(QList<Entry>())) {
            const bool sameName = lineage(entry.name) == lineage(log.file.path());
            const bool isKnown = content.beginnings().isEmpty()
                ? int { sameFile } + int { sameTime } + int { sameName } >= 2
                : sameTime && sameName && entry.firstLine == firstLine
                    && content.checksumAt(entry.bytes) != entry.content;
            if (isKnown && !isThere(entry, log))
                return entry;
        }
    }
    return {};
}

bool Tonight::isThere(const Entry &entry, const Log &but)
{
    return std::any_of(m_logs.begin(), m_logs.end(), [&](Log &log) {
        if (&log == &but)
            return false;
        if (log.entry == 0 && log.file.obstacle().isEmpty())
            recognise(log);
        return log.entry == entry.id && log.whole;
    });
}

/// Finds out whether its content is imported, as it is.
void Tonight::recognise(Log &log)
{
    LogContent content(log.file);
    const auto line = content.first();
    const auto entries
        = line ? m_ledger.entriesBeginning(sha256({ *line, "\n" }).toHex()) : QList<Entry>();
    if (!entries || entries->isEmpty())
        return;
    const Likeness likeness = compare(content, *entries);
    if (likeness.same && content.intact())
        know(log, *likeness.same, true, content);
}

std::optional<Entry> Tonight::grownFrom(const Log &log, const QList<Entry> &entries)
{
    for (const Entry &entry : entries) {
        if (formerEntry(log) == entry.id || !isThere(entry, log))
            return entry;
    }
    return {};
}

bool Tonight::know(Log &log, Entry entry, bool whole, const LogContent &content)
{
    const bool settled = log.file.isArchive() || content.bytes() >= log.file.state().size;
    log.entry = entry.id;
    log.whole = whole;
    bool done = m_ledger.save(KnownFile { log.file.state(), entry.id, whole, settled });
    if (done && whole && entry.beginnings.isEmpty()) { // noted without them
        entry.beginnings = content.beginnings();
        LogContent again(log.file);
        entry.span = spanOf(again);
        done = m_ledger.saveMissing(entry);
    }
    return done;
}

bool Tonight::tidy()
{
    QList<FileState> there;
    QSet<qint64> seen;
    for (const Log &log : m_logs) {
        there.append(log.file.state());
        seen.insert(log.entry);
    }
    return m_logs.isEmpty() || m_ledger.tidy(there, seen, m_logs.first().file.state().modified);
}

} // namespace vesk::nightly
