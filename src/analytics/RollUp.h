#pragma once

class QDate;

namespace vesk::analytics {

/// Recomputes the report lines of a day of a site, as the database cuts days. False after the
/// report of db::exec(); inside a transaction that is then lost.
bool rollUpDay(int siteId, QDate day);

} // namespace vesk::analytics
