#include "translate/TimeSpan.h"

#include "analytics/LogParser.h"
#include "translate/Format.h"

#include <QByteArray>

#include <algorithm>
#include <array>

namespace vesk::translate {

namespace {

constexpr size_t kLastLines = 16;

} // namespace

std::optional<qint64> timeOf(QByteArrayView line)
{
    const auto format = formatOf(line);
    const auto entry = format ? translate(*format, line) : std::nullopt;
    const auto parsed = entry ? analytics::parseCombined(entry->line) : std::nullopt;
    return parsed ? std::optional(parsed->at.toSecsSinceEpoch()) : std::nullopt;
}

std::optional<TimeSpan> timeSpan(const LineSource &lines)
{
    std::optional<qint64> first;
    std::array<QByteArray, kLastLines> latest; // the oldest is replaced
    size_t count = 0;
    while (const auto line = lines()) {
        if (line->trimmed().isEmpty())
            continue;
        if (!first)
            first = timeOf(*line);
        latest.at(count++ % kLastLines) = line->toByteArray();
    }
    for (size_t back = 1; first && back <= std::min(count, kLastLines); ++back) {
        if (const auto last = timeOf(latest.at((count - back) % kLastLines)))
            return TimeSpan { std::min(*first, *last), std::max(*first, *last) };
    }
    return {};
}

} // namespace vesk::translate
