#pragma once

#include "common/Sites.h"
#include "report/Period.h"

#include <QList>
#include <QTime>

#include <optional>

/// What there is of a site to report on.
namespace vesk::report {

struct ReportedSite : Site
{
    Calendar calendar {};
    QDate added {}; ///< when the site was
    QDate newest {}; ///< the newest day with requests; null when there is no report yet
    QDate
        lastRequestDay {}; ///< when the newest request that is still there was made; null when none
    QTime lastRequestTime {};
    bool mayReadHits = false;
    bool mayReadSearch = false;
    bool mayReadFigures = false; ///< there are some, and it may
};

/// The site with \a host, or the only one there is when that is empty. Nothing, after a message,
/// when there is no such site.
std::optional<Site> chooseSite(const QString &host);

/// The site with \a host, or all of them when that is empty. Nothing, after a message, when there
/// is none.
std::optional<QList<Site>> chooseSites(const QString &host);

/// What there is of \a site. Nothing when it cannot be read.
std::optional<ReportedSite> readCalendar(const Site &site);

/// The first days of the months that have reports, the newest first.
QList<QDate> readMonths(const ReportedSite &site);

} // namespace vesk::report
