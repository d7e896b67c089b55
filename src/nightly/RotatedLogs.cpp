#include "nightly/RotatedLogs.h"

#include "common/FilePath.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>
#include <array>

#include <glob.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace vesk::nightly {

namespace {

struct Compression
{
    const char *suffix;
    const char *program;
};

constexpr std::array kCompressions { Compression { ".gz", "gunzip" },
    Compression { ".bz2", "bzip2" }, Compression { ".xz", "xz" }, Compression { ".zst", "zstd" } };

const Compression *compression(const QString &path)
{
    for (const Compression &known : kCompressions) {
        if (path.endsWith(QLatin1String(known.suffix)))
            return &known;
    }
    return nullptr;
}

/// \a text as a part of a pattern that matches nothing else.
QString literal(const QString &text)
{
    QString pattern;
    for (const QChar c : text)
        pattern += QLatin1String("*?[\\").contains(c) ? QLatin1Char('\\') + QString(c) : QString(c);
    return pattern;
}

QStringList expand(const QString &pattern)
{
    glob_t found {};
    QStringList paths;
    if (glob(QFile::encodeName(pattern).constData(), 0, nullptr, &found) == 0) {
        for (size_t i = 0; i < found.gl_pathc; ++i)
            paths += QFile::decodeName(found.gl_pathv[i]);
    }
    globfree(&found);
    return paths;
}

/// Nothing of it is known when the system does not tell.
FileState stateOf(const QFile &file)
{
    struct stat status = {};
    fstat(file.handle(), &status);
    return { static_cast<qint64>(status.st_dev), static_cast<qint64>(status.st_ino),
        status.st_mtim.tv_sec * FileState::kNanoseconds + status.st_mtim.tv_nsec, status.st_size };
}

/// Lets as many files be open as the system allows: years of logs may be new at once.
void allowManyFiles()
{
    rlimit limit {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace

RotatedLog::RotatedLog(const QString &path)
    : m_path(path)
{
    const QFileInfo info(filePath(path)); // opening what is no regular file could wait for ever
    m_gone = !info.isFile();
    if (m_gone)
        return;
    m_file = std::make_shared<QFile>();
    if (!openForReading(*m_file, path)) {
        m_gone = !QFileInfo::exists(filePath(path));
        m_error = m_file->errorString();
    } else {
        m_state = stateOf(*m_file);
        m_age = QDateTime::currentSecsSinceEpoch() - m_state.modified / FileState::kNanoseconds;
    }
}

QString RotatedLog::obstacle() const
{
    if (!m_error.isEmpty())
        return QStringLiteral("cannot be read: ") + m_error;
    const QString program = decompressor();
    if (!program.isEmpty() && QStandardPaths::findExecutable(program).isEmpty())
        return QStringLiteral("is not imported: the program %1 is missing, install it")
            .arg(program);
    return {};
}

bool RotatedLog::isUnchanged() const
{
    return stateOf(*m_file) == m_state;
}

int RotatedLog::handle() const
{
    return m_file->handle();
}

void RotatedLog::close()
{
    m_file->close();
}

QString decompressorOf(const QString &path)
{
    const Compression *known = compression(path);
    return known ? QString::fromLatin1(known->program) : QString();
}

QString lineage(const QString &path)
{
    static const QRegularExpression rotation(QStringLiteral("[-.][0-9][-.0-9]*$"));
    const Compression *known = compression(path);
    QString name = known ? path.chopped(static_cast<qsizetype>(qstrlen(known->suffix))) : path;
    return name.remove(rotation);
}

bool readsLiveLogs()
{
    return !qEnvironmentVariableIsEmpty("VESK_HOURLY");
}

QStringList logPatterns(const QString &host, bool live)
{
    const QString given = qEnvironmentVariable("VESK_LOGS").simplified();
    if (!given.isEmpty())
        return given.split(u' ');
    const QString folder = qEnvironmentVariable("VESK_LOG_FOLDER", QStringLiteral("/var/log"));
    QStringList patterns;
    for (const char *server : { "nginx", "apache2" }) {
        const QString log
            = QStringLiteral("%1/%2/%3.log").arg(folder, QLatin1String(server), literal(host));
        patterns += log + QLatin1String("[-.][0-9]*");
        if (live)
            patterns += log;
    }
    return patterns;
}

QStringList expand(const QStringList &patterns)
{
    QStringList paths;
    for (const QString &pattern : patterns)
        paths += expand(pattern);
    return paths;
}

QList<RotatedLog> openLogs(const QStringList &paths)
{
    allowManyFiles();
    QList<RotatedLog> logs;
    for (const QString &path : paths) {
        RotatedLog log(path);
        const bool isOpened = std::any_of(logs.begin(), logs.end(), [&log](const RotatedLog &one) {
            return one.path() == log.path()
                || (one.state().inode != 0 && one.state().isSameFile(log.state()));
        });
        if (!log.isGone() && !isOpened)
            logs.append(log);
    }
    std::sort(logs.begin(), logs.end(), [](const RotatedLog &a, const RotatedLog &b) {
        return std::pair(a.state().modified, a.path()) < std::pair(b.state().modified, b.path());
    });
    return logs;
}

QStringList closedFolders(const QStringList &patterns)
{
    QStringList closed;
    for (const QString &pattern : patterns) {
        for (const QString &folder : expand(pattern.left(pattern.lastIndexOf(u'/') + 1))) {
            const QFileInfo info(filePath(folder));
            if (info.isDir() && !(info.isReadable() && info.isExecutable()))
                closed += folder;
        }
    }
    closed.removeDuplicates();
    return closed;
}

} // namespace vesk::nightly
