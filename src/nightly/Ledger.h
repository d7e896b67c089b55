#pragma once

#include "common/Sites.h"
#include "nightly/Entry.h"
#include "nightly/RotatedLogs.h"

#include <QDate>
#include <QHash>
#include <QSet>

namespace vesk::nightly {

/// A file that was there in the last run.
struct KnownFile
{
    FileState state;
    qint64 entry = 0; ///< the id of the entry that its content belongs to
    bool whole = false; ///< it holds all that the entry stands for, and not a beginning of that
    bool settled = false; ///< as long as its state stays nothing of it can be new
};

/// The tables of schema vesk_nightly for one site: which logs are imported, and which days are
/// still to be rolled up. All functions report failed statements as db::exec() does, and then
/// return false or nothing.
class Ledger
{
public:
    explicit Ledger(const Site &site)
        : m_site(site)
    {
    }

    const Site &site() const { return m_site; }

    /// Whether no other session works on the site; then none will until this one ends.
    bool tryLock();
    /// Waits until no other session works on the site; then none will until this one ends.
    bool lock();
    /// Keeps other sessions from working on the site until the end of the open transaction, also
    /// after a lost connection.
    bool lockTransaction();

    /// Makes the tables when they are missing, and changes those of the first version.
    bool create();

    /// Whether nothing was ever imported or noted.
    std::optional<bool> isEmpty();
    /// Whether the site was added in the last three days.
    std::optional<bool> isNew();

    /// All logs, in the order of their import. None when there are no tables.
    std::optional<QList<Entry>> entries();
    /// Those whose first line has the checksum \a firstLine, the longest first.
    std::optional<QList<Entry>> entriesBeginning(const QByteArray &firstLine);
    /// Those with lines between the first and the last time of \a span, the latest import first.
    std::optional<QList<Entry>> entriesWithin(const Span &span);
    std::optional<QList<Entry>> entriesWithId(qint64 id);

    /// Adds an entry, which then has an id, or changes it when it has one.
    bool save(Entry &entry);
    /// The times and beginnings of an entry, which the first version of the tables did not have.
    bool saveMissing(const Entry &entry);

    std::optional<QList<KnownFile>> files();
    bool save(const KnownFile &file);
    /// Forgets the files that are not among \a there, notes that the entries \a seen were seen, and
    /// removes those that were not for 400 days and longer than since \a oldest, in nanoseconds
    /// since 1970.
    bool tidy(const QList<FileState> &there, const QSet<qint64> &seen, qint64 oldest);

    /// In how many runs on end logs were left for being young, by the checksums of their contents.
    std::optional<QHash<QByteArray, int>> young();
    bool replaceYoung(const QHash<QByteArray, int> &young);

    struct Repeats
    {
        qint64 requests = 0; ///< stored in this transaction
        qint64 repeated
            = 0; ///< those of them whose time, method, path, status and size were stored
    };
    /// Of the requests within \a span.
    std::optional<Repeats> repeats(const Span &span);

    /// The days that are to be rolled up, in order.
    std::optional<QList<QDate>> days();
    bool addDays(const QSet<QDate> &days);

    enum class RolledUp { Done, Left, Failed };
    /// Rolls a day up, stores its figures and takes it off the list, all or nothing. A day of which
    /// the report counts more requests than are stored, or whose requests were deleted by this
    /// program, is taken off the list and left as it is.
    RolledUp rollUp(QDate day);

    /// The first days that have all requests of their report, but not the figures of these.
    std::optional<QList<QDate>> daysWithoutFigures();
    bool storeFigures(QDate day);

private:
    std::optional<QList<Entry>> read(const QString &condition, const QVariantList &values);

    Site m_site;
};

} // namespace vesk::nightly
