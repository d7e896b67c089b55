#pragma once

#include "nightly/Ledger.h"
#include "nightly/LogContent.h"

namespace vesk::nightly {

/// The logs of a run, and what of them is known.
class Tonight
{
public:
    struct Log
    {
        RotatedLog file;
        qint64 entry = 0; ///< whose content it has; 0 as long as that is not known
        bool whole = false; ///< all of that content, and not a beginning of it
    };

    explicit Tonight(Ledger &ledger)
        : m_ledger(ledger)
    {
    }

    /// Opens \a paths. What is as it was in the last run is known by that. False when the ledger
    /// cannot be read.
    bool open(const QStringList &paths);

    QList<Log> &logs() { return m_logs; }

    /// The id of the entry that the file had the content of in the last run, as it was then; 0 when
    /// it was not there.
    qint64 formerEntry(const Log &log) const;

    /// The entry that \a log, of which only \a content can be read, was in the last run: not there
    /// any more, and alike in two of file, time of the last change, and name but for the rotation.
    /// Of one that can be read in part these are time and name, and the first line is the same.
    std::optional<Entry> former(
        const Log &log, const LogContent &content, const QByteArray &firstLine);

    /// Whether a log other than \a but has all of the content of \a entry, and no more.
    bool isThere(const Entry &entry, const Log &but);

    /// The longest of \a entries that \a log, which begins with each of them, has grown from: one
    /// that is the same file, or is not there on its own any more.
    std::optional<Entry> grownFrom(const Log &log, const QList<Entry> &entries);

    /// Notes that \a log, read to its end as \a content, has the content of \a entry, or with
    /// \a whole unset a beginning of it. In the caller's transaction, false when that is lost.
    bool know(Log &log, Entry entry, bool whole, const LogContent &content);

    /// Forgets what is not there any more. False when that failed.
    bool tidy();

private:
    void recognise(Log &log);

    Ledger &m_ledger;
    QList<Log> m_logs;
    QList<KnownFile> m_files; ///< of the last run
};

} // namespace vesk::nightly
