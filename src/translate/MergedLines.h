#pragma once

#include "translate/LineSource.h"

#include <QByteArrayView>

#include <cstddef>
#include <limits>
#include <optional>
#include <vector>

namespace vesk::translate {

/// Several logs of combined lines as one, in the order of their times. These are instants, in
/// whatever offset they are written. Each log keeps its own order, also where that is not the order
/// of times, for only its next line is looked at. Of equal times the line of the first log comes
/// first. A line without a readable time goes with the one before it in its log.
class MergedLines
{
public:
    explicit MergedLines(const std::vector<LineSource> &logs);

    /// The next line, valid until the next call; nothing after the last.
    std::optional<QByteArrayView> next();

    /// The index of the log that the line handed out last is of.
    std::size_t latest() const { return m_latest.value_or(0); }

private:
    /// A log with the line that comes next in it.
    struct Log
    {
        LineSource source;
        std::optional<QByteArrayView> line = {};
        qint64 at = std::numeric_limits<qint64>::min(); ///< seconds since 1970
    };

    void advance(Log &log) const;

    std::vector<Log> m_logs;
    std::optional<std::size_t> m_latest; ///< the log whose line was handed out
};

} // namespace vesk::translate
