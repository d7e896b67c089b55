#include "report/SitesReader.h"

#include "report/DayReader.h"

#include <algorithm>

namespace vesk::report {

namespace {

/// What the ledger of the nightly imports has, by the id of the site.
struct NightRecords
{
    bool known = true;
    QHash<int, Night> nights;
    QHash<int, QList<QDate>> waiting;
};

std::optional<NightRecords> readNightRecords()
{
    NightRecords records;
    QStringList readable;
    Statement tables(statementText("nightly_tables.sql"), {});
    while (tables.next()) {
        if (tables.value("may_read").toBool())
            readable += tables.text("name");
        else
            records.known = false;
    }
    bool failed = tables.failed();
    if (readable.contains(QLatin1String("runs"))) {
        Statement runs(statementText("runs.sql"), {});
        while (runs.next())
            records.nights[runs.value("site_id").toInt()]
                = { runs.day("day"), runs.day("failing_since"), runs.text("complaint") };
        failed |= runs.failed();
    }
    if (readable.contains(QLatin1String("days"))) {
        Statement days(statementText("waiting.sql"), {});
        while (days.next())
            records.waiting[days.value("site_id").toInt()] += days.day("day");
        failed |= days.failed();
    }
    return failed ? std::nullopt : std::optional(records);
}

/// What the single requests of a day tell.
struct Traffic
{
    double requests = 0;
    double bytes = 0;
    double errors = 0;
};

void addTraffic(
    Task &task, const char *statement, const Bindings &more, QMap<QDate, Traffic> &traffic)
{
    Statement rows(statementText(statement), task.bindingsWith(more));
    while (rows.next())
        traffic[rows.day("day")]
            = { rows.number("requests"), rows.number("bytes"), rows.number("errors") };
    task.failed |= rows.failed();
}

/// Of the days of a period that have a report, from figures or else from requests; nothing when not
/// all requests of one of them are there, or may be read.
std::optional<Traffic> readTraffic(Task &task, const Period &period)
{
    QList<QDate> days = task.days.keys();
    days.removeIf([&](QDate day) { return !period.contains(day); });
    const QSet<QDate> kept = keptDays(task, period);
    QMap<QDate, Traffic> traffic;
    if (!kept.contains(QSet<QDate>(days.begin(), days.end()))) {
        if (!task.site.mayReadHits || task.failed)
            return {};
        addTraffic(task, "traffic.sql",
            { { QStringLiteral(":first"), period.first },
                { QStringLiteral(":last"), period.last } },
            traffic);
    }
    if (!kept.isEmpty())
        addTraffic(task, "traffic_kept.sql",
            { { QStringLiteral(":kept"), arrayOf(kept.values()) } }, traffic);
    Traffic sum;
    for (const QDate day : days) {
        const Traffic &its = traffic[day];
        if (its.requests < task.days[day].requests)
            return {};
        sum.bytes += its.bytes;
        sum.errors += its.errors;
    }
    return sum;
}

std::optional<Facts> readSiteFacts(const ReportedSite &site, const NightRecords &records)
{
    Facts facts { site.calendar.today, site.added, site.newest, site.calendar.lastComplete, {}, {},
        records.known, {}, records.waiting.value(site.id) };
    if (records.nights.contains(site.id))
        facts.night = records.nights[site.id];
    if (site.newest.isNull())
        return facts;
    const Options options;
    Task task(site, daysUpTo(site.newest, kJudgedDays), options);
    readDays(task, task.period.first);
    for (auto day = task.days.cbegin(); day != task.days.cend(); ++day) {
        if (day->requests > 0)
            facts.requests[day.key()] = day->requests;
    }
    const QDate complete = facts.complete;
    if (const auto traffic = readTraffic(task, { complete, complete }))
        facts.errors = traffic->errors;
    return task.failed ? std::nullopt : std::optional(facts);
}

std::optional<SiteLine> readLine(
    const KnownSite &known, const Period &period, const Options &options)
{
    const ReportedSite &site = known.site;
    SiteLine line { site.host, site.name };
    line.newest = site.newest;
    Task task(site, period, options);
    readDays(task, period.before().first);
    const Totals now = sumOf(task.days, period);
    const Totals before = sumOf(task.days, period.before());
    line.days = now.days;
    if (now.days > 0) {
        const auto &counts = options.everyone ? now.everyone : now.people;
        line.visitors = counts.visitors;
        line.visits = counts.visits;
        line.pageviews = counts.pageviews;
        line.requests = now.requests;
        line.botRequests = now.botRequests;
        if (const auto traffic = readTraffic(task, period)) {
            line.bytes = traffic->bytes;
            line.errors = traffic->errors;
        }
        if (areComparable(task, now, before)) {
            line.compared = line.visitors;
            line.visitorsBefore = (options.everyone ? before.everyone : before.people).visitors;
        }
    }
    return task.failed ? std::nullopt : std::optional(line);
}

} // namespace

std::optional<QList<KnownSite>> readFacts(const QList<Site> &sites)
{
    const auto records = readNightRecords();
    QList<KnownSite> known;
    for (const Site &site : sites) {
        const auto calendar = records ? readCalendar(site) : std::nullopt;
        const auto facts = calendar ? readSiteFacts(*calendar, *records) : std::nullopt;
        if (!facts)
            return {};
        known += KnownSite { *calendar, *facts };
    }
    return known;
}

Calendar calendarOf(const QList<KnownSite> &sites)
{
    Calendar calendar;
    for (const KnownSite &known : sites) {
        calendar.today = known.facts.today;
        if (known.facts.complete <= calendar.today)
            calendar.lastComplete = std::max(calendar.lastComplete, known.facts.complete);
    }
    if (calendar.lastComplete.isNull())
        calendar.lastComplete = calendar.today.addDays(-1);
    return calendar;
}

std::optional<Overview> readOverview(const QList<KnownSite> &sites, const Period &period,
    const Options &options, const Limits &limits)
{
    Overview overview { period, options.everyone };
    bool nightsKnown = true;
    for (const KnownSite &known : sites) {
        auto line = readLine(known, period, options);
        if (!line)
            return {};
        line->findings = judge(known.facts, limits);
        nightsKnown = nightsKnown && known.facts.nightsKnown;
        overview.sites += *line;
    }
    arrange(overview);
    overview.notes = gapsOf(overview);
    if (!nightsKnown)
        overview.notes += QStringLiteral(
            "This account may not read how the nightly imports ended (vesk_nightly).");
    return overview;
}

} // namespace vesk::report
