#include "common/Text.h"
#include "report/Report.h"
#include "report/Sites.h"
#include "report/TextGrid.h"

namespace vesk::report {

namespace {

QList<QString> cellsOf(const SiteLine &site)
{
    return { show(site.visitors, Unit::Count),
        change(site.compared, site.visitorsBefore, Unit::Count), show(site.visits, Unit::Count),
        show(site.pageviews, Unit::Count), show(site.requests, Unit::Count),
        show(site.botShare(), Unit::Rate), show(site.bytes, Unit::Bytes),
        show(site.errors, Unit::Count) };
}

/// The host at the left and the newest day at the right.
QString headOf(const SiteLine &site)
{
    const QString newest = site.newest.isValid() ? QLatin1String("up to ") + dayName(site.newest)
                                                 : QStringLiteral("no requests yet");
    const int room = kTextColumns - columnsOf(newest) - 1;
    return left(fit(siteTitle(site.host, site.name), room), room + 1) + newest;
}

} // namespace

QByteArray toText(const Overview &overview)
{
    QString text;
    const auto line = [&text](const QString &each) { text += trimmedEnd(each) + u'\n'; };
    line({});
    line(QLatin1String("All sites, ") + periodName(overview.period));
    for (const QString &note : overview.notes)
        line(note);
    Grid grid;
    for (const char *head :
        { "visitors", "change", "visits", "views", "requests", "crawlers", "data", "errors" })
        grid.addColumn(QLatin1String(head));
    for (const SiteLine &site : overview.sites)
        grid.add(cellsOf(site));
    grid.add(cellsOf(overview.total));
    line({});
    line(grid.heads());
    for (qsizetype i = 0; i < overview.sites.size(); ++i) {
        const SiteLine &site = overview.sites[i];
        line({});
        line(headOf(site));
        line(grid.row(i));
        if (const QString days = gapOf(site, overview.period); !days.isEmpty())
            line(QLatin1String("  ") + days);
        for (const Finding &finding : site.findings)
            line((finding.level == Level::Critical ? QLatin1String("  CRITICAL: ")
                                                   : QLatin1String("  WARNING: "))
                + clean(finding.text));
    }
    line({});
    line(rule(QLatin1String("All ") + counted(overview.sites.size(), QStringLiteral("site"))));
    line(grid.row(overview.sites.size()));
    line({});
    return text.toUtf8();
}

} // namespace vesk::report
