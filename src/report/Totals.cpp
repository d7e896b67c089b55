#include "report/Totals.h"

namespace vesk::report {

namespace {

void add(Counts &sum, const Counts &counts)
{
    sum.visitors += counts.visitors;
    sum.visits += counts.visits;
    sum.seconds += counts.seconds;
    sum.pageviews += counts.pageviews;
    sum.bounces += counts.bounces;
}

Value ratio(double part, double whole)
{
    return whole > 0 ? Value(part / whole) : Value();
}

/// The figures of one kind of visitors, in the order in which they are shown.
QList<Value> figuresOf(const Counts &counts)
{
    return { counts.visitors, counts.visits, counts.pageviews, counts.bounces,
        ratio(counts.bounces, counts.visits), ratio(counts.seconds, counts.visits) };
}

} // namespace

Totals sumOf(const QMap<QDate, Totals> &days, const Period &period)
{
    Totals sum;
    for (auto day = days.lowerBound(period.first); day != days.end() && day.key() <= period.last;
         ++day) {
        add(sum.people, day->people);
        add(sum.everyone, day->everyone);
        sum.requests += day->requests;
        sum.botRequests += day->botRequests;
        sum.unverified += day->unverified;
        sum.scanners += day->scanners;
        ++sum.days;
    }
    return sum;
}

QList<Figure> visitorFigures(const Totals &now, const Totals &before, bool compared)
{
    QList<Figure> figures {
        { QStringLiteral("visitors"), QStringLiteral("Visitors") },
        { QStringLiteral("visits"), QStringLiteral("Visits") },
        { QStringLiteral("pageviews"), QStringLiteral("Page views") },
        { QStringLiteral("bounces"), QStringLiteral("Bounces") },
        { QStringLiteral("bounce_rate"), QStringLiteral("Bounce rate"), Unit::Rate },
        { QStringLiteral("visit_seconds"), QStringLiteral("Average visit"), Unit::Seconds },
    };
    const QList<Value> people = figuresOf(now.people);
    const QList<Value> everyone = figuresOf(now.everyone);
    const QList<Value> peopleBefore = figuresOf(before.people);
    const QList<Value> everyoneBefore = figuresOf(before.everyone);
    for (qsizetype i = 0; i < figures.size(); ++i) {
        figures[i].people = people[i];
        figures[i].everyone = everyone[i];
        if (compared) {
            figures[i].peopleBefore = peopleBefore[i];
            figures[i].everyoneBefore = everyoneBefore[i];
        }
    }
    return figures;
}

QList<Figure> requestFigures(const Totals &now, const Totals &before, bool compared)
{
    const auto figure = [compared](const char *id, const char *name, double value, double earlier,
                            const QString &meaning) {
        return Figure { QLatin1String(id), QLatin1String(name), Unit::Count, {}, {}, value,
            compared ? Value(earlier) : Value(), meaning };
    };
    const QString part
        = show(ratio(now.botRequests, now.requests), Unit::Rate) + QLatin1String(" of all");
    return {
        figure(
            "requests", "Requests", now.requests, before.requests, QStringLiteral("of all kinds")),
        figure("bot_requests", "By crawlers", now.botRequests, before.botRequests, part),
        figure("unverified", "Unverified", now.unverified, before.unverified,
            QStringLiteral("showed no sign of a person")),
        figure("scanners", "Scanners", now.scanners, before.scanners,
            QStringLiteral("looked for weak spots")),
    };
}

} // namespace vesk::report
