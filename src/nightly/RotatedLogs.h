#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace vesk::nightly {

/// A file that is to be looked at.
struct RotatedLog
{
    QString path;
    qint64 modified = 0; ///< seconds since 1970

    /// The program that reads an archive of the kind that the name tells; empty for a plain log.
    QString decompressor() const;
    bool isArchive() const { return !decompressor().isEmpty(); }
    /// Bytes without compression, of a gzip archive modulo 2^32; nothing where only reading tells.
    std::optional<qint64> size() const;
    /// Whether it may be those \a bytes long without compression, as far as size() tells.
    bool hasSize(qint64 bytes) const;
    /// Seconds since it was written to. Negative when the clock has been set back.
    qint64 age() const;
};

/// The shell patterns of VESK_LOGS, or else those of Debian's folders for the site \a host.
QStringList logPatterns(const QString &host);

/// The regular files that match any of the patterns, oldest first, each path once.
QList<RotatedLog> findLogs(const QStringList &patterns);

/// The folders of the patterns that are there but cannot be searched.
QStringList closedFolders(const QStringList &patterns);

} // namespace vesk::nightly
