#pragma once

#include "report/Html.h"
#include "report/Report.h"

namespace vesk::report {

/// Upright bars, and the same in numbers below. Nothing for a single bar.
void writeChart(Html &html, const Chart &chart);

} // namespace vesk::report
