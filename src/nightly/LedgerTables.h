#pragma once

#include <optional>

namespace vesk::nightly {

/// The tables of schema vesk_nightly as they are in the database.
enum class LedgerVersion {
    None,
    First, ///< without files, times and beginnings of contents
    Second, ///< without figures
    Third, ///< without the days whose requests are deleted
    Current,
};

/// Nothing, after the report of db::exec(), when the database cannot be asked.
std::optional<LedgerVersion> ledgerVersion();

/// Makes the tables that are missing, and turns those of earlier versions into the current ones.
/// False after the report of db::exec().
bool createLedgerTables();

/// Waits until no other session changes the tables; then none will until the end of the open
/// transaction. Of two sites' first runs at the same time one makes them. False after the report of
/// db::exec().
bool lockLedgerTables();

} // namespace vesk::nightly
