#include "common/Config.h"
#include "common/Db.h"
#include "common/Output.h"
#include "report/Reader.h"
#include "report/Writers.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSettings>

#include <cstdio>
#include <limits>

using namespace vesk::report;

namespace {

QString hostsOf(const QList<Site> &sites)
{
    QStringList hosts;
    for (const Site &site : sites)
        hosts += clean(site.host);
    return hosts.join(QLatin1String(", "));
}

/// The site with \a host, or the only one there is when that is empty. A message says why there is
/// none.
std::optional<Site> siteOf(const QString &host)
{
    const QList<Site> sites = readSites();
    for (const Site &site : sites) {
        if (site.host == host.toLower() || (host.isEmpty() && sites.size() == 1))
            return readCalendar(site);
    }
    if (sites.isEmpty())
        qCritical("there are no sites yet (add one with vesk-admin add-site)");
    else if (host.isEmpty())
        qCritical("which site? There are: %s", qPrintable(hostsOf(sites)));
    else
        qCritical(
            "unknown site %s; there are: %s", qPrintable(clean(host)), qPrintable(hostsOf(sites)));
    return {};
}

/// The period that \a text names, by default the last complete day.
std::optional<Period> periodOf(const QString &text, const Site &site)
{
    if (site.newest.isNull()) {
        qCritical("%s has no reports yet (import its log with vesk-admin import-log)",
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

} // namespace

int main(int argc, char **argv)
{
    vesk::prepareOutput();
    const QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vesk-report"));
    QCoreApplication::setApplicationVersion(QStringLiteral("0.1"));

    QCommandLineParser parser;
    parser.addHelpOption();
    vesk::addConfigOption(parser);
    parser.process(app);
    QString host;
    QString period;
    if (!split(parser.positionalArguments(), &host, &period))
        parser.showHelp(1);
    const QString path = vesk::configPath(parser);
    if (path.isEmpty())
        return 1;
    const QSettings cfg(path, QSettings::IniFormat);
    if (!vesk::db::open(cfg, QCoreApplication::applicationName()))
        return 1;
    const Snapshot snapshot;
    const auto site = snapshot.isOpen() ? siteOf(host) : std::nullopt;
    const auto days = site ? periodOf(period, *site) : std::nullopt;
    Options options;
    options.mostBars = 31;
    const auto report = days ? readReport(*site, *days, options) : std::nullopt;
    if (!report)
        return 1;
    const QByteArray text = toText(*report);
    fwrite(text.constData(), 1, size_t(text.size()), stdout);
    return 0;
}
