#include "report/Sites.h"

#include <algorithm>

namespace vesk::report {

namespace {

/// Adds what is known; of a site that has figures, one that is not known makes the sum unknown.
void add(Value &sum, Value value, bool isFirst)
{
    if (isFirst)
        sum = value;
    else
        sum = sum && value ? Value(*sum + *value) : Value();
}

SiteLine sumOf(const QList<SiteLine> &sites)
{
    SiteLine total;
    for (const SiteLine &site : sites) {
        total.newest = std::max(total.newest, site.newest);
        if (site.days == 0)
            continue;
        const bool isFirst = total.days == 0;
        total.days = std::max(total.days, site.days);
        for (const auto figure : { &SiteLine::visitors, &SiteLine::visits, &SiteLine::pageviews,
                 &SiteLine::requests, &SiteLine::botRequests, &SiteLine::bytes, &SiteLine::errors })
            add(total.*figure, site.*figure, isFirst);
        if (site.visitorsBefore) {
            add(total.compared, site.compared, !total.compared);
            add(total.visitorsBefore, site.visitorsBefore, !total.visitorsBefore);
        }
    }
    return total;
}

} // namespace

Value SiteLine::botShare() const
{
    return botRequests && requests.value_or(0) > 0 ? Value(*botRequests / *requests) : Value();
}

void arrange(Overview &overview)
{
    std::stable_sort(
        overview.sites.begin(), overview.sites.end(), [](const SiteLine &a, const SiteLine &b) {
            return std::pair(worst(a.findings), a.requests)
                > std::pair(worst(b.findings), b.requests);
        });
    overview.total = sumOf(overview.sites);
}

QString gapOf(const SiteLine &site, const Period &period)
{
    return site.days > 0 ? shareOfDays(site.days, period) : QString();
}

QStringList gapsOf(const Overview &overview)
{
    const auto sitesWith = [&](auto isMeant) {
        return std::count_if(overview.sites.begin(), overview.sites.end(), isMeant);
    };
    QStringList gaps;
    const auto tell = [&gaps](const char *what, qint64 sites) {
        if (sites > 0)
            gaps += QString::fromLatin1(what).arg(counted(sites, QStringLiteral("site")));
    };
    tell("There is no report of %1 for this time.",
        sitesWith([](const SiteLine &site) { return site.days == 0; }));
    tell("Data and errors of %1 are not known, because requests were deleted or may not be read.",
        sitesWith([](const SiteLine &site) { return site.days > 0 && !site.bytes; }));
    const auto compared = sitesWith([](const SiteLine &site) { return site.visitorsBefore; });
    const auto known = sitesWith([](const SiteLine &site) { return site.days > 0; });
    if (compared > 0 && compared < known)
        gaps += QStringLiteral("The change in total is that of %1.")
                    .arg(counted(compared, QStringLiteral("site")));
    return gaps;
}

} // namespace vesk::report
