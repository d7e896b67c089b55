#pragma once

#include "report/Lists.h"
#include "report/SiteReader.h"
#include "report/Statement.h"
#include "report/Totals.h"

#include <QMap>
#include <QSet>

/// What the steps in which a report is read have in common.
namespace vesk::report {

struct Options
{
    bool everyone = false; ///< lists count unverified browsers, too
    int rows = 15;
    bool addresses = false;
};

/// What the reading of one report is about.
struct Task
{
    Task(const ReportedSite &site, const Period &period, const Options &options);

    /// The named values of all its statements, and \a more.
    Bindings bindingsWith(const Bindings &more) const;

    const ReportedSite &site;
    Period period;
    const Options &options;
    Bindings bindings;
    QMap<QDate, Totals> days; ///< those that have a report
    bool failed = false; ///< a statement did, which was reported
};

/// Adds what a statement gives that has the columns list, key, detail, v1 to v4, before, total,
/// summed_up and whole. Nothing when the task has failed.
void readLines(Task &task, const QString &sql, const Bindings &more, Lines &lines);

/// Days as a literal of an array.
QString arrayOf(const QList<QDate> &days);

/// The days of a period that can be told from the figures that are kept. None when the task has
/// failed, or these may not be read.
QSet<QDate> keptDays(Task &task, const Period &period);

} // namespace vesk::report
