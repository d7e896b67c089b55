#pragma once

#include <QJsonObject>
#include <QString>

namespace vesk::analytics {

/// Stores a search engine's performance data for a site, as its search console exports it: "totals"
/// with one object per day (keys: day) and "rows" with details (keys: day, query, page URL, ISO
/// 3166-1 alpha-3 country, device), each with clicks, impressions and position. Replaces what is
/// stored for this site and engine in the range of days that the totals cover, all or nothing.
/// Returns a message for the user; \a ok tells whether it is one of success.
QString importSearchData(int site, const QString &engine, const QJsonObject &data, bool *ok);

} // namespace vesk::analytics
