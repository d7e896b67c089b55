#pragma once

#include "report/Task.h"

/// What the roll-up tells: the days of the period and of the one before it, the charts and lists
/// that they make, and what is missing.
namespace vesk::report {

/// The days of the period, of the one before it and of the trend.
void readDays(Task &task);

/// The days from \a first to the end of the period.
void readDays(Task &task, QDate first);

/// Whether the sums of a period and of the one before it can be compared: not those of very
/// different numbers of days, nor when hours of the last one are missing.
bool areComparable(const Task &task, const Totals &now, const Totals &before);

/// Says what is missing and decides whether the periods can be compared.
void judgePeriods(const Task &task, const Totals &now, const Totals &before, Report &report);

/// The course of visitors; of a single day also that of the 30 before it.
DaySeries visitorsByDay(const Task &task);

/// The average week, from four weeks on, and the hours.
QList<Chart> readCharts(Task &task, const DaySeries &visitors);

/// The lists. \a split divides search terms and campaigns by the names of campaigns in \a lines.
QMap<ListId, List> readLists(Task &task, bool split, Lines &lines);

} // namespace vesk::report
