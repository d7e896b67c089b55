#include "translate/MergedLines.h"

#include "analytics/LogParser.h"

#include <algorithm>

namespace vesk::translate {

MergedLines::MergedLines(const std::vector<LineSource> &logs)
{
    m_logs.reserve(logs.size());
    for (const LineSource &source : logs)
        m_logs.push_back({ source });
}

std::optional<QByteArrayView> MergedLines::next()
{
    if (m_latest) {
        advance(m_logs[*m_latest]);
    } else {
        for (Log &log : m_logs)
            advance(log);
    }
    const auto first = std::min_element(m_logs.begin(), m_logs.end(),
        [](const Log &a, const Log &b) { return a.line && (!b.line || a.at < b.at); });
    if (first == m_logs.end())
        return {};
    m_latest = static_cast<std::size_t>(first - m_logs.begin());
    return first->line;
}

void MergedLines::advance(Log &log) const
{
    log.line = log.source();
    if (!log.line || m_logs.size() == 1) // the time of a single log's lines does not matter
        return;
    if (const auto entry = analytics::parseCombined(*log.line))
        log.at = entry->at.toSecsSinceEpoch();
}

} // namespace vesk::translate
