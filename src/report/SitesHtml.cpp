#include "common/Text.h"
#include "report/Html.h"
#include "report/Sites.h"

#include <QLocale>
#include <QUrl>

#include <algorithm>

namespace vesk::report {

namespace {

/// The host, with a link where there are pages.
void writeHost(Html &html, const SiteLine &site)
{
    if (site.folder.isEmpty()) {
        html.stranger(site.host);
        return;
    }
    const QString target
        = QString::fromLatin1(QUrl::toPercentEncoding(site.folder)) + QLatin1String("/");
    const Element link(html, "a", { { "href", target } });
    html.stranger(site.host);
}

QString levelWord(Level level)
{
    return level == Level::Critical ? QStringLiteral("Critical") : QStringLiteral("Warning");
}

QString levelClass(Level level)
{
    return levelWord(level).toLower();
}

void writeFindings(Html &html, const QList<SiteLine> &sites)
{
    if (std::none_of(sites.begin(), sites.end(),
            [](const SiteLine &site) { return !site.findings.isEmpty(); }))
        return;
    const Element section(html, "section");
    html.leaf("h2", QStringLiteral("What is wrong"));
    const Element list(html, "ul", { { "class", QStringLiteral("index") } });
    for (const SiteLine &site : sites) {
        for (const Finding &finding : site.findings) {
            const Element item(html, "li");
            html.leaf("b", levelWord(finding.level), { { "class", levelClass(finding.level) } });
            html.text(QStringLiteral(" "));
            writeHost(html, site);
            html.text(QLatin1String(": ") + clean(finding.text));
        }
    }
}

void writeFigures(Html &html, const SiteLine &site)
{
    {
        const Element cell(html, "td");
        html.text(show(site.visitors, Unit::Count));
        if (site.visitorsBefore)
            html.leaf("small", change(site.compared, site.visitorsBefore, Unit::Count));
    }
    for (const auto &[value, unit] :
        { std::pair(site.visits, Unit::Count), std::pair(site.pageviews, Unit::Count),
            std::pair(site.requests, Unit::Count), std::pair(site.botShare(), Unit::Rate),
            std::pair(site.bytes, Unit::Bytes), std::pair(site.errors, Unit::Count) })
        html.leaf("td", show(value, unit));
    html.leaf("td",
        site.newest.isValid() ? QLocale::c().toString(site.newest, QStringLiteral("d MMM yyyy"))
                              : QStringLiteral("-"));
}

void writeTable(Html &html, const Overview &overview)
{
    const Element region(html, "section",
        { { "class", QStringLiteral("sites") },
            { "aria-label", QStringLiteral("Figures of all sites") },
            { "tabindex", QStringLiteral("0") } });
    const Element table(html, "table");
    html.tableHead(
        QStringLiteral("Site,Visitors,Visits,Page views,Requests,Crawlers,Data,Errors,Newest day")
            .split(u','));
    html.open("tbody");
    for (const SiteLine &site : overview.sites) {
        const Element row(html, "tr");
        {
            const Element cell(html, "th", { { "scope", QStringLiteral("row") } });
            writeHost(html, site);
            if (const QString days = gapOf(site, overview.period); !days.isEmpty())
                html.leaf("small", days);
            if (!site.findings.isEmpty())
                html.leaf("small", levelWord(worst(site.findings)),
                    { { "class", levelClass(worst(site.findings)) } });
        }
        writeFigures(html, site);
    }
    html.close();
    const Element foot(html, "tfoot");
    const Element row(html, "tr");
    html.leaf("th", QLatin1String("All ") + counted(overview.sites.size(), QStringLiteral("site")),
        { { "scope", QStringLiteral("row") } });
    writeFigures(html, overview.total);
}

void writePeriods(Html &html, const QList<OtherPage> &pages)
{
    if (pages.isEmpty())
        return;
    const Element nav(html, "nav", { { "aria-label", QStringLiteral("Periods") } });
    const Element list(html, "ul");
    for (const OtherPage &page : pages) {
        const Element item(html, "li");
        if (page.file.isEmpty())
            html.text(page.title);
        else
            html.leaf("a", page.title, { { "href", page.file } });
    }
}

} // namespace

QByteArray toHtml(const Overview &overview)
{
    Html html(QLatin1String("All sites, ") + periodName(overview.period));
    {
        const Element header(html, "header");
        html.leaf("h1", QStringLiteral("All sites"));
        html.leaf("p", periodName(overview.period), { { "class", QStringLiteral("period") } });
        html.paragraph(overview.notes.join(u' '), "soft");
    }
    writePeriods(html, overview.pages);
    {
        const Element main(html, "main");
        writeFindings(html, overview.sites);
        writeTable(html, overview);
    }
    const Element footer(html, "footer");
    html.leaf("p",
        overview.everyone
            ? QStringLiteral("Visitors, visits and page views are of people and unverified "
                             "browsers.")
            : QStringLiteral("Visitors, visits and page views are of people."));
    html.leaf("p",
        QStringLiteral("Requests are of all kinds, and crawlers are their share of them. Errors "
                       "are those of the server (500 and above). Changes are against the period "
                       "before. Every day counts its visitors anew."));
    html.leaf(
        "p", QStringLiteral("What is wrong is of when this page was written, the worst first."));
    return html.finish();
}

} // namespace vesk::report
