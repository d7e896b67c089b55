#include "report/DayReader.h"

#include "report/Course.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

namespace vesk::report {

namespace {

constexpr int kTrendDays = 31; ///< of a single day: the day and the 30 before it
constexpr int kWeekdaysFrom = 28;

/// Whether the newest day belongs to the period and its log may go on.
bool endsOpen(const Task &task)
{
    return task.period.contains(task.site.newest) && task.site.lastRequestDay == task.site.newest;
}

/// Whether hours of the newest day are missing in the period.
bool endsEarly(const Task &task)
{
    return endsOpen(task) && task.site.lastRequestTime.hour() < 23;
}

QList<QDate> missingDays(const Task &task)
{
    QList<QDate> missing;
    for (QDate day = task.period.first; day <= task.period.last; day = day.addDays(1)) {
        if (!task.days.contains(day))
            missing += day;
    }
    return missing;
}

/// The page views of each hour, summed up over the period.
Chart readHours(Task &task)
{
    Chart chart;
    chart.numbers = { QStringLiteral("hours"), QStringLiteral("Page views by hour"),
        { QStringLiteral("hour"), QStringLiteral("Hour") } };
    chart.numbers.columns = namedColumns("pageviews unverified visitors");
    Statement hours(statementText("hours.sql"), task.bindings);
    while (hours.next()) {
        const QString hour = hours.text("hour");
        const double views = hours.number("people_views");
        chart.numbers.rows += ListRow { hour, hour + QLatin1String(":00"), {},
            { views, hours.number("all_views") - views, hours.number("people") } };
        chart.ticks += hour.toInt() % 3 == 0 ? hour : QString();
    }
    chart.numbers.total = 24;
    task.failed |= hours.failed();
    return chart;
}

/// The names of campaigns that the requests have, as JSON.
QString campaignsOf(const Lines &lines)
{
    QJsonArray names;
    for (const Line &line : lines.value(ListId::CampaignNames))
        names += line.key;
    return QString::fromUtf8(QJsonDocument(names).toJson(QJsonDocument::Compact));
}

} // namespace

bool areComparable(const Task &task, const Totals &now, const Totals &before)
{
    return !endsEarly(task) && 10 * before.days >= 9 * now.days
        && 10 * before.days <= 11 * now.days;
}

void readDays(Task &task)
{
    readDays(task, std::min(task.period.before().first, task.period.last.addDays(1 - kTrendDays)));
}

void readDays(Task &task, QDate first)
{
    Statement days(
        statementText("days.sql"), task.bindingsWith({ { QStringLiteral(":from"), first } }));
    while (days.next()) {
        Totals &day = task.days[days.day("day")];
        Counts &counts = days.text("scope") == QLatin1String("people") ? day.people : day.everyone;
        counts = { days.number("visitors"), days.number("visits"), days.number("seconds"),
            days.number("pageviews"), days.number("bounces") };
        day.requests = days.number("requests");
        day.botRequests = days.number("bot_requests");
        day.unverified = days.number("unverified");
        day.scanners = days.number("scanners");
    }
    task.failed |= days.failed();
}

void judgePeriods(const Task &task, const Totals &now, const Totals &before, Report &report)
{
    report.days = now.days;
    if (now.days < task.period.days())
        report.notes += QStringLiteral("There is a report for %1 of these days, none for %2.")
                            .arg(now.days)
                            .arg(daysName(missingDays(task)));
    if (endsOpen(task))
        report.notes += QStringLiteral("There are requests until %1, %2.")
                            .arg(dayName(task.site.newest),
                                task.site.lastRequestTime.toString(QStringLiteral("hh:mm")));
    report.compared = areComparable(task, now, before);

    const QString name = periodName(report.before);
    QString note;
    if (endsEarly(task))
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

DaySeries visitorsByDay(const Task &task)
{
    DaySeries series { { QStringLiteral("course"), QStringLiteral("Visitors") } };
    series.numbers.columns = namedColumns("visitors unverified visits pageviews");
    series.period = task.period;
    if (task.period.days() == 1) { // the trend begins with the first day of which there is a report
        series.period.first = std::min(series.period.first,
            task.days.lowerBound(task.period.last.addDays(1 - kTrendDays)).key());
        series.numbers.note = QStringLiteral("The day and the 30 days before it.");
    }
    for (auto day = task.days.cbegin(); day != task.days.cend(); ++day)
        series.values[day.key()]
            = { day->people.visitors, day->everyone.visitors - day->people.visitors,
                  day->people.visits, day->people.pageviews };
    return series;
}

QList<Chart> readCharts(Task &task, const DaySeries &visitors)
{
    QList<Chart> charts;
    if (task.period.days() >= kWeekdaysFrom) {
        List list = visitors.numbers;
        list.id = QStringLiteral("weekdays");
        list.title = QStringLiteral("Visitors by weekday");
        list.key = { QStringLiteral("weekday"), QStringLiteral("Weekday") };
        list.note = QStringLiteral("The average Monday, Tuesday and so on.");
        charts
            += weekdays(task.period, list, [&](QDate day) { return visitors.values.value(day); });
    }
    return charts << readHours(task);
}

QMap<ListId, List> readLists(Task &task, bool split, Lines &lines)
{
    readLines(task, statementText("lines.sql"),
        { { QStringLiteral(":split"), split },
            { QStringLiteral(":campaigns"), campaignsOf(lines) } },
        lines);
    auto lists = filled(lines,
        { ListId::Pages, ListId::SourceKinds, ListId::Sources, ListId::Countries, ListId::Devices,
            ListId::Browsers, ListId::Systems, ListId::Crawlers, ListId::MissingPages });
    if (split)
        lists.insert(filled(lines, { ListId::SearchTerms, ListId::Campaigns }));
    else
        lists.insert(filled(lines, { ListId::TermsAndCampaigns }));
    return lists;
}

} // namespace vesk::report
