#pragma once

#include <QString>
#include <QStringList>

#include <memory>

class QFile;

namespace vesk::nightly {

/// Which file it is and what it was like. As long as nothing here differs it is not read again.
struct FileState
{
    qint64 device = 0;
    qint64 inode = 0;
    qint64 modified = 0; ///< nanoseconds since 1970
    qint64 size = 0; ///< bytes on disk

    static constexpr qint64 kNanoseconds = 1000000000; ///< in a second

    bool operator==(const FileState &other) const = default;
    bool isSameFile(const FileState &other) const
    {
        return device == other.device && inode == other.inode;
    }
};

/// The program that reads an archive of the kind that the name \a path tells; empty for a plain
/// log.
QString decompressorOf(const QString &path);

/// A file that is to be looked at, open since it was listed: what becomes of its name does not
/// matter.
class RotatedLog
{
public:
    /// Opens \a path. What is no regular file, or is not there any more, gives a log that isGone().
    explicit RotatedLog(const QString &path);

    const QString &path() const { return m_path; }
    bool isGone() const { return m_gone; }
    /// Why it cannot be read; empty when it can.
    QString obstacle() const;

    /// As it was when it was opened.
    const FileState &state() const { return m_state; }
    /// Seconds between then and its last change. Negative when it was changed in the future.
    qint64 age() const { return m_age; }
    /// Whether it is as it was when it was opened.
    bool isUnchanged() const;

    QString decompressor() const { return decompressorOf(m_path); }
    bool isArchive() const { return !decompressor().isEmpty(); }

    int handle() const;
    void close();

private:
    QString m_path;
    std::shared_ptr<QFile> m_file;
    bool m_gone = false;
    QString m_error;
    FileState m_state;
    qint64 m_age = 0;
};

/// \a path without what rotation and compression add: what all logs of one web server and site have
/// in common.
QString lineage(const QString &path);

/// Whether VESK_HOURLY is set: then logs are read while the web server writes to them.
bool readsLiveLogs();

/// The shell patterns of VESK_LOGS, or else those of Debian's folders for the site \a host; with
/// \a live the log that the web server writes to, too.
QStringList logPatterns(const QString &host, bool live);

/// The paths that match any of the patterns.
QStringList expand(const QStringList &patterns);

/// The regular files among \a paths, oldest first, each file once. Those that cannot be opened
/// are among them.
QList<RotatedLog> openLogs(const QStringList &paths);

/// The folders of the patterns that are there but cannot be searched.
QStringList closedFolders(const QStringList &patterns);

} // namespace vesk::nightly
