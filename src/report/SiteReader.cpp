#include "report/SiteReader.h"

#include "common/Text.h"
#include "report/Statement.h"

namespace vesk::report {

namespace {

void complain(const QString &host, const QList<Site> &sites)
{
    QStringList hosts;
    for (const Site &site : sites)
        hosts += clean(site.host);
    const QString known = hosts.join(QLatin1String(", "));
    if (sites.isEmpty())
        qCritical("there are no sites yet (add one with vesk-admin add-site)");
    else if (host.isEmpty())
        qCritical("which site? There are: %s", qPrintable(known));
    else
        qCritical("unknown site %s; there are: %s", qPrintable(clean(host)), qPrintable(known));
}

} // namespace

std::optional<Site> chooseSite(const QString &host)
{
    const auto sites = chooseSites(host);
    if (!sites || sites->size() == 1)
        return sites ? std::optional(sites->first()) : std::nullopt;
    complain(host, *sites);
    return {};
}

std::optional<QList<Site>> chooseSites(const QString &host)
{
    auto sites = allSites();
    if (!sites)
        return {};
    if (!host.isEmpty() && !sites->isEmpty()) {
        if (const auto site = findSite(host))
            return QList<Site> { *site };
    } else if (!sites->isEmpty()) {
        return sites;
    }
    complain(host, *sites);
    return {};
}

std::optional<ReportedSite> readCalendar(const Site &known)
{
    ReportedSite site { known };
    const Bindings bindings { { QStringLiteral(":site"), site.id } };
    Statement days(statementText("calendar.sql"), bindings);
    if (!days.next())
        return {};
    site.added = days.day("added");
    site.newest = days.day("newest");
    site.calendar = { days.day("today"), days.day("last_complete") };
    site.mayReadHits = days.value("may_read_hits").toBool();
    site.mayReadSearch = days.value("may_read_search").toBool();
    site.mayReadFigures = days.value("may_read_figures").toBool();
    if (!site.mayReadHits)
        return site;
    Statement last(statementText("newest_request.sql"), bindings);
    if (!last.next())
        return {};
    site.lastRequestDay = last.day("day");
    site.lastRequestTime = last.value("time").toTime();
    return site;
}

QList<QDate> readMonths(const ReportedSite &site)
{
    QList<QDate> months;
    Statement rows(statementText("months.sql"), { { QStringLiteral(":site"), site.id } });
    while (rows.next())
        months += rows.day("month");
    return months;
}

} // namespace vesk::report
