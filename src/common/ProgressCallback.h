#pragma once

#include <QString>

#include <functional>

namespace vesk {

/// Is told how much of a piece of work is done, in a unit such as "lines": 0 when it begins, then
/// now and then. The total is 0 when it is not known.
using ProgressCallback = std::function<void(QLatin1String unit, qint64 done, qint64 total)>;

inline void ignoreProgress(QLatin1String, qint64, qint64) { }

} // namespace vesk
