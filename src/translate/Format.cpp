#include "translate/Format.h"

#include "analytics/LogParser.h"
#include "common/LineLimit.h"
#include "translate/JsonEntry.h"

#include <algorithm>
#include <array>

namespace vesk::translate {

namespace {

using analytics::parseCombined;

bool isJson(QByteArrayView line)
{
    return line.trimmed().startsWith('{');
}

/// Whether the last field is a number of milliseconds: "37ms".
bool endsWithMilliseconds(QByteArrayView line)
{
    if (!line.endsWith("ms"))
        return false;
    const QByteArrayView digits = line.chopped(2).sliced(line.lastIndexOf(' ') + 1);
    return !digits.isEmpty()
        && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::optional<Entry> vhostEntry(QByteArrayView line)
{
    const qsizetype blank = line.indexOf(' ');
    if (blank <= 0)
        return {};
    const QByteArrayView rest = line.sliced(blank + 1);
    const auto parsed = parseCombined(rest);
    // A user name with a blank in it looks like one more field in front, too.
    if (!parsed || parsed->ip == QLatin1String("-"))
        return {};
    return Entry { line.first(blank).toByteArray(), rest.toByteArray() };
}

} // namespace

QString formatName(Format format)
{
    switch (format) {
    case Format::Combined:
        return QStringLiteral("combined");
    case Format::VhostCombined:
        return QStringLiteral("combined with host");
    case Format::TraefikCommon:
        return QStringLiteral("Traefik's common format");
    case Format::TraefikJson:
        return QStringLiteral("Traefik's JSON");
    case Format::CaddyJson:
        return QStringLiteral("Caddy's JSON");
    case Format::NginxJson:
        return QStringLiteral("nginx's JSON");
    }
    return {};
}

bool namesHosts(Format format)
{
    return format != Format::Combined && format != Format::TraefikCommon;
}

std::optional<Entry> translate(Format format, QByteArrayView line)
{
    const bool isJsonFormat = namesHosts(format) && format != Format::VhostCombined;
    if (line.size() > kMaxLineBytes || isJson(line) != isJsonFormat)
        return {};
    if (isJsonFormat)
        return jsonEntry(format, line);
    if (format == Format::VhostCombined)
        return vhostEntry(line);
    if (format == Format::TraefikCommon && endsWithMilliseconds(line))
        return Entry { {}, line.chopped(2).toByteArray() + "000" };
    return Entry { {}, line.toByteArray() };
}

std::optional<Format> formatOf(QByteArrayView line)
{
    constexpr std::array kNamingHosts { Format::CaddyJson, Format::TraefikJson, Format::NginxJson,
        Format::VhostCombined };
    if (line.size() > kMaxLineBytes)
        return {};
    if (!isJson(line) && parseCombined(line))
        return endsWithMilliseconds(line) ? Format::TraefikCommon : Format::Combined;
    for (const Format format : kNamingHosts) {
        if (translate(format, line))
            return format;
    }
    return {};
}

} // namespace vesk::translate
