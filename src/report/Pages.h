#pragma once

#include "report/Reader.h"
#include "report/SitesReader.h"

namespace vesk::report {

/// Writes web pages of \a site into the folder, which must exist: the last complete day, the 7 and
/// the 30 days up to it, every month, and index.html. Each is written aside and renamed, so that
/// nobody sees half of it. The page of a month that is over for long stays as it is, because the
/// requests that it tells of may be deleted by now. False, after a message, when one could not be
/// written.
bool writePages(const ReportedSite &site, const QString &folder, const Options &options);

/// Writes them into a folder below \a folder, which is made when it is missing. Its name is the
/// host, or what systemd made of the host where such a folder is there already.
bool writePagesBelow(const ReportedSite &site, const QString &folder, const Options &options);

/// Writes pages of all sites into \a folder, which must exist: index.html of the last complete day,
/// and the 7 and 30 days up to it. They link to the folders of the sites that have pages below it.
bool writeOverview(const QList<KnownSite> &sites, const QString &folder, const Options &options,
    const Limits &limits);

} // namespace vesk::report
