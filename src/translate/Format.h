#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>

/// What web servers write as lines of the combined log format, which analytics::parseCombined()
/// reads. Nothing here knows of the database.
namespace vesk::translate {

/// How a web server writes its log.
enum class Format {
    Combined, ///< common or combined, with or without a duration in microseconds
    VhostCombined, ///< the same behind a host name, as in Debian's other_vhosts_access.log
    TraefikCommon, ///< combined with more fields, the last one a duration in milliseconds
    TraefikJson,
    CaddyJson,
    NginxJson, ///< with the log_format of docs/web-servers.md
};

/// The name of \a format for people.
QString formatName(Format format);

/// Whether lines in \a format say which host was asked.
bool namesHosts(Format format);

struct Entry
{
    std::optional<QByteArray> host; ///< as logged, maybe with a port; nothing when not logged
    QByteArray line; ///< in the combined format
};

/// The entry of \a line, given without its line feed. Nothing when it is none in \a format, or is
/// longer than kMaxLineBytes. Lines in the formats that name no host are for the parser to judge.
std::optional<Entry> translate(Format format, QByteArrayView line);

/// The format in which \a line is an entry; nothing when it is in none.
std::optional<Format> formatOf(QByteArrayView line);

} // namespace vesk::translate
