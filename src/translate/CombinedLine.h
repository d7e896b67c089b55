#pragma once

#include <QByteArray>

#include <optional>

namespace vesk::translate {

/// A request and its answer, as a web server tells of them.
struct Request
{
    QByteArray address; ///< of the client, maybe with a port
    qint64 at = 0; ///< seconds since 1970
    QByteArray request; ///< method, target and protocol with blanks between them
    int status = 0;
    qint64 bytes = -1; ///< -1 when not known
    QByteArray referrer;
    QByteArray userAgent;
    qint64 durationUs = -1; ///< microseconds; -1 when not known
};

/// The line that analytics::parseCombined() reads as \a request. Nothing for a time outside the
/// years 1 to 9999. Texts are written so that none can end its field or the line:
/// - a quote and a backslash with a backslash in front;
/// - control characters of the request as percent escapes, which in a path mean the same;
/// - a line feed in the other texts as a blank (RFC 9110, section 5.5).
/// The target ends at its first blank, as in any log of the format. An address that would not be
/// one field is written as "-".
std::optional<QByteArray> combinedLine(const Request &request);

} // namespace vesk::translate
