#pragma once

#include "common/Sites.h"
#include "report/Report.h"

#include <QTime>

#include <optional>

/// Reads reports from the database, which it never changes.
namespace vesk::report {

/// A read-only transaction: all that is read in it is of one moment. It works on a standby, too.
class Snapshot
{
public:
    Snapshot();
    ~Snapshot();
    Q_DISABLE_COPY_MOVE(Snapshot)

    /// False, after a message, when it could not begin.
    bool isOpen() const { return m_open; }

private:
    bool m_open = false;
};

/// A site with what there is of it.
struct ReportedSite : Site
{
    Calendar calendar;
    QDate newest; ///< the newest day with requests; null when there is no report yet
    QDate lastRequestDay; ///< when the newest request that is still there was made; null when none
    QTime lastRequestTime;
    bool mayReadHits = false;
};

/// What there is of \a site. Nothing when it cannot be read.
std::optional<ReportedSite> readCalendar(const Site &site);

/// The first days of the months that have reports, the newest first.
QList<QDate> readMonths(const ReportedSite &site);

struct Options
{
    bool everyone = false; ///< lists count unverified browsers, too
    int rows = 15;
    bool addresses = false;
    int mostBars = 92;
};

/// The report of a period. Nothing, after a message, when there is none.
std::optional<Report> readReport(
    const ReportedSite &site, const Period &period, const Options &options);

} // namespace vesk::report
