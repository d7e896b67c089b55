#pragma once

#include "common/ProgressCallback.h"

#include <QByteArrayView>
#include <QString>

#include <optional>

namespace vesk::analytics {

/// A range of addresses and its country, as a line of DB-IP's country file gives them.
struct CountryRange
{
    QByteArrayView first;
    QByteArrayView last;
    QByteArrayView country; ///< two bytes
};

/// The range on a line "first,last,country[,...]", in bytes of \a line; the addresses are not
/// checked. Nothing when the line has no two-letter code or stands for no country.
std::optional<CountryRange> parseCountryRange(QByteArrayView line);

/// Replaces the IP ranges by country with those of DB-IP's free country file (IP data by DB-IP,
/// CC BY 4.0): \a file, or the current month's download when \a file is empty. The table is
/// replaced as a whole or left as it was. Returns a message for the user; \a ok tells whether it is
/// one of success. \a progress is told of the download in bytes, then of the loading in lines.
QString updateGeoIp(
    const QString &file, bool *ok, const ProgressCallback &progress = ignoreProgress);

/// Whether no ranges were loaded in the current month. For other programs of the suite.
bool geoIpIsStale();

} // namespace vesk::analytics
