#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

#include <optional>

namespace vesk::nightly {

class Ledger;
class Tonight;

/// What the package of before noted in files: which logs of a site are imported.
class OldMarks
{
public:
    /// Reads those of the site \a host in the folder "imported" of STATE_DIRECTORY, or of
    /// /var/lib/vesk-admin. Nothing, after a message, when they cannot be read or tell of an import
    /// that was interrupted.
    static std::optional<OldMarks> read(const QString &host);

    bool isEmpty() const { return m_sizes.isEmpty(); }

    /// How many of the \a bytes of a log, whose first line has the SHA-256 \a firstLine in
    /// hexadecimal digits, are imported.
    qint64 imported(const QByteArray &firstLine, qint64 bytes) const;

private:
    QHash<QByteArray, QList<qint64>> m_sizes; ///< modulo 2^32, by the first line
};

/// Notes what the marks cover of tonight's logs as imported, when the ledger has nothing of the
/// site yet, and says so. False after a message, when that cannot be done.
bool takeOldMarks(Ledger &ledger, Tonight &tonight);

} // namespace vesk::nightly
