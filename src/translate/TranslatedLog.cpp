#include "translate/TranslatedLog.h"

#include "analytics/LogParser.h"
#include "common/LineLimit.h"

#include <utility>

namespace vesk::translate {

TranslatedLog::TranslatedLog(LineSource lines, std::optional<SiteHosts> hosts)
    : m_source(std::move(lines))
    , m_hosts(std::move(hosts))
{
}

std::optional<QByteArrayView> TranslatedLog::next()
{
    while (const auto line = m_source()) {
        ++m_lines;
        if (line->trimmed().isEmpty())
            return line;
        auto entry = entryOf(*line);
        if (!entry) {
            ++m_strangeLines;
            return refusable(*line);
        }
        if (m_hosts && entry->host && !m_hosts->contains(*entry->host)) {
            ++m_othersLines;
            continue;
        }
        m_line = std::move(entry->line);
        return m_line;
    }
    return {};
}

std::optional<Entry> TranslatedLog::entryOf(QByteArrayView line)
{
    auto entry = m_format ? translate(*m_format, line) : std::nullopt;
    if (entry)
        return entry;
    const auto format = formatOf(line);
    if (!format || (m_format && !namesHosts(*format)))
        return {};
    m_format = format;
    if (!m_formats.contains(*format))
        m_formats.append(*format);
    return translate(*format, line);
}

/// \a line, or what is like it and no log entry.
QByteArrayView TranslatedLog::refusable(QByteArrayView line)
{
    if (line.size() > kMaxLineBytes || !analytics::parseCombined(line))
        return line;
    m_line = line.toByteArray().replace('[', '(').replace(']', ')');
    return m_line;
}

} // namespace vesk::translate
