#pragma once

#include "common/LineReader.h"
#include "nightly/Ledger.h"
#include "nightly/RotatedLogs.h"

#include <QCryptographicHash>

namespace vesk::nightly {

/// The lines of a log in one pass, with what tells its content from another's.
///
/// A line without a line feed may still be written. It is handed out once the log will not grow any
/// more: when it is an archive, or was not written to for a day.
class LogContent
{
public:
    explicit LogContent(const RotatedLog &log);

    /// Passes over what \a entry says was imported. False when the log does not begin with that;
    /// then nothing else can be done with this object, but to read it to its end.
    bool skip(const Entry &entry);

    /// The next line, valid until the next call.
    std::optional<QByteArrayView> next();

    /// Bytes without compression up to the end of the last line handed out, and their checksum.
    qint64 bytes() const { return m_bytes; }
    QByteArray checksum() const { return m_checksum.result().toHex(); }

    /// After the last line: whether all could be read.
    bool intact() { return m_reader.intact(); }

private:
    LineReader m_reader;
    bool m_final;
    QCryptographicHash m_checksum { QCryptographicHash::Sha256 };
    qint64 m_bytes = 0;
    QByteArrayView m_rest; ///< of a line whose beginning was imported
};

} // namespace vesk::nightly
