#pragma once

#include "common/LineReader.h"
#include "common/Sha256.h"
#include "nightly/Entry.h"
#include "nightly/RotatedLogs.h"

#include <QMap>

namespace vesk::nightly {

/// The lines of a log in one pass, with what tells its content from another's. A log, which has to
/// live longer, can be read by one object at a time.
///
/// A line without a line feed may still be written. It is handed out once the log will not grow any
/// more: when it is an archive, or was not written to for a day.
class LogContent
{
public:
    explicit LogContent(const RotatedLog &log);

    /// The first line, which next() hands out all the same. Nothing when there is none.
    std::optional<QByteArrayView> first();

    /// After first(): whether that is all there is, and no line feed ends it.
    bool endsInFirst() const { return m_reader.lastTaken(); }

    /// Has checksumAt() tell of the beginning with \a bytes bytes. Before next().
    void measureAt(qint64 bytes) { m_measured.insert(bytes, {}); }

    /// Passes over what \a entry says was imported. False when the log does not begin with that;
    /// then nothing else can be done with this object. Before next().
    bool skip(const Entry &entry);

    /// The next line, valid until the next call.
    std::optional<QByteArrayView> next();
    /// Passes over all that is left.
    void skipRest();

    /// Bytes without compression up to the end of the last line handed out, and their SHA-256 in
    /// hexadecimal digits.
    qint64 bytes() const { return m_bytes; }
    QByteArray checksum() const { return m_checksum.digest().toHex(); }
    /// The same of the first \a bytes bytes; empty when there are fewer.
    QByteArray checksumAt(qint64 bytes) const { return m_measured.value(bytes); }

    /// The first four bytes of the SHA-256 of all up to the end of the 1st, 2nd ... 2048th line, of
    /// every second line from there to the 4096th, of every fourth to the 8192nd and so on: what a
    /// copy of the log that was cut off is told by. Stored; a change would take no copy for one.
    const QByteArray &beginnings() const { return m_beginnings; }

    /// After the last line: whether all could be read.
    bool intact() { return m_reader.intact(); }

private:
    std::optional<QByteArrayView> read();
    void add(QByteArrayView line);

    LineReader m_reader;
    const bool m_final;
    std::optional<QByteArrayView> m_first; ///< read ahead
    QByteArrayView m_rest; ///< of a line whose beginning was imported
    RunningSha256 m_checksum;
    qint64 m_bytes = 0;
    qint64 m_lines = 0; ///< that end in a line feed
    QByteArray m_beginnings;
    QMap<qint64, QByteArray> m_measured; ///< checksums of beginnings by their lengths
};

/// How the content of a log relates to what is imported.
struct Likeness
{
    std::optional<Entry> same;
    std::optional<Entry> beginningOf; ///< of a longer one
    QList<Entry> continues; ///< of which it is more, the longest first
};

/// Compares the rest of \a content, of which nothing has been read but the first line, with those
/// that begin with the same line.
Likeness compare(LogContent &content, const QList<Entry> &entries);

/// The times of the lines that are left of \a content.
Span spanOf(LogContent &content);

} // namespace vesk::nightly
