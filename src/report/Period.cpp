#include "report/Period.h"

#include "report/Format.h"

#include <QRegularExpression>
#include <QStringList>

namespace vesk::report {

namespace {

constexpr qint64 kMostDays = 3660;
constexpr qsizetype kMostNamedRuns = 3;

/// An exact yyyy-MM-dd: Qt would take digits of other scripts and signs, too.
QDate parseDay(const QString &text)
{
    static const QRegularExpression form(QStringLiteral("^[1-9][0-9]{3}-[0-9]{2}-[0-9]{2}$"));
    return form.match(text).hasMatch() ? QDate::fromString(text, Qt::ISODate) : QDate();
}

std::optional<Period> parseCalendarWord(const QString &text, const Calendar &calendar)
{
    if (text == QLatin1String("today"))
        return Period { calendar.today, calendar.today };
    if (text == QLatin1String("yesterday"))
        return Period { calendar.today.addDays(-1), calendar.today.addDays(-1) };
    if (text == QLatin1String("week"))
        return daysUpTo(calendar.lastComplete, 7);
    if (text == QLatin1String("month"))
        return daysUpTo(calendar.lastComplete, 30);
    return {};
}

} // namespace

std::optional<Period> parsePeriod(const QString &text, const Calendar &calendar)
{
    if (const auto period = parseCalendarWord(text, calendar))
        return period;
    Period period;
    if (const qsizetype dots = text.indexOf(QLatin1String("..")); dots >= 0) {
        period = { parseDay(text.left(dots)), parseDay(text.mid(dots + 2)) };
    } else if (text.size() == 4) {
        period.first = parseDay(text + QLatin1String("-01-01"));
        period.last = period.first.addYears(1).addDays(-1);
    } else if (text.size() == 7) {
        period.first = parseDay(text + QLatin1String("-01"));
        period.last = period.first.addMonths(1).addDays(-1);
    } else {
        period.first = period.last = parseDay(text);
    }
    if (!period.first.isValid() || !period.last.isValid() || period.days() < 1
        || period.days() > kMostDays)
        return {};
    return period;
}

Period daysUpTo(QDate last, int count)
{
    return { last.addDays(1 - count), last };
}

QString dayName(QDate day)
{
    return formatted(day, "d MMMM yyyy");
}

QString periodName(const Period &period)
{
    const auto [first, last] = period;
    if (first == last)
        return dayName(last);
    const char *shortest = first.year() != last.year() ? "d MMMM yyyy"
        : first.month() != last.month()                ? "d MMMM"
                                                       : "d";
    return formatted(first, shortest) + QLatin1String(" to ") + dayName(last);
}

QString daysName(const QList<QDate> &days)
{
    QList<Period> runs;
    for (const QDate day : days) {
        if (runs.isEmpty() || runs.last().last.addDays(1) != day)
            runs += Period { day, day };
        runs.last().last = day;
    }
    QStringList names;
    qint64 named = 0;
    for (const Period &run : runs.mid(0, kMostNamedRuns)) {
        names += periodName(run);
        named += run.days();
    }
    if (named < days.size())
        names += QStringLiteral("%1 more").arg(days.size() - named);
    const QString last = names.isEmpty() ? QString() : names.takeLast();
    return names.isEmpty() ? last : names.join(QLatin1String(", ")) + QLatin1String(" and ") + last;
}

QString shareOfDays(qint64 known, const Period &period)
{
    return known < period.days()
        ? QStringLiteral("Of %1 of the %2 days.").arg(known).arg(period.days())
        : QString();
}

} // namespace vesk::report
