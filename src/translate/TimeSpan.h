#pragma once

#include "translate/LineSource.h"

#include <QtGlobal>

#include <optional>

namespace vesk::translate {

/// From when to when a log goes, in seconds since 1970.
struct TimeSpan
{
    qint64 first = 0;
    qint64 last = 0;
};

/// The time of an entry in any of the formats, in seconds since 1970; nothing when \a line is none.
std::optional<qint64> timeOf(QByteArrayView line);

/// The times of the first and of the last entry of a log in any of the formats, of whatever hosts.
/// Nothing when it has none, or the last 16 lines have none. All of \a lines are read, which is
/// cheap, for hardly any is looked at.
std::optional<TimeSpan> timeSpan(const LineSource &lines);

} // namespace vesk::translate
