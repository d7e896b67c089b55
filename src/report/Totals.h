#pragma once

#include "report/Report.h"

#include <QMap>

/// The totals of days: adding them up, and the figures that they make.
namespace vesk::report {

/// The counts of one kind of visitors, of a day or of several together.
struct Counts
{
    double visitors = 0;
    double visits = 0;
    double seconds = 0; ///< of all visits together
    double pageviews = 0;
    double bounces = 0;
};

/// A day of the roll-up, or several together.
struct Totals
{
    Counts people;
    Counts everyone;
    double requests = 0;
    double botRequests = 0;
    double unverified = 0;
    double scanners = 0;
    int days = 0; ///< that have a report
};

/// The sum of those days of the period that have a report.
Totals sumOf(const QMap<QDate, Totals> &days, const Period &period);

/// The figures of people and everyone, next to those before when \a compared.
QList<Figure> visitorFigures(const Totals &now, const Totals &before, bool compared);

/// The figures of all requests, which are the same for both.
QList<Figure> requestFigures(const Totals &now, const Totals &before, bool compared);

} // namespace vesk::report
