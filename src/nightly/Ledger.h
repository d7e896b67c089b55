#pragma once

#include "common/Sites.h"

#include <QByteArray>
#include <QDate>
#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

/// The import of rotated logs, each one once: what vesk-nightly does.
namespace vesk::nightly {

/// What is known of a log that was imported, or noted as such.
struct Entry
{
    qint64 id = 0; ///< 0: not in the table yet
    QByteArray firstLine; ///< SHA-256 of the first line with its line feed, in hexadecimal digits
    QByteArray content; ///< SHA-256 of the first \a bytes bytes; of overlong lines their beginnings
    qint64 bytes = 0; ///< imported so far, without compression
    QString name; ///< the path it had
    std::optional<qint64> lines; ///< nothing when it was only noted
    std::optional<qint64> stored;
    QString at; ///< date and time of the latest import in the session's time zone; only read
};

/// The tables of schema vesk_nightly for one site: which logs are imported, and which days are
/// still to be rolled up. All functions report failed statements as db::exec() does.
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
    /// Waits for that.
    bool lock();
    /// The same until the end of the open transaction, which holds also after a lost connection.
    bool lockTransaction();

    /// Makes the schema when it is missing.
    bool create();

    /// All logs, in the order of their import. Nothing on failure.
    std::optional<QList<Entry>> entries();
    /// Those that begin with that line, the longest first.
    std::optional<QList<Entry>> entries(const QByteArray &firstLine);

    /// Adds an entry, or changes it when it has an id.
    bool save(const Entry &entry);

    /// The days that are to be rolled up, in order.
    std::optional<QList<QDate>> days();
    bool addDays(const QSet<QDate> &days);
    /// Rolls a day up and takes it off the list, both or neither.
    bool rollUp(QDate day);

private:
    std::optional<QList<Entry>> read(const QString &condition, const QByteArray &firstLine);

    Site m_site;
};

} // namespace vesk::nightly
