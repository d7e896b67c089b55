#include "common/Text.h"
#include "report/Course.h"
#include "report/HtmlChart.h"
#include "report/HtmlList.h"
#include "report/Writers.h"

#include <algorithm>

namespace vesk::report {

namespace {

constexpr int kMostBars = 92;

/// A large figure with notes below.
void writeTile(Html &html, const QString &name, const QString &value, const QStringList &notes)
{
    const Element item(html, "li");
    html.text(name);
    html.leaf("b", value);
    for (const QString &note : notes) {
        if (!note.isEmpty())
            html.leaf("small", note);
    }
}

QString since(Value now, Value before, Unit unit)
{
    if (!now || !before)
        return {};
    return change(now, before, unit) + QLatin1String(" from ") + show(before, unit);
}

/// Tiles of what is the same for people and everyone.
void writeTiles(Html &html, const QList<Figure> &figures)
{
    const Element list(html, "ul", { { "class", QStringLiteral("tiles") } });
    for (const Figure &f : figures)
        writeTile(html, f.name, show(f.everyone, f.unit),
            { since(f.everyone, f.everyoneBefore, f.unit), f.meaning });
}

void writePeople(Html &html, const Report &report)
{
    const Element section(html, "section");
    html.leaf("h2", QStringLiteral("People"));
    {
        const Element list(html, "ul", { { "class", QStringLiteral("tiles") } });
        for (const Figure &f : report.totals) {
            if (f.id == QLatin1String("bounces"))
                continue; // the rate says it better
            writeTile(html, f.name, show(f.people, f.unit),
                { since(f.people, f.peopleBefore, f.unit),
                    show(f.everyone, f.unit) + QLatin1String(" with unverified") });
        }
    }
    if (report.peopleBy)
        html.paragraph(peopleLine(*report.peopleBy), "soft");
    if (report.period.days() > 1)
        html.paragraph(
            QStringLiteral("Every day counts its visitors anew: who came on two days is in these "
                           "sums twice."),
            "soft");
}

/// The lists in a grid, in two columns where there is room when \a isDouble.
void writeLists(Html &html, const Report &report, const QList<List> &lists, bool isDouble = true)
{
    const Element grid(html, "div",
        { { "class", isDouble ? QStringLiteral("lists two") : QStringLiteral("lists") } });
    for (const List &list : lists)
        writeList(html, list, report.host);
}

void writePageLists(Html &html, const Report &report)
{
    const Element section(html, "section");
    html.leaf("h2", QStringLiteral("Pages"));
    writeLists(html, report, pick(report.lists, { ListId::Pages }), false);
    writeLists(html, report,
        pick(report.lists,
            { ListId::EntryPages, ListId::ExitPages, ListId::VisitLengths, ListId::VisitPages }));
}

/// One list on the one side, several on the other.
void writeSides(Html &html, const Report &report, const char *title,
    std::initializer_list<ListId> left, std::initializer_list<ListId> right)
{
    const Element section(html, "section");
    html.leaf("h2", QLatin1String(title));
    const Element grid(html, "div", { { "class", QStringLiteral("lists two") } });
    writeLists(html, report, pick(report.lists, left), false);
    writeLists(html, report, pick(report.lists, right), false);
}

void writeSearch(Html &html, const Report &report)
{
    const Search &search = report.search;
    const Element section(html, "section");
    html.leaf("h2", QStringLiteral("Search console"));
    html.paragraph(QStringLiteral("What the search engines report of %1. They are some days late.")
                       .arg(periodName(search.period)),
        "soft");
    if (search.engines.isEmpty()) {
        html.paragraph(search.note.isEmpty()
                ? QStringLiteral("No figures (import them with vesk-admin import-gsc).")
                : search.note,
            "none");
        return;
    }
    for (const SearchEngine &engine : search.engines) {
        html.open("h3", { { "class", QStringLiteral("engine") } });
        html.stranger(engine.name.left(1).toUpper() + engine.name.mid(1));
        html.text(QLatin1String(", up to ") + dayName(engine.newest));
        html.close();
        writeTiles(html, engine.figures);
    }
    writeLists(html, report, { search.queries }, false);
}

void writeRequests(Html &html, const Report &report)
{
    const Element section(html, "section");
    html.leaf("h2", QStringLiteral("All requests"));
    writeTiles(html, report.requests);
    writeLists(html, report, pick(report.lists, { ListId::Crawlers, ListId::MissingPages }));
}

void writeServer(Html &html, const Report &report)
{
    const Server &server = report.server;
    {
        const Element section(html, "section");
        html.leaf("h2", QStringLiteral("Server"));
        html.paragraph(server.note, "soft");
        if (!server.known)
            return;
        writeTiles(html, server.totals);
        writeLists(html, report,
            pick(server.lists,
                { ListId::StatusClasses, ListId::Statuses, ListId::Clients, ListId::FileTypes }));
        writeLists(html, report,
            pick(server.lists,
                { ListId::MissingFiles, ListId::Errors, ListId::SlowPaths, ListId::Downloads,
                    ListId::ScannerAddresses }));
    }
    writeChart(html, course(server.days, kMostBars));
}

void writeHead(Html &html, const Report &report)
{
    const Element header(html, "header");
    html.open("h1");
    html.stranger(report.host);
    html.close();
    if (!report.siteName.isEmpty() && report.siteName != report.host) {
        html.open("p");
        html.stranger(report.siteName);
        html.close();
    }
    html.leaf("p", periodTitle(report), { { "class", QStringLiteral("period") } });
    html.paragraph(report.notes.join(u' '), "soft");
}

/// What the figures mean, and what they leave out.
void writeFoot(Html &html, const Report &report)
{
    const Element footer(html, "footer");
    html.leaf("h2", QStringLiteral("How to read this"));
    for (const char *text :
        { "All figures come from the web server’s log. A visitor is one address with one browser "
          "on one day. A visit is a run of requests without a pause of more than half an hour; "
          "with one page view it is a bounce.",
            "People loaded style sheets, scripts or fonts, came from a search, a link or a "
            "campaign, or reported a time on page. Unverified browsers did nothing of that: many "
            "are programs, some are people who came directly.",
            "Page views are pages that were sent (200 to 299). Not among them are pages that a "
            "browser or a cache already had (304, or no request at all), missing pages, feeds and "
            "files, and what crawlers and scanners asked for. The part Server counts every "
            "request, whoever made it.",
            "Missing pages are those that people, browsers and crawlers asked for in vain. Missing "
            "files are all requests that found nothing, those of scanners too.",
            "Changes are against the period before, in percent of it, and of rates in percentage "
            "points (pt). × is how many times as much; what is new was not there." })
        html.leaf("p", QString::fromUtf8(text));
    html.leaf("p",
        report.everyone
            ? QStringLiteral("The lists show both; the large figures and dark bars are people.")
            : QStringLiteral("The lists of pages, sources, visits and visitors show people."));
    for (const List &list : pick(report.lists, { ListId::Countries })) {
        if (std::any_of(list.rows.begin(), list.rows.end(),
                [](const Row &row) { return !row.key.isEmpty(); }))
            html.leaf("p", QStringLiteral("Countries: IP data by DB-IP, CC BY 4.0."));
    }
}

} // namespace

QByteArray toHtml(const Report &report)
{
    Html html(report.host + QLatin1String(", ") + periodName(report.period));
    writeHead(html, report);
    {
        const Element main(html, "main");
        writePeople(html, report);
        writeChart(html, course(report.visitors, kMostBars));
        for (const Chart &chart : report.charts)
            writeChart(html, chart);
        writePageLists(html, report);
        writeSides(html, report, "Sources of visits",
            { ListId::SourceKinds, ListId::SearchTerms, ListId::Campaigns,
                ListId::TermsAndCampaigns },
            { ListId::Sources });
        writeSides(html, report, "Visitors", { ListId::Countries },
            { ListId::Devices, ListId::Browsers, ListId::Systems });
        writeSearch(html, report);
        writeRequests(html, report);
        writeServer(html, report);
    }
    writeFoot(html, report);
    return html.finish();
}

QByteArray toIndex(const QString &title, const QList<PageLink> &links)
{
    Html html(title);
    {
        const Element header(html, "header");
        html.open("h1");
        html.stranger(title);
        html.close();
    }
    const Element main(html, "main");
    html.open("ul", { { "class", QStringLiteral("index") } });
    for (const PageLink &link : links) {
        const Element item(html, "li");
        html.leaf("a", link.title, { { "href", link.file } });
    }
    html.close();
    return html.finish();
}

} // namespace vesk::report
