#include "report/Json.h"
#include "report/Sites.h"

#include <QJsonDocument>

namespace vesk::report {

namespace {

QJsonObject figures(const SiteLine &site)
{
    return { { QStringLiteral("visitors"), json(site.visitors) },
        { QStringLiteral("visitors_compared"), json(site.compared) },
        { QStringLiteral("visitors_before"), json(site.visitorsBefore) },
        { QStringLiteral("visits"), json(site.visits) },
        { QStringLiteral("pageviews"), json(site.pageviews) },
        { QStringLiteral("requests"), json(site.requests) },
        { QStringLiteral("bot_share"), json(site.botShare()) },
        { QStringLiteral("bytes"), json(site.bytes) },
        { QStringLiteral("errors"), json(site.errors) },
        { QStringLiteral("newest"), json(site.newest) } };
}

} // namespace

QByteArray toJson(const Overview &overview)
{
    QJsonArray sites;
    for (const SiteLine &site : overview.sites) {
        QJsonObject row = figures(site);
        row[QStringLiteral("site")] = site.host;
        row[QStringLiteral("name")] = site.name;
        row[QStringLiteral("days_with_report")] = site.days;
        row[QStringLiteral("level")] = levelName(worst(site.findings));
        row[QStringLiteral("findings")] = json(site.findings);
        sites += row;
    }
    const QJsonObject object { { QStringLiteral("format"), 1 },
        { QStringLiteral("period"), json(overview.period) },
        { QStringLiteral("notes"), QJsonArray::fromStringList(overview.notes) },
        { QStringLiteral("scope"),
            overview.everyone ? QStringLiteral("all") : QStringLiteral("people") },
        { QStringLiteral("sites"), sites }, { QStringLiteral("totals"), figures(overview.total) } };
    return QJsonDocument(object).toJson();
}

} // namespace vesk::report
