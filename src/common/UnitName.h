#pragma once

#include <QString>

namespace vesk {

/// \a text without the escapes "\xNN" that systemd writes into the names of units: how a timer for
/// a site with an international name hands that over. Everything else stays.
QString unescapeUnitName(const QString &text);

} // namespace vesk
