#include "common/Text.h"
#include "report/Html.h"
#include "report/Writers.h"

#include <algorithm>

namespace vesk::report {

namespace {

void paragraph(Html &html, const QString &text, const char *kind)
{
    if (!text.isEmpty())
        html.leaf("p", text, { { "class", QLatin1String(kind) } });
}

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
    if (report.period.days() > 1)
        paragraph(html,
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

void writePages(Html &html, const Report &report)
{
    const Element section(html, "section");
    html.leaf("h2", QStringLiteral("Pages"));
    writeLists(html, report, pick(report.lists, { "pages" }), false);
    writeLists(html, report,
        pick(report.lists, { "entry_pages", "exit_pages", "visit_lengths", "visit_pages" }));
}

/// One list on the one side, several on the other.
void writeSides(Html &html, const Report &report, const char *title,
    std::initializer_list<const char *> left, std::initializer_list<const char *> right)
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
    paragraph(html,
        QStringLiteral("What the search engines report of %1. They are some days late.")
            .arg(periodName(search.period)),
        "soft");
    if (search.engines.isEmpty()) {
        paragraph(
            html, QStringLiteral("No figures (import them with vesk-admin import-gsc)."), "none");
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
    writeLists(html, report, pick(report.lists, { "crawlers", "missing_pages" }));
}

void writeServer(Html &html, const Report &report)
{
    const Server &server = report.server;
    {
        const Element section(html, "section");
        html.leaf("h2", QStringLiteral("Server"));
        paragraph(html, server.note, "soft");
        if (!server.known)
            return;
        writeTiles(html, server.totals);
        writeLists(html, report,
            pick(server.lists, { "status_classes", "statuses", "clients", "file_types" }));
        writeLists(html, report,
            pick(server.lists,
                { "missing_files", "errors", "slow_paths", "downloads", "scanner_addresses" }));
    }
    if (server.days.numbers.rows.size() > 1)
        writeChart(html, server.days);
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
    paragraph(html, report.notes.join(u' '), "soft");
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
    for (const List &list : pick(report.lists, { "countries" })) {
        if (std::any_of(list.rows.begin(), list.rows.end(),
                [](const Row &row) { return !row.key.isEmpty(); }))
            html.leaf("p", QStringLiteral("Countries: IP data by DB-IP, CC BY 4.0."));
    }
}

/// The first cell: what the row is about, with a bar that is long by \a share.
void writeKey(Html &html, const List &list, const Row &row, double share, const QString &site)
{
    const Element cell(html, "th", { { "scope", QStringLiteral("row") } });
    if (row.name.isEmpty())
        html.stranger(row.key);
    else
        html.text(clean(row.name));
    if (list.detailId == QLatin1String("referrer") && !row.detail.isEmpty()) {
        const Element note(html, "small");
        html.text(QStringLiteral("from "));
        html.stranger(shownLink(row.detail, site));
    } else if (!row.detail.isEmpty() && row.name.isEmpty()) {
        html.text(QStringLiteral(" "));
        html.leaf("span", clean(row.detail), { { "class", QStringLiteral("kind") } });
    }
    const Element svg(html, "svg",
        { { "class", QStringLiteral("bar") }, { "aria-hidden", QStringLiteral("true") },
            { "height", QStringLiteral("5") } });
    html.leaf("rect", {},
        { { "width", QString::number(100 * share, 'f', 2) + u'%' },
            { "height", QStringLiteral("5") } });
}

void writeTable(Html &html, const List &list, const QString &site)
{
    const Element table(html, "table", { { "aria-labelledby", list.id } });
    html.open("thead");
    html.open("tr");
    html.leaf("th", list.key.head, { { "scope", QStringLiteral("col") } });
    for (const Column &column : list.columns)
        html.leaf("th", column.head, { { "scope", QStringLiteral("col") } });
    html.close();
    html.close();
    double most = 0;
    for (const Row &row : list.rows)
        most = std::max(most, row.values[0].value_or(0));
    const Element body(html, "tbody");
    for (const Row &row : list.rows) {
        const Element line(html, "tr");
        writeKey(html, list, row, most > 0 ? row.values[0].value_or(0) / most : 0, site);
        for (qsizetype i = 0; i < list.columns.size(); ++i) {
            const Unit unit = list.columns[i].unit;
            const Element cell(html, "td");
            html.text(show(row.values[i], unit));
            if (i == 0 && row.before)
                html.leaf("small", change(row.values[i], row.before, unit));
        }
    }
}

} // namespace

void writeList(Html &html, const List &list, const QString &site)
{
    const Element element(html, "div", { { "class", QStringLiteral("list") } });
    html.leaf("h3", list.title, { { "id", list.id } });
    if (list.rows.isEmpty()) {
        html.leaf("p", QStringLiteral("None."), { { "class", QStringLiteral("none") } });
        return;
    }
    paragraph(html, list.note, "soft");
    writeTable(html, list, site);
    if (list.total > list.rows.size())
        paragraph(html,
            QStringLiteral("and %1 more, which --rows all shows")
                .arg(grouped(double(list.total - list.rows.size()))),
            "more");
}

QByteArray toHtml(const Report &report)
{
    Html html(report.host + QLatin1String(", ") + periodName(report.period));
    writeHead(html, report);
    {
        const Element main(html, "main");
        writePeople(html, report);
        for (const Chart &chart : report.charts) {
            if (chart.numbers.rows.size() > 1)
                writeChart(html, chart);
        }
        writePages(html, report);
        writeSides(html, report, "Sources of visits",
            { "source_kinds", "search_terms", "campaigns", "search_terms_and_campaigns" },
            { "sources" });
        writeSides(html, report, "Visitors", { "countries" }, { "devices", "browsers", "systems" });
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
