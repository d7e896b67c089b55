#pragma once

#include "common/ProgressCallback.h"

#include <QJsonObject>
#include <QString>

namespace vesk::analytics {

/// What a search engine reports of one day.
struct SearchDay
{
    QString day; ///< as given, whether a date or not
    int clicks = 0;
    int impressions = 0;
    double position = 0; ///< average place among the results, 1 is the top
};

/// What a search engine reports of one query, page, country and device on one day.
struct SearchRow : SearchDay
{
    QString query;
    QString path; ///< of the page, decoded
    QString country; ///< ISO 3166-1 alpha-3 in lower case
    QString device; ///< in lower case
};

/// Reads an object of "totals". What is missing or of another type is empty or 0.
SearchDay readSearchDay(const QJsonObject &object);

/// Reads an object of "rows", likewise.
SearchRow readSearchRow(const QJsonObject &object);

/// Stores a search engine's performance data for a site, as its search console exports it: "totals"
/// with one object per day (keys: day) and "rows" with details (keys: day, query, page URL, ISO
/// 3166-1 alpha-3 country, device), each with clicks, impressions and position. Replaces what is
/// stored for this site and engine in the range of days that the totals cover, all or nothing.
/// Returns a message for the user; \a ok tells whether it is one of success. \a progress is told in
/// rows.
QString importSearchData(int site, const QString &engine, const QJsonObject &data, bool *ok,
    const ProgressCallback &progress = ignoreProgress);

} // namespace vesk::analytics
