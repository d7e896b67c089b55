#include "common/Gzip.h"

#include <QFile>
#include <QProcess>

namespace vesk {

namespace {

/// gzip's exit status for a warning, such as zero padding after the archive: all data is there.
constexpr int kGunzipWarning = 2;

void set(bool *flag, bool value)
{
    if (flag)
        *flag = value;
}

} // namespace

bool isGzipName(const QString &path)
{
    return path.endsWith(QLatin1String(".gz"));
}

QByteArray readMaybeGzip(const QString &path, bool *intact)
{
    QFile f(path);
    const bool opened = f.open(QIODevice::ReadOnly);
    set(intact, opened);
    if (!opened)
        return {};
    return isGzipName(path) ? gunzip(f.readAll(), intact) : f.readAll();
}

QByteArray gunzip(const QByteArray &data, bool *intact)
{
    set(intact, false);
    QProcess p;
    p.start(QStringLiteral("gunzip"), { QStringLiteral("-c") });
    if (!p.waitForStarted(-1))
        return {};
    p.write(data);
    p.closeWriteChannel();
    p.waitForFinished(-1);
    set(intact,
        p.exitStatus() == QProcess::NormalExit
            && (p.exitCode() == 0 || p.exitCode() == kGunzipWarning));
    return p.readAllStandardOutput();
}

} // namespace vesk
