#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

/// The import of rotated logs, each one once: what vesk-nightly does.
namespace vesk::nightly {

/// The times of the lines of a log, in seconds since 1970. Nothing of them when none is known.
struct Span
{
    std::optional<qint64> first;
    std::optional<qint64> last;

    void add(qint64 at);
    void unite(const Span &other);
    bool operator==(const Span &other) const = default;
};

/// What is known of a log that was imported, or noted as such.
struct Entry
{
    qint64 id = 0; ///< 0: not in the table yet
    QByteArray firstLine; ///< SHA-256 of the first line with its line feed, in hexadecimal digits
    QByteArray content; ///< SHA-256 of the first \a bytes bytes; of overlong lines their beginnings
    qint64 bytes = 0; ///< imported so far, without compression
    QByteArray beginnings; ///< see LogContent::beginnings(); empty when unknown
    Span span;
    QString name; ///< the path it had
    std::optional<qint64> lines; ///< nothing when it was only noted
    std::optional<qint64> stored;
    QString at; ///< date and time of the latest import in the session's time zone; only read
};

} // namespace vesk::nightly
