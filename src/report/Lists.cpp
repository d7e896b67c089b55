#include "report/Lists.h"

#include <QLocale>

#include <iterator>

namespace vesk::report {

namespace {

QString latin(const char *text)
{
    return QString::fromUtf8(text);
}

template <std::size_t N> QString bucketName(const QString &place, const char *const (&names)[N])
{
    const auto index = place.toULongLong();
    return index < N ? latin(names[index]) : place;
}

constexpr const char *kLengths[]
    = { "0:00", "to 0:10", "to 0:30", "to 1:00", "to 3:00", "to 10:00", "to 30:00", "over 30:00" };
constexpr const char *kDepths[] = { "", "2 pages", "3 pages", "4 pages", "5 pages", "6 to 10 pages",
    "11 to 20 pages", "over 20 pages" };

constexpr const char *kStatusClasses[] = { "", "Informed", "Answered", "Elsewhere or unchanged",
    "Refused or not there", "Server errors" };

/// Short names of the statuses that logs usually have.
const QHash<int, QString> &statusNames()
{
    static const QHash<int, QString> names = [] {
        QHash<int, QString> all;
        for (const auto &[status, name] :
            std::initializer_list<std::pair<int, const char *>> { { 200, "OK" }, { 201, "Created" },
                { 204, "No content" }, { 206, "Partial content" }, { 301, "Moved permanently" },
                { 302, "Found" }, { 303, "See other" }, { 304, "Not modified" },
                { 307, "Temporary redirect" }, { 308, "Permanent redirect" },
                { 400, "Bad request" }, { 401, "Unauthorized" }, { 403, "Forbidden" },
                { 404, "Not found" }, { 405, "Method not allowed" }, { 408, "Timeout" },
                { 410, "Gone" }, { 413, "Content too large" }, { 416, "Range not satisfiable" },
                { 421, "Misdirected request" }, { 429, "Too many requests" },
                { 499, "Client went away" }, { 500, "Internal error" }, { 501, "Not implemented" },
                { 502, "Bad gateway" }, { 503, "Unavailable" }, { 504, "Gateway timeout" } })
            all.insert(status, latin(name));
        return all;
    }();
    return names;
}

QString countryName(const QString &code)
{
    if (code.isEmpty())
        return QStringLiteral("Unknown");
    const QLocale::Territory territory = QLocale::codeToTerritory(code);
    return territory == QLocale::AnyTerritory ? code : QLocale::territoryToString(territory);
}

/// "Search engines" for "search" and so on.
QString kindName(const QString &kind)
{
    static const QHash<QString, QString> names {
        { QStringLiteral("search"), QStringLiteral("Search engines") },
        { QStringLiteral("ai"), QStringLiteral("AI assistants") },
        { QStringLiteral("social"), QStringLiteral("Social networks") },
        { QStringLiteral("email"), QStringLiteral("Mail") },
        { QStringLiteral("campaign"), QStringLiteral("Campaigns") },
        { QStringLiteral("referral"), QStringLiteral("Other sites") },
        { QStringLiteral("internal"), QStringLiteral("The site itself") },
        { QStringLiteral("direct"), QStringLiteral("Direct") },
    };
    return names.value(kind, kind);
}

QString capitalised(const QString &text)
{
    return text.left(1).toUpper() + text.mid(1);
}

/// How a key is shown; empty when as it is.
QString nameOf(ListId list, const QString &key)
{
    switch (list) {
    case ListId::Countries:
        return countryName(key);
    case ListId::SourceKinds:
        return kindName(key);
    case ListId::VisitLengths:
        return bucketName(key, kLengths);
    case ListId::VisitPages:
        return key == QLatin1String("0") ? QStringLiteral("1 page") : bucketName(key, kDepths);
    case ListId::StatusClasses:
        return key + u' ' + bucketName(key.left(1), kStatusClasses);
    case ListId::Statuses:
        return key + u' ' + statusNames().value(key.toInt());
    case ListId::Devices:
    case ListId::Clients:
        return capitalised(key);
    default:
        return {};
    }
}

ListRow rowOf(ListId id, const List &list, const Line &line)
{
    ListRow row { line.key, nameOf(id, line.key), line.detail, {}, line.before };
    if (id == ListId::Sources) { // kind, tab, name
        row.detail = line.key.section(u'\t', 0, 0);
        row.key = line.key.section(u'\t', 1);
        row.name = row.key.isEmpty() ? kindName(row.detail) : QString();
    }
    qsizetype next = 0;
    for (const Column &column : list.columns) {
        if (column.id == QLatin1String("share"))
            row.values += line.whole > 0 ? Value(line.values[0].value_or(0) / line.whole) : Value();
        else
            row.values += line.values.value(next++);
    }
    return row;
}

/// A figure of a list or a chart.
constexpr struct
{
    const char *id;
    const char *head;
    Unit unit = Unit::Count;
} kColumns[] = {
    { "by_scanners", "By scanners" },
    { "bytes", "Data", Unit::Bytes },
    { "click_rate", "Rate", Unit::Rate },
    { "clicks", "Clicks" },
    { "impressions", "Shown" },
    { "longest_us", "Longest", Unit::Microseconds },
    { "median_us", "Median", Unit::Microseconds },
    { "pages", "Pages" },
    { "pageviews", "Page views" },
    { "percentile_95_us", "95 %", Unit::Microseconds },
    { "position", "Position", Unit::Position },
    { "requests", "Requests" },
    { "seconds", "Time", Unit::Seconds },
    { "share", "Share", Unit::Rate }, // the part that the first value is of all
    { "unverified", "Unverified" },
    { "views", "Views" },
    { "visitors", "Visitors" },
    { "visits", "Visits" },
};

/// A list: the name of its lines in the statements, its name in JSON, its title, its key, and the
/// figures as in namedColumns().
constexpr struct
{
    ListId id;
    const char *lines;
    const char *name = "";
    const char *title = "";
    const char *key = "";
    const char *head = "";
    const char *columns = "";
    const char *detail = "";
    const char *note = "";
} kLists[] = {
    { ListId::Pages, "page", "pages", "Most viewed", "path", "Page", "views visitors seconds" },
    { ListId::EntryPages, "entry", "entry_pages", "Entry pages", "path", "Page", "visits share" },
    { ListId::ExitPages, "exit", "exit_pages", "Exit pages", "path", "Page", "visits share" },
    { ListId::VisitLengths, "length", "visit_lengths", "Visits by length", "bucket", "Length",
        "visits share" },
    { ListId::VisitPages, "depth", "visit_pages", "Visits by pages", "bucket", "Pages",
        "visits share" },
    { ListId::SourceKinds, "kind", "source_kinds", "Kinds", "kind", "Kind", "visits share" },
    { ListId::Sources, "source", "sources", "Services and sites", "source", "Source",
        "visits share", "kind" },
    { ListId::SearchTerms, "term", "search_terms", "Search terms", "term", "Term", "visits" },
    { ListId::Campaigns, "campaign", "campaigns", "Campaigns", "campaign", "Campaign", "visits" },
    { ListId::TermsAndCampaigns, "terms", "search_terms_and_campaigns",
        "Search terms and campaigns", "term", "Term or campaign", "visits" },
    { ListId::Countries, "country", "countries", "Countries", "country", "Country",
        "visitors share" },
    { ListId::Devices, "device", "devices", "Devices", "device", "Device", "visitors share" },
    { ListId::Browsers, "browser", "browsers", "Browsers", "browser", "Browser", "visitors share" },
    { ListId::Systems, "os", "systems", "Systems", "system", "System", "visitors share" },
    { ListId::Crawlers, "bot", "crawlers", "Crawlers", "crawler", "Crawler", "requests pages" },
    { ListId::MissingPages, "notfound", "missing_pages", "Missing pages", "path", "Path",
        "requests", "",
        "Pages that were asked for and are not there (404), without the requests of scanners." },
    { ListId::StatusClasses, "class", "status_classes", "Classes of status", "class", "Class",
        "requests share bytes" },
    { ListId::Statuses, "status", "statuses", "Statuses", "status", "Status",
        "requests share bytes" },
    { ListId::Clients, "client", "clients", "Who asked", "client", "Who",
        "requests share bytes visitors" },
    { ListId::FileTypes, "type", "file_types", "File types", "type", "Type",
        "bytes share requests" },
    { ListId::MissingFiles, "missing", "missing_files", "Missing files", "path", "Path",
        "requests by_scanners", "referrer",
        "All that is not there or gone (404, 410), with the address that links to it most." },
    { ListId::Errors, "error", "errors", "Server errors", "path", "Path", "requests", "status" },
    { ListId::SlowPaths, "slow", "slow_paths", "Slowest paths", "path", "Path",
        "percentile_95_us median_us longest_us requests", "",
        "Paths with five requests or more; 95 % of them took no longer." },
    { ListId::Downloads, "download", "downloads", "Downloads", "path", "Path", "bytes requests" },
    { ListId::ScannerAddresses, "address", "scanner_addresses", "Addresses of scanners", "address",
        "Address", "requests bytes" },
    { ListId::Queries, "query", "queries", "Queries", "query", "Query",
        "clicks impressions click_rate position" },
    { ListId::Days, "day" },
    { ListId::CampaignNames, "campaign_name" },
    { ListId::PeopleBy, "people_by" },
};

List emptyList(ListId id)
{
    List list;
    for (const auto &layout : kLists) {
        if (layout.id == id)
            list = { latin(layout.name), latin(layout.title),
                { latin(layout.key), latin(layout.head) }, latin(layout.detail),
                namedColumns(layout.columns), {}, 0, 0, latin(layout.note),
                id == ListId::MissingFiles };
    }
    return list;
}

} // namespace

QList<Column> namedColumns(const char *ids)
{
    QList<Column> columns;
    for (const QString &id : QString::fromLatin1(ids).split(u' ')) {
        for (const auto &[name, head, unit] : kColumns) {
            if (id == QLatin1String(name))
                columns += { id, latin(head), unit };
        }
    }
    return columns;
}

std::optional<ListId> listOf(const QString &name)
{
    for (const auto &layout : kLists) {
        if (name == QLatin1String(layout.lines))
            return layout.id;
    }
    return {};
}

QMap<ListId, List> filled(const Lines &lines, std::initializer_list<ListId> ids)
{
    QMap<ListId, List> lists;
    for (const ListId id : ids) {
        List &list = lists[id] = emptyList(id);
        for (const Line &line : lines.value(id)) {
            list.rows += rowOf(id, list, line);
            list.total = line.total;
            list.summedUp = line.summedUp;
        }
    }
    return lists;
}

} // namespace vesk::report
