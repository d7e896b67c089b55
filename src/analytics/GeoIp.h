#pragma once

#include <QString>

namespace vesk::analytics {

/// Replaces the IP ranges by country with those of DB-IP's free country file (IP data by DB-IP,
/// CC BY 4.0): \a file, or the current month's download when \a file is empty. The table is
/// replaced as a whole or left as it was. Returns a message for the user; \a ok tells whether it is
/// one of success.
QString updateGeoIp(const QString &file, bool *ok);

/// Whether no ranges were loaded in the current month.
bool geoIpIsStale();

} // namespace vesk::analytics
