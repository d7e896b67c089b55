#pragma once

#include "report/Html.h"
#include "report/Report.h"

namespace vesk::report {

/// Whether there is anything to see: a single bar tells nothing.
bool isWorthDrawing(const Chart &chart);

/// Upright bars, and the same in numbers below, without a heading. Only of what is worth it.
void writeChart(Html &html, const Chart &chart);

} // namespace vesk::report
