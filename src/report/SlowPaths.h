#pragma once

#include "report/Task.h"

namespace vesk::report {

/// Adds the slowest paths, of which \a sql gives path, requests, the longest duration and the
/// histograms of all. Nothing when the task has failed.
void readSlowPaths(Task &task, const QString &sql, const Bindings &more, Lines &lines);

} // namespace vesk::report
