#pragma once

#include "report/Html.h"
#include "report/Report.h"

namespace vesk::report {

/// A heading, and the rows with a bar for the first column. \a site is the host whose own links
/// are shown without it.
void writeList(Html &html, const List &list, const QString &site);

} // namespace vesk::report
