#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QDateTime>
#include <QString>

#include <optional>

namespace vesk::analytics {

/// One line of an access log.
struct LogLine
{
    QString ip; ///< first field as the server wrote it, whether an address or not
    QDateTime at; ///< UTC, in the years 1 to 9999
    QByteArray method;
    QByteArray target; ///< path and query as sent, still percent-encoded
    int status = 0;
    qint64 bytes = 0; ///< response size; 0 when not logged
    QByteArray referrer; ///< empty when not logged
    QByteArray userAgent; ///< empty when not logged
    qint64 responseUs = -1; ///< request duration in microseconds; -1 when not logged
};

/// Parses \a line, given without its line feed. Returns nothing when it is no access-log entry.
/// Accepts the NCSA common and combined log formats, followed by any further fields, of which the
/// last one, when it is a number, is the request duration (Apache's %D; see "Custom Log Formats" in
/// the mod_log_config manual, which also describes the escapes in quoted fields).
std::optional<LogLine> parseCombined(QByteArrayView line);

} // namespace vesk::analytics
