#pragma once

namespace vesk::nightly {

class Ledger;

/// Keeps other runs from working on the ledger's site until the process ends. When one does
/// already, says so and waits. False after the report of db::exec().
bool takeTurn(Ledger &ledger);

} // namespace vesk::nightly
