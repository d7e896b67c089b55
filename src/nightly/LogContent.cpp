#include "nightly/LogContent.h"

#include "translate/TimeSpan.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace vesk::nightly {

namespace {

constexpr qint64 kFinalAfterSecs = qint64 { 24 } * 60 * 60;

constexpr quint64 kFineLines = 1024; // so what is not told of a beginning is less than 1/1024 of it
constexpr qsizetype kBeginningBytes = 4;

/// Of how many lines about the line \a number one is told.
quint64 step(quint64 number)
{
    return std::bit_floor(std::max(number / kFineLines, quint64 { 1 }));
}

/// Whether the whole of \a content, with \a last as the time of its last line, is the beginning of
/// what \a entry stands for.
bool isBeginning(const LogContent &content, std::optional<qint64> last, const Entry &entry)
{
    const bool endsLater = last && entry.span.last && *last > *entry.span.last;
    return content.bytes() < entry.bytes && entry.beginnings.startsWith(content.beginnings())
        && !endsLater;
}

} // namespace

LogContent::LogContent(const RotatedLog &log)
    : m_reader(log.handle(), log.decompressor())
    , m_final(log.isArchive() || log.age() > kFinalAfterSecs)
{
}

std::optional<QByteArrayView> LogContent::first()
{
    m_first = read();
    return m_first;
}

bool LogContent::skip(const Entry &entry)
{
    measureAt(entry.bytes);
    while (m_bytes < entry.bytes) {
        const qint64 before = m_bytes;
        const auto line = next();
        if (!line)
            return false;
        if (m_bytes > entry.bytes)
            m_rest = line->sliced(std::min(qsizetype { entry.bytes - before }, line->size()));
    }
    return checksumAt(entry.bytes) == entry.content;
}

std::optional<QByteArrayView> LogContent::next()
{
    if (!m_rest.isEmpty())
        return std::exchange(m_rest, {});
    const auto line = m_first ? std::exchange(m_first, {}) : read();
    if (line)
        add(*line);
    return line;
}

void LogContent::skipRest()
{
    while (next()) { }
}

std::optional<QByteArrayView> LogContent::read()
{
    const auto line = m_reader.next();
    const bool isUnfinished = m_reader.lastTaken();
    if (!line || (isUnfinished && (line->isEmpty() || !m_final)))
        return {};
    return line;
}

/// Counts \a line, the one that was read last.
void LogContent::add(QByteArrayView line)
{
    const qint64 end = m_reader.taken();
    auto measured = m_measured.upperBound(m_bytes);
    for (; measured != m_measured.end() && measured.key() < end; ++measured) {
        const qsizetype part = std::min(qsizetype { measured.key() - m_bytes }, line.size());
        *measured = m_checksum.digest(line.first(part)).toHex();
    }
    m_checksum.add(line);
    if (!m_reader.lastTaken()) {
        m_checksum.add("\n");
        const auto number = static_cast<quint64>(++m_lines);
        if (number % step(number) == 0)
            m_beginnings += m_checksum.digest().first(kBeginningBytes);
    }
    m_bytes = end;
    if (measured != m_measured.end() && measured.key() == end)
        *measured = checksum();
}

Likeness compare(LogContent &content, const QList<Entry> &entries)
{
    for (const Entry &entry : entries)
        content.measureAt(entry.bytes);
    QByteArray lastLine;
    while (const auto line = content.next())
        lastLine = line->toByteArray();

    Likeness likeness;
    for (const Entry &entry : entries) {
        if (content.checksumAt(entry.bytes) != entry.content) {
            if (isBeginning(content, translate::timeOf(lastLine), entry))
                likeness.beginningOf = entry;
        } else if (entry.bytes == content.bytes()) {
            likeness.same = entry;
        } else {
            likeness.continues.append(entry);
        }
    }
    std::sort(likeness.continues.begin(), likeness.continues.end(),
        [](const Entry &a, const Entry &b) { return a.bytes > b.bytes; });
    return likeness;
}

Span spanOf(LogContent &content)
{
    Span span;
    while (const auto line = content.next()) {
        if (const auto at = translate::timeOf(*line))
            span.add(*at);
    }
    return span;
}

} // namespace vesk::nightly
