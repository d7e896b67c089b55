#pragma once

#include "report/Task.h"

/// What search engines report.
namespace vesk::report {

/// Of the period, or of the 28 days up to its last when it is shorter.
Search readSearch(Task &task);

} // namespace vesk::report
