#include "common/LineReader.h"

#include "common/FilePath.h"
#include "common/Gzip.h"
#include "common/LineLimit.h"

#include <QProcess>

#include <algorithm>
#include <cstring>

#include <unistd.h>

namespace vesk {

namespace {

constexpr qsizetype kChunkBytes = qsizetype { 256 } * 1024;

} // namespace

LineReader::LineReader(const QString &path)
    : LineReader(path, isGzipName(path) ? QStringLiteral("gunzip") : QString())
{
}

LineReader::LineReader(const QString &path, const QString &decompressor)
{
    m_failed = !openForReading(m_file, path);
    start(decompressor);
}

LineReader::LineReader(int handle, const QString &decompressor)
{
    m_failed = lseek(handle, 0, SEEK_SET) < 0
        || !m_file.open(handle, QIODevice::ReadOnly | QIODevice::Unbuffered);
    start(decompressor);
}

void LineReader::start(const QString &decompressor)
{
    if (m_failed || decompressor.isEmpty())
        return;
    m_child = std::make_unique<QProcess>();
    m_child->setStandardErrorFile(QProcess::nullDevice());
    m_failed = !startDecompressor(*m_child, decompressor, m_file.handle());
    if (m_failed) {
        m_child.reset();
        m_file.close();
    }
}

LineReader::~LineReader()
{
    if (m_child) {
        m_child->kill(); // without effect on one that has ended
        m_child->waitForFinished(-1);
    }
}

bool LineReader::intact()
{
    if (m_failed || !m_child)
        return !m_failed;
    m_child->waitForFinished(-1); // at once false when it has ended already
    return endedWell(*m_child);
}

qint64 LineReader::position() const
{
    return std::max(qint64 { lseek(m_file.handle(), 0, SEEK_CUR) }, qint64 { 0 });
}

qint64 LineReader::size() const
{
    return m_file.isSequential() ? 0 : m_file.size();
}

std::optional<QByteArrayView> LineReader::next()
{
    qsizetype searched = 0; // bytes from m_begin on known to hold no line feed
    for (;;) {
        const char *begin = m_buffer.constData() + m_begin;
        const auto size = static_cast<size_t>(m_end - m_begin - searched);
        if (const void *lf = size ? std::memchr(begin + searched, '\n', size) : nullptr) {
            const qsizetype length = static_cast<const char *>(lf) - begin;
            m_begin += length + 1;
            m_taken += length + 1;
            return QByteArrayView(begin, std::min(length, kMaxLineBytes + 1));
        }
        searched = m_end - m_begin;
        if (searched > kMaxLineBytes + 1) {
            searched = kMaxLineBytes + 1;
            m_taken += m_end - m_begin - searched;
            m_end = m_begin + searched; // the rest of an overlong line is passed over
        }
        if (!refill())
            break;
    }
    if (m_lastTaken)
        return {};
    m_lastTaken = true;
    m_taken += m_end - m_begin;
    return QByteArrayView(m_buffer).sliced(m_begin, m_end - m_begin);
}

/// Moves the unfinished line to the front and reads more behind it; false at the end of the input.
bool LineReader::refill()
{
    if (m_begin > 0) {
        std::memmove(
            m_buffer.data(), m_buffer.constData() + m_begin, static_cast<size_t>(m_end - m_begin));
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_buffer.size() < m_end + kChunkBytes)
        m_buffer.resize(m_end + kChunkBytes);
    const qint64 got = read(m_buffer.data() + m_end, m_buffer.size() - m_end);
    if (got <= 0) {
        m_failed = m_failed || (got < 0 && !m_child); // a child's end reads so, too
        return false;
    }
    m_end += got;
    return true;
}

/// What is there of up to \a size bytes, after waiting for the first; none at the end of the input.
qint64 LineReader::read(char *to, qint64 size)
{
    if (!m_child) // QFile would wait for all the bytes
        return TEMP_FAILURE_RETRY(::read(m_file.handle(), to, static_cast<size_t>(size)));
    if (m_child->bytesAvailable() == 0)
        m_child->waitForReadyRead(-1);
    return m_child->read(to, size);
}

} // namespace vesk
