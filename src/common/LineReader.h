#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QFile>
#include <QString>

#include <memory>
#include <optional>

class QProcess;

namespace vesk {

/// Reads a file of any size line by line in a fixed amount of memory. A name ending in ".gz" is
/// read through the program gunzip as its output comes; of a damaged archive the lines before the
/// damage are read.
class LineReader
{
public:
    /// A file that cannot be opened reads like an empty one.
    explicit LineReader(const QString &path);
    /// Reads the file through the program \a decompressor whatever the name, or as it is when
    /// that is empty.
    LineReader(const QString &path, const QString &decompressor);
    /// The same of the open file \a handle from its beginning, whatever its name is by now. It is
    /// not closed, and shares its position.
    LineReader(int handle, const QString &decompressor);
    ~LineReader();
    Q_DISABLE_COPY_MOVE(LineReader)

    /// The next piece of the content split at line feeds, without the line feed; valid until the
    /// next call. Of a line beyond kMaxLineBytes the first kMaxLineBytes + 1 bytes are handed out,
    /// so that the caller can tell, and the rest is passed over. There is one piece more than there
    /// are line feeds: content that ends in a line feed, or is empty, has an empty last piece.
    /// Nothing after the last piece.
    std::optional<QByteArrayView> next();

    /// Bytes of the content, without compression, of what next() has handed out or passed over.
    qint64 taken() const { return m_taken; }
    /// Whether the piece handed out by next() was the last one, which no line feed ends.
    bool lastTaken() const { return m_lastTaken; }
    /// After the last piece: whether the file could be read to its end and an archive is undamaged.
    bool intact();

    /// Bytes of the file that have been read so far, of an archive the compressed ones; lines
    /// handed out are somewhat behind. 0 for a pipe.
    qint64 position() const;
    /// Bytes of the file at this moment; 0 for what has no size, such as a pipe.
    qint64 size() const;

private:
    void start(const QString &decompressor);
    bool refill();
    qint64 read(char *to, qint64 size);

    QFile m_file; ///< shares its position with m_child
    std::unique_ptr<QProcess> m_child; ///< of an archive only
    QByteArray m_buffer;
    qsizetype m_begin = 0; ///< first byte of m_buffer that has not been handed out
    qsizetype m_end = 0; ///< end of the bytes read into m_buffer
    qint64 m_taken = 0;
    bool m_lastTaken = false;
    bool m_failed = false; ///< could not be opened or read
};

} // namespace vesk
