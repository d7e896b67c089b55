#include "nightly/LogContent.h"

#include <algorithm>
#include <utility>

namespace vesk::nightly {

namespace {

constexpr qint64 kFinalAfterSecs = qint64 { 24 } * 60 * 60;

} // namespace

LogContent::LogContent(const RotatedLog &log)
    : m_reader(log.path, log.decompressor())
    , m_final(log.isArchive() || log.age() > kFinalAfterSecs)
{
}

bool LogContent::skip(const Entry &entry)
{
    QCryptographicHash imported(QCryptographicHash::Sha256);
    while (m_bytes < entry.bytes) {
        const qint64 before = m_bytes;
        const auto line = next();
        if (!line)
            return false;
        const qsizetype part = std::min(qsizetype { entry.bytes - before }, line->size());
        imported.addData(line->first(part));
        if (m_bytes > entry.bytes)
            m_rest = line->sliced(part);
        else if (!m_reader.lastTaken())
            imported.addData("\n");
    }
    return imported.result().toHex() == entry.content;
}

std::optional<QByteArrayView> LogContent::next()
{
    if (!m_rest.isEmpty())
        return std::exchange(m_rest, {});
    const auto line = m_reader.next();
    const bool unfinished = m_reader.lastTaken();
    if (!line || (unfinished && (line->isEmpty() || !m_final)))
        return {};
    m_checksum.addData(*line);
    if (!unfinished)
        m_checksum.addData("\n");
    m_bytes = m_reader.taken();
    return line;
}

} // namespace vesk::nightly
