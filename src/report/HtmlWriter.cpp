#include "common/Text.h"
#include "report/Course.h"
#include "report/HtmlChart.h"
#include "report/HtmlList.h"
#include "report/Writers.h"

#include <algorithm>
#include <functional>

namespace vesk::report {

namespace {

constexpr int kMostBars = 92;

/// A part of the page, which the list of contents links to.
struct Part
{
    QString title;
    bool isOfReports; ///< its figures are of the days that have a report
    std::function<void()> write;

    QString id() const { return QLatin1String("part-") + title.toLower().replace(u' ', u'-'); }
};

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

bool areEmpty(const QList<List> &lists)
{
    return std::all_of(
        lists.begin(), lists.end(), [](const List &list) { return list.rows.isEmpty(); });
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

/// Those of the lists that have rows in a grid, in two columns where there is room when \a
/// isDouble.
void writeLists(Html &html, const Report &report, const QList<List> &lists, bool isDouble = true)
{
    if (areEmpty(lists))
        return;
    const Element grid(html, "div",
        { { "class", isDouble ? QStringLiteral("lists two") : QStringLiteral("lists") } });
    for (const List &list : lists) {
        if (!list.rows.isEmpty())
            writeList(html, list, report.host);
    }
}

void writePageLists(Html &html, const Report &report)
{
    writeLists(html, report, pick(report.lists, { ListId::Pages }), false);
    writeLists(html, report,
        pick(report.lists,
            { ListId::EntryPages, ListId::ExitPages, ListId::VisitLengths, ListId::VisitPages }));
    if (report.server.known && !report.server.complete)
        html.paragraph(QStringLiteral("Entry and exit pages, lengths and numbers of pages are of "
                                      "the days whose requests are all there."),
            "more");
}

/// What is beside one another.
struct Sides
{
    QList<List> left;
    QList<List> right;
};

void writeSides(Html &html, const Report &report, const Sides &sides)
{
    const Element grid(html, "div", { { "class", QStringLiteral("lists two") } });
    writeLists(html, report, sides.left, false);
    writeLists(html, report, sides.right, false);
}

void writeSearch(Html &html, const Report &report)
{
    const Search &search = report.search;
    html.paragraph(QStringLiteral("What the search engines report of %1. They are some days late.")
                       .arg(periodName(search.period)),
        "soft");
    html.paragraph(search.note, "none");
    for (const SearchEngine &engine : search.engines) {
        html.open("h3", { { "class", QStringLiteral("engine") } });
        html.stranger(engine.name.left(1).toUpper() + engine.name.mid(1));
        html.text(QLatin1String(", up to ") + dayName(engine.newest));
        if (engine.days < search.period.days())
            html.text(
                QStringLiteral(" (%1 of the %2 days)").arg(engine.days).arg(search.period.days()));
        html.close();
        writeTiles(html, engine.figures);
    }
    writeLists(html, report, { search.queries }, false);
}

void writeRequests(Html &html, const Report &report)
{
    writeTiles(html, report.requests);
    writeLists(html, report, pick(report.lists, { ListId::Crawlers, ListId::MissingPages }));
}

void writeServer(Html &html, const Report &report)
{
    const Server &server = report.server;
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
                [](const ListRow &row) { return !row.key.isEmpty(); }))
            html.leaf("p", QStringLiteral("Countries: IP data by DB-IP, CC BY 4.0."));
    }
}

/// The parts that have anything in them.
QList<Part> partsOf(Html &html, const Report &report)
{
    QList<Part> parts { { QStringLiteral("People"), true, [&] { writePeople(html, report); } } };
    const auto addChart = [&](const Chart &chart) {
        if (isWorthDrawing(chart))
            parts += { chart.numbers.title, true, [&html, chart] { writeChart(html, chart); } };
    };
    const auto addSides = [&](const char *title, const Sides &sides) {
        if (!areEmpty(sides.left + sides.right))
            parts += { QLatin1String(title), true,
                [&html, &report, sides] { writeSides(html, report, sides); } };
    };
    addChart(course(report.visitors, kMostBars));
    for (const Chart &chart : report.charts)
        addChart(chart);
    if (!areEmpty(pick(report.lists, { ListId::Pages, ListId::EntryPages })))
        parts += { QStringLiteral("Pages"), true, [&] { writePageLists(html, report); } };
    addSides("Sources of visits",
        { pick(report.lists,
              { ListId::SourceKinds, ListId::SearchTerms, ListId::Campaigns,
                  ListId::TermsAndCampaigns }),
            pick(report.lists, { ListId::Sources }) });
    addSides("Visitors",
        { pick(report.lists, { ListId::Countries }),
            pick(report.lists, { ListId::Devices, ListId::Browsers, ListId::Systems }) });
    if (!report.search.engines.isEmpty() || !report.search.note.isEmpty())
        parts += { QStringLiteral("Search console"), false, [&] { writeSearch(html, report); } };
    parts += { QStringLiteral("All requests"), true, [&] { writeRequests(html, report); } };
    parts += { QStringLiteral("Server"), report.server.known, [&] { writeServer(html, report); } };
    if (report.server.known)
        addChart(course(report.server.days, kMostBars));
    return parts;
}

void writeContents(Html &html, const QList<Part> &parts)
{
    const Element nav(html, "nav", { { "aria-label", QStringLiteral("Contents") } });
    const Element list(html, "ul");
    for (const Part &part : parts) {
        const Element item(html, "li");
        html.leaf("a", part.title, { { "href", u'#' + part.id() } });
    }
}

void writePart(Html &html, const Report &report, const Part &part)
{
    const Element section(html, "section", { { "id", part.id() } });
    html.leaf("h2", part.title);
    if (part.isOfReports)
        html.paragraph(shareOfDays(report.days, report.period), "soft");
    part.write();
}

} // namespace

QByteArray toHtml(const Report &report)
{
    Html html(report.host + QLatin1String(", ") + periodName(report.period));
    const QList<Part> parts = partsOf(html, report);
    writeHead(html, report);
    writeContents(html, parts);
    {
        const Element main(html, "main");
        for (const Part &part : parts)
            writePart(html, report, part);
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
