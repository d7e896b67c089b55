#include "common/Config.h"
#include "common/Program.h"
#include "common/Sites.h"
#include "common/Text.h"
#include "report/Pages.h"
#include "report/Reader.h"
#include "report/Writers.h"

#include <QCommandLineOption>

#include <cstdio>
#include <limits>

using namespace vesk::report;
using vesk::clean;

namespace {

/// The site with \a host, or the only one there is when that is empty. A message says why there is
/// none.
std::optional<ReportedSite> siteOf(const QString &host)
{
    const auto sites = vesk::allSites();
    if (!sites)
        return {};
    const auto site = !host.isEmpty() ? vesk::findSite(host)
        : sites->size() == 1          ? std::optional(sites->first())
                                      : std::nullopt;
    if (site)
        return readCalendar(*site);
    QStringList hosts;
    for (const vesk::Site &one : *sites)
        hosts += clean(one.host);
    const QString known = hosts.join(QLatin1String(", "));
    if (sites->isEmpty())
        qCritical("there are no sites yet (add one with vesk-admin add-site)");
    else if (host.isEmpty())
        qCritical("which site? There are: %s", qPrintable(known));
    else
        qCritical("unknown site %s; there are: %s", qPrintable(clean(host)), qPrintable(known));
    return {};
}

/// The period that \a text names, by default the last complete day.
std::optional<Period> periodOf(const QString &text, const ReportedSite &site)
{
    if (site.newest.isNull()) {
        qCritical("%s has no reports yet (import its logs with vesk-nightly import HOST)",
            qPrintable(clean(site.host)));
        return {};
    }
    if (text.isEmpty())
        return daysUpTo(site.calendar.lastComplete, 1);
    const auto period = parsePeriod(text, site.calendar);
    if (!period)
        qCritical("%s is no period. Periods are: %s", qPrintable(clean(text)), kPeriodForms);
    return period;
}

/// Arguments are HOST, PERIOD, both or none. One alone is a period when it reads as one.
bool split(const QStringList &arguments, QString *host, QString *period)
{
    const QDate any(2000, 1, 1);
    const bool isPeriod
        = arguments.size() == 1 && parsePeriod(arguments[0], { any, any }).has_value();
    *host = isPeriod ? QString() : arguments.value(0);
    *period = isPeriod ? arguments[0] : arguments.value(1);
    return arguments.size() <= 2;
}

/// What the options say. Nothing, after a message, when one of them has a wrong value.
std::optional<Options> optionsOf(const QCommandLineParser &parser)
{
    Options options;
    const QString scope = parser.value(QStringLiteral("scope"));
    const QString rows = parser.value(QStringLiteral("rows"));
    options.everyone = scope == QLatin1String("all");
    options.addresses = parser.isSet(QStringLiteral("addresses"));
    options.rows = rows == QLatin1String("all") ? std::numeric_limits<int>::max() : rows.toInt();
    if (!options.everyone && scope != QLatin1String("people"))
        qCritical("unknown scope %s: it is people or all", qPrintable(clean(scope)));
    else if (options.rows < 1)
        qCritical("--rows takes a number or all, not %s", qPrintable(clean(rows)));
    else
        return options;
    return {};
}

void addOptions(QCommandLineParser &parser)
{
    const auto add = [&parser](const char *name, const char *text, const char *value = "",
                         const char *standard = "") {
        parser.addOption(QCommandLineOption(QLatin1String(name), QLatin1String(text),
            QLatin1String(value), QLatin1String(standard)));
    };
    add("html", "Write a web page.");
    add("json", "Write JSON.");
    add("rows", "Show as many rows of each list, or all.", "number", "15");
    add("scope", "Whom the lists count: people, or all to have unverified browsers in them.",
        "scope", "people");
    add("addresses", "List the addresses of scanners. They are personal data.");
    add("pages", "Write web pages and an index into the folder.", "folder");
    parser.addPositionalArgument(QStringLiteral("host"),
        QStringLiteral("The site; may be left out when there is only one."),
        QStringLiteral("[HOST]"));
    parser.addPositionalArgument(QStringLiteral("period"),
        QLatin1String("The last complete day, or one of these: ") + QLatin1String(kPeriodForms),
        QStringLiteral("[PERIOD]"));
}

QByteArray write(const Report &report, const QCommandLineParser &parser)
{
    if (parser.isSet(QStringLiteral("json")))
        return toJson(report);
    return parser.isSet(QStringLiteral("html")) ? toHtml(report) : toText(report);
}

/// Reads and shows. False, after a message, when there is nothing to show.
bool run(const QCommandLineParser &parser, const QString &host, const QString &periodText)
{
    const auto options = optionsOf(parser);
    const Snapshot snapshot;
    const auto site = options && snapshot.isOpen() ? siteOf(host) : std::nullopt;
    const auto period = site ? periodOf(periodText, *site) : std::nullopt;
    if (!period)
        return false;
    if (parser.isSet(QStringLiteral("pages")))
        return writePages(*site, parser.value(QStringLiteral("pages")), *options);
    const auto report = readReport(*site, *period, *options);
    if (!report)
        return false;
    const QByteArray text = write(*report, parser);
    fwrite(text.constData(), 1, size_t(text.size()), stdout);
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    vesk::Program program("vesk-report", argc, argv);
    QCommandLineParser &parser = program.parser();
    addOptions(parser);
    program.process();
    QString host;
    QString period;
    const bool understood = split(parser.positionalArguments(), &host, &period);
    const QString path = vesk::configPath(parser);
    if (path.isEmpty() || !understood)
        parser.showHelp(1);
    vesk::Program::leaveOutRepeats();
    return program.connect(path, vesk::Program::Unreadable::Refuse) && run(parser, host, period)
        ? 0
        : 1;
}
