#pragma once

#include "report/Reader.h"

namespace vesk::report {

/// Writes web pages of \a site into the folder, which must exist: the last complete day, the 7 and
/// the 30 days up to it, every month, and index.html. Each is written aside and renamed, so that
/// nobody sees half of it. The page of a month that is over for long stays as it is, because the
/// requests that it tells of may be deleted by now. False, after a message, when one could not be
/// written.
bool writePages(const ReportedSite &site, const QString &folder, const Options &options);

} // namespace vesk::report
