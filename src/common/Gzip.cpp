#include "common/Gzip.h"

#include "common/FilePath.h"

#include <QFile>
#include <QProcess>

#include <csignal>

#include <sys/prctl.h>
#include <unistd.h>

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
    QFile f;
    const bool opened = openForReading(f, path);
    set(intact, opened);
    if (!opened)
        return {};
    return isGzipName(path) ? gunzip(f.readAll(), intact) : f.readAll();
}

QByteArray gunzip(const QByteArray &data, bool *intact)
{
    set(intact, false);
    QProcess p;
    if (!startDecompressor(p, QStringLiteral("gunzip")))
        return {};
    p.write(data);
    p.closeWriteChannel();
    p.waitForFinished(-1);
    set(intact, endedWell(p));
    return p.readAllStandardOutput();
}

bool startDecompressor(QProcess &child, const QString &program, int input)
{
    if (input >= 0)
        child.setStandardInputFile(QProcess::nullDevice()); // no pipe; replaced below
    // Runs between fork and exec, where only what a signal handler may do is allowed.
    child.setChildProcessModifier([input, parent = getpid()] {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent || (input >= 0 && dup2(input, STDIN_FILENO) < 0))
            _exit(1);
    });
    child.start(program, { QStringLiteral("-dc") });
    return child.waitForStarted(-1);
}

bool endedWell(const QProcess &child)
{
    const bool warned
        = child.exitCode() == kGunzipWarning && child.program() == QLatin1String("gunzip");
    return child.exitStatus() == QProcess::NormalExit && (child.exitCode() == 0 || warned);
}

} // namespace vesk
