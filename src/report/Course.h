#pragma once

#include "report/Report.h"

#include <functional>

/// Charts of what days had, one bar for each day, week or month.
namespace vesk::report {

/// The figures of a day, one for each column of the chart; empty when nothing is known of it.
using DayValues = std::function<QList<Value>(QDate day)>;

/// A chart of \a period with \a most bars at most. Weeks and months are shown by their average day,
/// which counts no days of which nothing is known. \a title is followed by "by day" or the like.
Chart course(const Period &period, int most, const List &numbers, const DayValues &valuesOf);

/// The chart of a series.
Chart course(const DaySeries &series, int most);

/// The average Monday to Sunday of a period.
Chart weekdays(const Period &period, const List &numbers, const DayValues &valuesOf);

} // namespace vesk::report
