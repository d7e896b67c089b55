#pragma once

#include <QDate>
#include <QList>
#include <QSet>

#include <optional>

/// What is kept of the single requests of each day in vesk_nightly.figures, without addresses and
/// visitors. The table has to be there. All functions report failed statements as db::exec() does,
/// and then return false or nothing.
namespace vesk::figures {

/// The days from \a first to \a last whose figures are stored, and are those of as many requests as
/// the day's report counts.
std::optional<QSet<QDate>> validDays(int siteId, QDate first, QDate last);

/// The days that have a report and all requests that it counts, but no such figures, in order. The
/// first hundred of them.
std::optional<QList<QDate>> missingDays(int siteId);

/// Replaces the figures of a day by those of its requests. They stay as they are when the requests
/// are not as many as the day's report counts. Inside a transaction only, which it gives settings.
bool store(int siteId, QDate day);

} // namespace vesk::figures
