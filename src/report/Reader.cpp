#include "report/Reader.h"

#include "common/Db.h"
#include "report/Course.h"
#include "report/Lists.h"
#include "report/Statement.h"
#include "report/Totals.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMap>
#include <QSqlDatabase>

#include <algorithm>

namespace vesk::report {

namespace {

constexpr int kTrendDays = 31; ///< of a single day: the day and the 30 before it
constexpr int kSearchDays = 28; ///< search engines report days late
constexpr int kWeekdaysFrom = 28;

struct Traffic
{
    double requests = 0;
    double bytes = 0;
};

/// What the reading of one report is about, and what several steps of it need.
struct Task
{
    const ReportedSite &site;
    Period period;
    const Options &options;
    Bindings bindings;
    QMap<QDate, Totals> days; ///< those that have a report
    bool failed = false;
};

// ---- Days ----

/// The days of the period, of the one before it and of the trend.
void readDays(Task &task)
{
    const QDate first
        = std::min(task.period.before().first, task.period.last.addDays(1 - kTrendDays));
    Statement days(QStringLiteral(R"(
        SELECT day, scope,
               max(n1) FILTER (WHERE key = 'visitors'), max(n1) FILTER (WHERE key = 'visits'),
               max(x) FILTER (WHERE key = 'visits'), max(n1) FILTER (WHERE key = 'pageviews'),
               max(n1) FILTER (WHERE key = 'bounces'), max(n1) FILTER (WHERE key = 'requests'),
               max(n1) FILTER (WHERE key = 'bot_requests'),
               max(n1) FILTER (WHERE key = 'unverified'), max(n1) FILTER (WHERE key = 'scanners')
        FROM vesk.rollup
        WHERE site_id = :site AND day BETWEEN :from AND :last AND dim = 'totals'
        GROUP BY day, scope)"),
        task.bindings + Bindings { { ":from", first } });
    while (days.next()) {
        Totals &day = task.days[days.value(0).toDate()];
        Counts &counts = days.text(1) == QLatin1String("people") ? day.people : day.everyone;
        counts = { days.number(2), days.number(3), days.number(4), days.number(5), days.number(6) };
        day.requests = days.number(7);
        day.botRequests = days.number(8);
        day.unverified = days.number(9);
        day.scanners = days.number(10);
    }
    task.failed |= days.failed();
}

/// When the newest day belongs to the period and its log may go on: until when there are requests.
/// \a isPart tells whether hours are missing.
QString newestDayNote(const Task &task, bool *isPart)
{
    const ReportedSite &site = task.site;
    *isPart = false;
    if (!task.period.contains(site.newest) || site.lastRequestDay != site.newest)
        return {};
    *isPart = site.lastRequestTime.hour() < 23;
    return QStringLiteral("There are requests until %1, %2.")
        .arg(dayName(site.newest), site.lastRequestTime.toString(QStringLiteral("hh:mm")));
}

/// Says what is missing and decides whether the periods can be compared: sums of very different
/// numbers of days cannot.
void judgePeriods(const Task &task, const Totals &now, const Totals &before, Report &report)
{
    if (now.days < task.period.days())
        report.notes += QStringLiteral("There is a report for %1 of these days.").arg(now.days);
    bool isPart = false;
    if (const QString note = newestDayNote(task, &isPart); !note.isEmpty())
        report.notes += note;
    report.compared
        = !isPart && 10 * before.days >= 9 * now.days && 10 * before.days <= 11 * now.days;

    const QString name = periodName(report.before);
    QString note;
    if (isPart)
        note = QStringLiteral("Not compared with %1, since hours are missing.");
    else if (before.days == 0)
        note = QStringLiteral("There is no report for %1 to compare with.");
    else if (!report.compared)
        note = QStringLiteral("Not compared with %1: there is a report for %2 of those days.");
    else if (before.days < task.period.days())
        note = QStringLiteral("Compared with %1; there is a report for %2 of those days.");
    else
        note = QStringLiteral("Compared with %1.");
    note.replace(QLatin1String("%1"), name);
    report.notes += note.replace(QLatin1String("%2"), QString::number(before.days));
}

// ---- Charts ----

List chartOf(const char *id, const char *title, const QList<Column> &columns)
{
    List list;
    list.id = QLatin1String(id);
    list.title = QLatin1String(title);
    list.columns = columns;
    return list;
}

/// The page views of each hour, summed up over the period.
Chart readHours(Task &task)
{
    Chart chart { chartOf("hours", "Page views by hour",
        { { QStringLiteral("pageviews"), QStringLiteral("Page views") },
            { QStringLiteral("unverified"), QStringLiteral("Unverified") },
            { QStringLiteral("visitors"), QStringLiteral("Visitors") } }) };
    chart.numbers.key = { QStringLiteral("hour"), QStringLiteral("Hour") };
    Statement hours(QStringLiteral(R"(
        SELECT to_char(hour, 'FM00'),
               coalesce(sum(n2) FILTER (WHERE scope = 'people'), 0)::float8,
               coalesce(sum(n2) FILTER (WHERE scope = 'all'), 0)::float8,
               coalesce(sum(n1) FILTER (WHERE scope = 'people'), 0)::float8
        FROM generate_series(0, 23) AS hour
        LEFT JOIN vesk.rollup ON site_id = :site AND day BETWEEN :first AND :last AND dim = 'hour'
                              AND key = to_char(hour, 'FM00')
        GROUP BY hour
        ORDER BY hour)"),
        task.bindings);
    while (hours.next()) {
        const QString hour = hours.text(0);
        chart.numbers.rows += Row { hour, hour + QLatin1String(":00"), {},
            { hours.number(1), hours.number(2) - hours.number(1), hours.number(3) } };
        chart.ticks += hour.toInt() % 3 == 0 ? hour : QString();
    }
    chart.numbers.total = 24;
    task.failed |= hours.failed();
    return chart;
}

QList<Chart> charts(Task &task)
{
    const List visitors = chartOf("course", "Visitors",
        { { QStringLiteral("visitors"), QStringLiteral("Visitors") },
            { QStringLiteral("unverified"), QStringLiteral("Unverified") },
            { QStringLiteral("visits"), QStringLiteral("Visits") },
            { QStringLiteral("pageviews"), QStringLiteral("Page views") } });
    const DayValues valuesOf = [&task](QDate date) -> QList<Value> {
        const auto day = task.days.constFind(date);
        if (day == task.days.cend())
            return {};
        return { day->people.visitors, day->everyone.visitors - day->people.visitors,
            day->people.visits, day->people.pageviews };
    };
    const bool isDay = task.period.days() == 1;
    Period shown = task.period;
    if (isDay) // the trend begins with the first day of which there is a report
        shown.first = std::min(
            shown.first, task.days.lowerBound(task.period.last.addDays(1 - kTrendDays)).key());
    QList<Chart> all { course(shown, task.options.mostBars, visitors, valuesOf) };
    if (isDay)
        all[0].numbers.note = QStringLiteral("The day and the 30 days before it.");
    if (task.period.days() >= kWeekdaysFrom) {
        List list = visitors;
        list.id = QStringLiteral("weekdays");
        list.title = QStringLiteral("Visitors by weekday");
        list.key = { QStringLiteral("weekday"), QStringLiteral("Weekday") };
        list.note = QStringLiteral("The average Monday, Tuesday and so on.");
        all += weekdays(task.period, list, valuesOf);
    }
    return all << readHours(task);
}

// ---- Lists ----

/// Adds what a statement of the folder sql gives.
void readLines(Task &task, const QString &sql, const Bindings &more, Lines &lines)
{
    if (task.failed)
        return;
    Statement statement(sql, task.bindings + more);
    while (statement.next()) {
        Line line { statement.text(1), statement.text(2), {}, {}, statement.value(8).toLongLong(),
            statement.number(9) };
        for (int i = 3; i <= 7; ++i) {
            const QVariant value = statement.value(i);
            line.values += value.isNull() ? Value() : Value(value.toDouble());
        }
        line.before = line.values.takeLast();
        lines[statement.text(0)] += line;
    }
    task.failed |= statement.failed();
}

/// The names of campaigns that the requests have, as JSON.
QString campaignsOf(const Lines &lines)
{
    QJsonArray names;
    for (const Line &line : lines.value(QStringLiteral("campaign_name")))
        names += line.key;
    return QString::fromUtf8(QJsonDocument(names).toJson(QJsonDocument::Compact));
}

Server readServer(Task &task, Lines &lines)
{
    Server server;
    if (!task.site.mayReadHits) {
        server.note = QStringLiteral("This account may not read the single requests (vesk.hits).");
        return server;
    }
    const QString hits = hitsStatement();
    task.failed |= hits.isEmpty();
    if (task.failed)
        return server;
    readLines(task, hits, {}, lines);
    readLines(task, statementText("slow.sql"), {}, lines);

    QMap<QDate, Traffic> days;
    for (const Line &line : lines.value(QStringLiteral("day")))
        days[QDate::fromString(line.key, Qt::ISODate)]
            = { line.values[0].value_or(0), line.values[1].value_or(0) };
    qint64 lost = 0;
    Traffic sum;
    for (QDate date = task.period.first; date <= task.period.last; date = date.addDays(1)) {
        lost += task.days.value(date).requests > days.value(date).requests;
        sum.requests += days.value(date).requests;
        sum.bytes += days.value(date).bytes;
    }
    server.known = sum.requests > 0;
    server.complete = lost == 0;
    if (!server.known)
        server.note = QStringLiteral("The requests of this time have been deleted.");
    else if (lost > 0)
        server.note = QStringLiteral("Requests of %1 have been deleted. This is of the others.")
                          .arg(counted(lost, QStringLiteral("day")));
    if (!server.known)
        return server;
    const DayValues valuesOf = [&days](QDate date) -> QList<Value> {
        const auto day = days.constFind(date);
        if (day == days.cend())
            return {};
        return { day->requests, day->bytes };
    };
    server.totals = { { QStringLiteral("requests"), QStringLiteral("Requests"), Unit::Count, {}, {},
                          sum.requests },
        { QStringLiteral("bytes"), QStringLiteral("Data"), Unit::Bytes, {}, {}, sum.bytes } };
    server.days = course(task.period, task.options.mostBars,
        chartOf("days", "Requests",
            { { QStringLiteral("requests"), QStringLiteral("Requests") },
                { QStringLiteral("bytes"), QStringLiteral("Data"), Unit::Bytes } }),
        valuesOf);
    server.days.stacked = false;
    server.lists = serverLists(lines, task.options.addresses);
    return server;
}

// ---- Search engines ----

QList<SearchEngine> readEngines(Task &task, const Period &period)
{
    Statement engines(QStringLiteral(R"(
        WITH sums AS (
            SELECT engine, day >= :from AS now, count(*) AS days, max(day) AS newest,
                   sum(clicks)::float8 AS clicks, sum(impressions)::float8 AS shown,
                   sum(position::float8 * impressions) / nullif(sum(impressions), 0) AS place
            FROM vesk.search_days
            WHERE site_id = :site AND day BETWEEN :before_from AND :last
            GROUP BY engine, now
        )
        SELECT n.engine, n.newest, n.clicks, b.clicks, n.shown, b.shown,
               n.clicks / nullif(n.shown, 0), b.clicks / nullif(b.shown, 0), n.place, b.place
        FROM sums AS n
        LEFT JOIN sums AS b ON b.engine = n.engine AND NOT b.now
                            AND b.days BETWEEN 0.9 * n.days AND 1.1 * n.days
        WHERE n.now
        ORDER BY n.engine)"),
        task.bindings
            + Bindings { { ":from", period.first }, { ":before_from", period.before().first } });
    QList<SearchEngine> found;
    while (engines.next()) {
        QList<Figure> figures {
            { QStringLiteral("clicks"), QStringLiteral("Clicks") },
            { QStringLiteral("impressions"), QStringLiteral("Shown") },
            { QStringLiteral("click_rate"), QStringLiteral("Click rate"), Unit::Rate },
            { QStringLiteral("position"), QStringLiteral("Average position"), Unit::Position },
        };
        for (int i = 0; i < figures.size(); ++i) {
            const QVariant now = engines.value(2 + 2 * i);
            const QVariant before = engines.value(3 + 2 * i);
            figures[i].everyone = now.isNull() ? Value() : Value(now.toDouble());
            figures[i].everyoneBefore = before.isNull() ? Value() : Value(before.toDouble());
        }
        found += SearchEngine { engines.text(0), engines.value(1).toDate(), figures };
    }
    task.failed |= engines.failed();
    return found;
}

Search readSearch(Task &task)
{
    const qint64 days = std::max<qint64>(task.period.days(), kSearchDays);
    Search search { daysUpTo(task.period.last, int(days)), {}, {} };
    search.engines = readEngines(task, search.period);

    Lines lines;
    readLines(task, QStringLiteral(R"(
        SELECT 'query', query, '', sum(clicks)::float8, sum(impressions)::float8,
               sum(clicks)::float8 / nullif(sum(impressions), 0),
               sum(position::float8 * impressions) / nullif(sum(impressions), 0), NULL::float8,
               count(*) OVER (), NULL::float8
        FROM vesk.search_rows
        WHERE site_id = :site AND day BETWEEN :from AND :last
        GROUP BY query
        ORDER BY 4 DESC, 5 DESC, query COLLATE "C"
        LIMIT :rows)"),
        { { ":from", search.period.first } }, lines);
    search.queries = queryList(lines);
    return search;
}

} // namespace

Snapshot::Snapshot()
{
    // Memory for the groups of a busy day, and no plans for few rows where there are many.
    QString error;
    m_open = db::execScript(
        QStringLiteral("START TRANSACTION ISOLATION LEVEL REPEATABLE READ, READ ONLY;"
                       "SET LOCAL search_path = pg_catalog;"
                       "SET LOCAL work_mem = '64MB';"
                       "SET LOCAL enable_nestloop = off;"
                       "SET LOCAL enable_mergejoin = off;"
                       "SET LOCAL jit = off"),
        &error);
    if (!m_open)
        db::reportFailure(error);
}

Snapshot::~Snapshot()
{
    QSqlQuery(QStringLiteral("ROLLBACK"));
}

std::optional<ReportedSite> readCalendar(const Site &known)
{
    ReportedSite site { known, {}, {}, {}, {} };
    const Bindings bindings { { ":site", site.id } };
    Statement days(QStringLiteral(R"(
        WITH newest AS (
            SELECT day
            FROM vesk.rollup
            WHERE site_id = :site AND scope = 'people' AND dim = 'totals' AND key = 'requests'
                  AND n1 > 0
            ORDER BY day DESC
            LIMIT 2
        )
        SELECT current_date, max(day), min(day), has_table_privilege('vesk.hits', 'SELECT')
        FROM newest)"),
        bindings);
    if (!days.next())
        return {};
    site.newest = days.value(1).toDate();
    site.calendar = { days.value(0).toDate(), days.value(2).toDate() };
    site.mayReadHits = days.value(3).toBool();
    if (!site.mayReadHits)
        return site;
    Statement last(QStringLiteral("SELECT max(at)::date, max(at)::time FROM vesk.hits"
                                  " WHERE site_id = :site"),
        bindings);
    if (!last.next())
        return {};
    site.lastRequestDay = last.value(0).toDate();
    site.lastRequestTime = last.value(1).toTime();
    return site;
}

QList<QDate> readMonths(const ReportedSite &site)
{
    QList<QDate> months;
    Statement rows(QStringLiteral(R"(
        SELECT DISTINCT date_trunc('month', day)::date
        FROM vesk.rollup
        WHERE site_id = :site AND scope = 'people' AND dim = 'totals' AND key = 'requests' AND n1 > 0
        ORDER BY 1 DESC)"),
        { { ":site", site.id } });
    while (rows.next())
        months += rows.value(0).toDate();
    return months;
}

std::optional<Report> readReport(
    const ReportedSite &site, const Period &period, const Options &options)
{
    Report report;
    report.host = site.host;
    report.siteName = site.name;
    report.period = period;
    report.before = period.before();
    report.everyone = options.everyone;

    Task task { site, period, options, {}, {} };
    task.bindings = { { ":site", site.id }, { ":first", period.first }, { ":last", period.last },
        { ":before", report.before.first }, { ":rows", options.rows },
        { ":scope", options.everyone ? QStringLiteral("all") : QStringLiteral("people") },
        { ":addresses", options.addresses } };
    readDays(task);
    const Totals now = sumOf(task.days, period);
    const Totals before = sumOf(task.days, report.before);
    if (task.failed)
        return {};
    if (now.days == 0) {
        qCritical("%s has no report for %s", qPrintable(site.host), qPrintable(periodName(period)));
        return {};
    }
    judgePeriods(task, now, before, report);
    report.totals = visitorFigures(now, before, report.compared);
    report.requests = requestFigures(now, before, report.compared);
    report.charts = charts(task);
    if (task.failed)
        return {};

    Lines lines;
    report.server = readServer(task, lines);
    const bool split = report.server.complete && report.server.known;
    readLines(task, statementText("lines.sql"),
        { { ":split", split }, { ":campaigns", campaignsOf(lines) } }, lines);
    report.lists = rollupLists(lines, split);
    if (report.server.known)
        report.lists += visitLists(lines);
    if (!report.compared) {
        for (List &list : report.lists) {
            for (Row &row : list.rows)
                row.before.reset();
        }
    }
    if (!task.failed)
        report.search = readSearch(task);
    if (task.failed)
        return {};
    return report;
}

} // namespace vesk::report
