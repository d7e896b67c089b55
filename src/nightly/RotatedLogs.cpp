#include "nightly/RotatedLogs.h"

#include "common/FilePath.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <tuple>

#include <glob.h>

namespace vesk::nightly {

namespace {

struct Compression
{
    const char *suffix;
    const char *program;
};

constexpr std::array kCompressions { Compression { ".gz", "gunzip" },
    Compression { ".bz2", "bzip2" }, Compression { ".xz", "xz" }, Compression { ".zst", "zstd" } };

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

} // namespace

QString RotatedLog::decompressor() const
{
    for (const Compression &compression : kCompressions) {
        if (path.endsWith(QLatin1String(compression.suffix)))
            return QLatin1String(compression.program);
    }
    return {};
}

std::optional<qint64> RotatedLog::size() const
{
    QFile file;
    if (!openForReading(file, path))
        return {};
    if (!isArchive())
        return file.size();
    if (decompressor() != QLatin1String("gunzip") || file.size() < 18
        || !file.seek(file.size() - 4))
        return {};
    const QByteArray trailer = file.read(4); // RFC 1952: the size, least significant byte first
    if (trailer.size() != 4)
        return {};
    return qFromLittleEndian<quint32>(trailer.constData());
}

bool RotatedLog::hasSize(qint64 bytes) const
{
    const auto known = size();
    return known && *known == (isArchive() ? bytes & 0xffffffff : bytes);
}

qint64 RotatedLog::age() const
{
    return QDateTime::currentSecsSinceEpoch() - modified;
}

QStringList logPatterns(const QString &host)
{
    const QString given = qEnvironmentVariable("VESK_LOGS").simplified();
    if (!given.isEmpty())
        return given.split(u' ');
    QStringList patterns;
    for (const char *server : { "nginx", "apache2" })
        patterns += QStringLiteral("/var/log/%1/%2.log[-.][0-9]*")
                        .arg(QLatin1String(server), literal(host));
    return patterns;
}

QList<RotatedLog> findLogs(const QStringList &patterns)
{
    QSet<QString> seen;
    QList<RotatedLog> logs;
    for (const QString &pattern : patterns) {
        for (const QString &path : expand(pattern)) {
            const QFileInfo info(filePath(path));
            if (info.isFile() && !seen.contains(path))
                logs.append({ path, info.lastModified().toSecsSinceEpoch() });
            seen.insert(path);
        }
    }
    std::sort(logs.begin(), logs.end(), [](const RotatedLog &a, const RotatedLog &b) {
        return std::tie(a.modified, a.path) < std::tie(b.modified, b.path);
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
