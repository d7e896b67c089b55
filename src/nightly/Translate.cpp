#include "nightly/Translate.h"

#include "common/FilePath.h"
#include "common/LineReader.h"
#include "common/Text.h"
#include "nightly/RotatedLogs.h"
#include "translate/MergedLines.h"
#include "translate/TranslatedLog.h"

#include <QByteArray>
#include <QFile>
#include <QStandardPaths>

#include <cstdio>
#include <memory>
#include <vector>

#include <unistd.h>

namespace vesk::nightly {

using translate::SiteHosts;

namespace {

/// Why a file cannot be read at all; empty when it can.
QString obstacle(const QString &path)
{
    QFile file;
    if (!openForReading(file, path))
        return file.errorString();
    const QString program = decompressorOf(path);
    if (!program.isEmpty() && QStandardPaths::findExecutable(program).isEmpty())
        return QStringLiteral("the program %1 is missing, install it").arg(program);
    return {};
}

/// A file that is read and translated.
class Log
{
public:
    Log(const QString &path, QString name, const std::optional<SiteHosts> &hosts)
        : m_name(std::move(name))
        , m_obstacle(obstacle(path))
        , m_reader(path, decompressorOf(path))
        , m_lines([this] { return nextRaw(); }, hosts)
    {
    }

    std::optional<QByteArrayView> next() { return m_lines.next(); }

    /// Tells what was found. False when not all could be read.
    bool report()
    {
        if (!m_obstacle.isEmpty()) {
            qWarning("%s cannot be read: %s", qPrintable(clean(m_name)), qPrintable(m_obstacle));
            return false;
        }
        QStringList formats;
        for (const translate::Format format : m_lines.formats())
            formats += translate::formatName(format);
        if (formats.isEmpty())
            formats += QStringLiteral("no known format");
        qInfo("%s: %s, %lld lines, %lld of other hosts, %lld not translated",
            qPrintable(clean(m_name)), qPrintable(formats.join(QLatin1String(", then "))),
            m_lines.lines(), m_lines.othersLines(), m_lines.strangeLines());
        if (m_reader.intact())
            return true;
        qWarning("%s is damaged or cannot be read to its end", qPrintable(clean(m_name)));
        return false;
    }

private:
    /// What is behind the last line feed is a line only if there is anything.
    std::optional<QByteArrayView> nextRaw()
    {
        const auto line = m_reader.next();
        return line && line->isEmpty() && m_reader.lastTaken() ? std::nullopt : line;
    }

    QString m_name;
    QString m_obstacle; ///< why it cannot be read; empty when it can
    LineReader m_reader;
    translate::TranslatedLog m_lines;
};

/// On a terminal without what would control it.
void write(QByteArrayView line, bool toTerminal)
{
    QByteArray cleaned;
    if (toTerminal)
        line = cleaned = clean(QString::fromUtf8(line)).toLocal8Bit();
    fwrite(line.data(), 1, static_cast<size_t>(line.size()), stdout);
    putchar('\n');
}

} // namespace

bool translateLogs(const QStringList &files, const std::optional<QString> &host)
{
    std::optional<SiteHosts> hosts;
    if (host)
        hosts.emplace(*host, qEnvironmentVariable("VESK_HOSTS"));
    std::vector<std::unique_ptr<Log>> logs;
    for (const QString &file : files)
        logs.push_back(std::make_unique<Log>(file, file, hosts));
    if (files.isEmpty())
        logs.push_back(std::make_unique<Log>(
            QStringLiteral("/dev/stdin"), QStringLiteral("standard input"), hosts));

    std::vector<translate::LineSource> sources;
    sources.reserve(logs.size());
    for (const auto &log : logs)
        sources.emplace_back([&log] { return log->next(); });
    translate::MergedLines lines(sources);
    const bool toTerminal = isatty(STDOUT_FILENO) == 1;
    if (!toTerminal) // a call for each line would take most of the time
        setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
    for (auto line = lines.next(); line && !ferror(stdout); line = lines.next())
        write(*line, toTerminal);

    bool complete = true;
    for (const auto &log : logs)
        complete = log->report() && complete;
    return complete;
}

} // namespace vesk::nightly
