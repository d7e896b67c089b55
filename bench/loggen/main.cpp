// Writes a made-up access log in the combined format, with the duration in microseconds as last
// field. The same arguments give the same bytes on every machine.

#include "Traffic.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <QTimeZone>

#include <cstdio>
#include <optional>

namespace {

/// Nothing if an argument is not understood.
std::optional<Options> readOptions(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.addOptions(
        { { "lines", {}, "N", "100000" }, { "seed", {}, "N", "1" }, { "days", {}, "N", "3" },
            { "start", {}, "YYYY-MM-DD", "2026-03-01" }, { "host", {}, "HOST", "example.org" } });
    if (!parser.parse(arguments) || !parser.positionalArguments().isEmpty())
        return std::nullopt;

    bool areNumbers[3] = {};
    const QDate start = QDate::fromString(parser.value("start"), Qt::ISODate);
    const Options options { .lines = parser.value("lines").toLongLong(&areNumbers[0]),
        .seed = parser.value("seed").toULongLong(&areNumbers[1]),
        .days = parser.value("days").toInt(&areNumbers[2]),
        .start = start.startOfDay(QTimeZone::utc()).toSecsSinceEpoch(),
        .host = parser.value("host").toStdString() };
    const bool isGood = areNumbers[0] && areNumbers[1] && areNumbers[2] && options.lines >= 0
        && options.days >= 1 && options.days <= 366 && start.isValid() && start.year() >= 1970
        && start.year() <= 9000 && !options.host.empty();
    return isGood ? std::optional(options) : std::nullopt;
}

} // namespace

int main(int argc, char **argv)
{
    const auto options = readOptions(QStringList(argv, argv + argc));
    if (!options) {
        std::fputs("usage: loggen [--lines N] [--seed N] [--days N] [--start YYYY-MM-DD] "
                   "[--host HOST]\n",
            stderr);
        return 2;
    }
    writeTraffic(*options);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::perror("loggen");
        return 1;
    }
    return 0;
}
