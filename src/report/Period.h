#pragma once

#include <QDate>
#include <QList>
#include <QString>

#include <optional>

namespace vesk::report {

/// Whole days, both ends included.
struct Period
{
    QDate first;
    QDate last;

    qint64 days() const { return first.daysTo(last) + 1; }
    bool contains(QDate day) const { return first <= day && day <= last; }

    /// As many days before it.
    Period before() const { return { first.addDays(-days()), first.addDays(-1) }; }

    bool operator==(const Period &other) const = default;
};

/// What words for a period go by.
struct Calendar
{
    QDate today;
    QDate lastComplete; ///< the last day of which the log has everything
};

/// What parsePeriod() understands, for messages.
inline constexpr char kPeriodForms[]
    = "2026-03-02, 2026-03-02..2026-03-15, 2026-03, 2026, today, yesterday, week, month";

/// The period that \a text names: a day, two days with ".." between them, a month, a year, a day
/// by the calendar, or the 7 or 30 days up to the last complete one. Nothing when it names none, or
/// one that ends before it begins or is longer than ten years.
std::optional<Period> parsePeriod(const QString &text, const Calendar &calendar);

/// The \a count days up to \a last.
Period daysUpTo(QDate last, int count);

/// "2 March 2026", "1 to 3 March 2026", and what is longer in full.
QString periodName(const Period &period);

/// Days in order, those that follow one another together: "1 to 3 March 2026 and 5 March 2026".
/// After the third of such runs only how many more days there are.
QString daysName(const QList<QDate> &days);

/// "Of 28 of the 30 days." when so many of a period are known; empty when all are.
QString shareOfDays(qint64 known, const Period &period);

/// A day as texts name it: "2 March 2026".
QString dayName(QDate day);

} // namespace vesk::report
