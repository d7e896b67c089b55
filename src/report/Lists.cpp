#include "report/Lists.h"

#include <QLocale>

#include <iterator>

namespace vesk::report {

namespace {

/// A list before it is filled. Its column "share" is the part that the first value is of all.
struct Plan
{
    const char *lines; ///< its name in the statements
    List list;
};

QString latin(const char *text)
{
    return QString::fromUtf8(text);
}

Column column(const char *id, const char *head, Unit unit = Unit::Count)
{
    return { latin(id), latin(head), unit };
}

Plan plan(const char *lines, const char *id, const char *title, const Column &key,
    const QList<Column> &columns, const char *detail = "", const char *note = "")
{
    return { lines, { latin(id), latin(title), key, latin(detail), columns, {}, 0, latin(note) } };
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

QString capitalised(const QString &text)
{
    return text.left(1).toUpper() + text.mid(1);
}

/// How a key is shown; empty when as it is.
QString nameOf(const QString &list, const QString &key)
{
    if (list == QLatin1String("country"))
        return countryName(key);
    if (list == QLatin1String("kind"))
        return kindName(key);
    if (list == QLatin1String("length"))
        return bucketName(key, kLengths);
    if (list == QLatin1String("depth"))
        return key == QLatin1String("0") ? QStringLiteral("1 page") : bucketName(key, kDepths);
    if (list == QLatin1String("class"))
        return key + u' ' + bucketName(key.left(1), kStatusClasses);
    if (list == QLatin1String("status"))
        return key + u' ' + statusNames().value(key.toInt());
    if (list == QLatin1String("device") || list == QLatin1String("client"))
        return capitalised(key);
    return {};
}

Row rowOf(const List &list, const QString &lines, const Line &line)
{
    Row row { line.key, nameOf(lines, line.key), line.detail, {}, line.before };
    if (lines == QLatin1String("source")) { // kind, tab, name
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

QList<List> filled(const QList<Plan> &plans, const Lines &lines)
{
    QList<List> lists;
    for (const auto &[name, empty] : plans) {
        List list = empty;
        const QString key = latin(name);
        for (const Line &line : lines.value(key)) {
            list.rows += rowOf(list, key, line);
            list.total = line.total;
        }
        lists += list;
    }
    return lists;
}

const Column kVisits = column("visits", "Visits");
const Column kVisitors = column("visitors", "Visitors");
const Column kRequests = column("requests", "Requests");
const Column kPath = column("path", "Path");
const Column kShare = column("share", "Share", Unit::Rate);
const Column kBytes = column("bytes", "Data", Unit::Bytes);

} // namespace

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

QList<List> rollupLists(const Lines &lines, bool split)
{
    QList<Plan> plans {
        plan("page", "pages", "Most viewed", column("path", "Page"),
            { column("views", "Views"), kVisitors, column("seconds", "Time", Unit::Seconds) }),
        plan("kind", "source_kinds", "Kinds", column("kind", "Kind"), { kVisits, kShare }),
        plan("source", "sources", "Services and sites", column("source", "Source"),
            { kVisits, kShare }, "kind"),
        plan("country", "countries", "Countries", column("country", "Country"),
            { kVisitors, kShare }),
        plan("device", "devices", "Devices", column("device", "Device"), { kVisitors, kShare }),
        plan(
            "browser", "browsers", "Browsers", column("browser", "Browser"), { kVisitors, kShare }),
        plan("os", "systems", "Systems", column("system", "System"), { kVisitors, kShare }),
        plan("bot", "crawlers", "Crawlers", column("crawler", "Crawler"),
            { kRequests, column("pages", "Pages") }),
        plan("notfound", "missing_pages", "Missing pages", kPath, { kRequests }, "",
            "Pages that were asked for and are not there (404), without the requests of scanners."),
    };
    if (split)
        plans += {
            plan("term", "search_terms", "Search terms", column("term", "Term"), { kVisits }),
            plan("campaign", "campaigns", "Campaigns", column("campaign", "Campaign"), { kVisits })
        };
    else
        plans += plan("terms", "search_terms_and_campaigns", "Search terms and campaigns",
            column("term", "Term or campaign"), { kVisits });
    return filled(plans, lines);
}

QList<List> visitLists(const Lines &lines)
{
    const Column page = column("path", "Page");
    return filled(
        {
            plan("entry", "entry_pages", "Entry pages", page, { kVisits, kShare }),
            plan("exit", "exit_pages", "Exit pages", page, { kVisits, kShare }),
            plan("length", "visit_lengths", "Visits by length", column("bucket", "Length"),
                { kVisits, kShare }),
            plan("depth", "visit_pages", "Visits by pages", column("bucket", "Pages"),
                { kVisits, kShare }),
        },
        lines);
}

List queryList(const Lines &lines)
{
    return filled({ plan("query", "queries", "Queries", column("query", "Query"),
                      { column("clicks", "Clicks"), column("impressions", "Shown"),
                          column("click_rate", "Rate", Unit::Rate),
                          column("position", "Position", Unit::Position) }) },
        lines)
        .first();
}

QList<List> serverLists(const Lines &lines, bool addresses)
{
    QList<Plan> plans {
        plan("class", "status_classes", "Classes of status", column("class", "Class"),
            { kRequests, kShare, kBytes }),
        plan("status", "statuses", "Statuses", column("status", "Status"),
            { kRequests, kShare, kBytes }),
        plan("client", "clients", "Who asked", column("client", "Who"),
            { kRequests, kShare, kBytes, kVisitors }),
        plan("type", "file_types", "File types", column("type", "Type"),
            { kBytes, kShare, kRequests }),
        plan("missing", "missing_files", "Missing files", kPath,
            { kRequests, column("by_scanners", "By scanners") }, "referrer",
            "All that is not there or gone (404, 410), with the address that links to it most."),
        plan("error", "errors", "Server errors", kPath, { kRequests }, "status"),
        plan("slow", "slow_paths", "Slowest paths", kPath,
            { column("percentile_95_us", "95 %", Unit::Microseconds),
                column("median_us", "Median", Unit::Microseconds),
                column("longest_us", "Longest", Unit::Microseconds), kRequests },
            "", "Paths with five requests or more; 95 % of them took no longer."),
        plan("download", "downloads", "Downloads", kPath, { kBytes, kRequests }),
    };
    if (addresses)
        plans += plan("address", "scanner_addresses", "Addresses of scanners",
            column("address", "Address"), { kRequests, kBytes });
    return filled(plans, lines);
}

} // namespace vesk::report
