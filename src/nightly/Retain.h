#pragma once

#include "common/Sites.h"

namespace vesk::nightly {

/// Deletes the requests of a site from days that are older than the setting raw_hit_days says, and
/// says which. A day whose report or figures lack some of its requests is left and named. False
/// when there is one, or after another message.
bool retain(const Site &site);

} // namespace vesk::nightly
