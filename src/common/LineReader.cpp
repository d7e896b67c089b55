#include "common/LineReader.h"

#include "common/Gzip.h"

#include <QFile>
#include <QProcess>

#include <algorithm>
#include <cstring>

namespace vesk {

namespace {

constexpr qsizetype kChunkBytes = qsizetype { 256 } * 1024;

std::unique_ptr<QIODevice> openGunzip(const QString &path)
{
    auto child = std::make_unique<QProcess>();
    child->setStandardInputFile(path);
    child->setStandardErrorFile(QProcess::nullDevice());
    child->start(QStringLiteral("gunzip"), { QStringLiteral("-c") });
    if (!child->waitForStarted(-1))
        return {};
    return child;
}

std::unique_ptr<QIODevice> openInput(const QString &path)
{
    auto file = std::make_unique<QFile>(path);
    if (!file->open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return {};
    if (isGzipName(path))
        return openGunzip(path);
    return file;
}

} // namespace

LineReader::LineReader(const QString &path)
    : m_input(openInput(path))
{
}

LineReader::~LineReader()
{
    if (auto *child = qobject_cast<QProcess *>(m_input.get())) {
        child->kill(); // without effect on one that has ended
        child->waitForFinished(-1);
    }
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
            return QByteArrayView(begin, std::min(length, kMaxLineBytes + 1));
        }
        searched = m_end - m_begin;
        if (searched > kMaxLineBytes + 1) {
            searched = kMaxLineBytes + 1;
            m_end = m_begin + searched; // the rest of an overlong line is passed over
        }
        if (!refill())
            break;
    }
    if (m_lastTaken)
        return {};
    m_lastTaken = true;
    return QByteArrayView(m_buffer).sliced(m_begin, m_end - m_begin);
}

/// Moves the unfinished line to the front and reads more behind it; false at the end of the input.
bool LineReader::refill()
{
    if (!m_input)
        return false;
    if (m_begin > 0) {
        std::memmove(
            m_buffer.data(), m_buffer.constData() + m_begin, static_cast<size_t>(m_end - m_begin));
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_buffer.size() < m_end + kChunkBytes)
        m_buffer.resize(m_end + kChunkBytes);
    if (m_input->isSequential() && m_input->bytesAvailable() == 0)
        m_input->waitForReadyRead(-1);
    const qint64 got = m_input->read(m_buffer.data() + m_end, m_buffer.size() - m_end);
    if (got <= 0)
        return false;
    m_end += got;
    return true;
}

} // namespace vesk
