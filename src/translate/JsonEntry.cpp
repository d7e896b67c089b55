#include "translate/JsonEntry.h"

#include "translate/CombinedLine.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vesk::translate {

namespace {

constexpr int kMaxStatus = 999; // RFC 9110, section 15: three digits
constexpr double kMaxSeconds = 1e12; // beyond every year and duration, and well inside 64 bits
constexpr auto kByteOrderMark = "\xef\xbb\xbf";

/// The object on a line. Its texts are given as the bytes that the server wrote.
class JsonLine
{
public:
    explicit JsonLine(QByteArrayView line)
    {
        QByteArray text = QByteArray::fromRawData(line.data(), line.size());
        // Qt would leave the mark out at the beginning of a text, if it is not escaped.
        if (text.contains(kByteOrderMark))
            text.replace('"' + QByteArray(kByteOrderMark), "\"\\ufeff");
        QJsonParseError error {};
        m_object = QJsonDocument::fromJson(text, &error).object();
        if (error.error != QJsonParseError::IllegalUTF8String)
            return;
        m_isLatin1 = true;
        m_object = QJsonDocument::fromJson(QString::fromLatin1(line).toUtf8()).object();
    }

    const QJsonObject &object() const { return m_object; }

    /// A text, or the first of several; empty when it is neither.
    QByteArray text(const QJsonValue &value) const
    {
        const QString text
            = value.isArray() ? value.toArray().first().toString() : value.toString();
        return m_isLatin1 ? text.toLatin1() : text.toUtf8();
    }

    /// The same of a member that may be missing.
    std::optional<QByteArray> optionalText(const QJsonValue &value) const
    {
        if (value.isUndefined() || value.isNull())
            return {};
        return text(value);
    }

private:
    QJsonObject m_object;
    bool m_isLatin1 = false;
};

QJsonValue member(const QJsonObject &object, const char *name)
{
    return object.value(QLatin1String(name));
}

/// The first of two members that is there.
QJsonValue member(const QJsonObject &object, const char *name, const char *otherName)
{
    const QJsonValue value = member(object, name);
    return value.isUndefined() || value.isNull() ? member(object, otherName) : value;
}

/// A whole number that is not negative; -1 when it is none.
qint64 number(const QJsonValue &value)
{
    if (!value.isString())
        return std::max(value.toInteger(-1), qint64 { -1 });
    bool ok = false;
    const qint64 number = value.toString().toLongLong(&ok);
    return ok && number >= 0 ? number : -1;
}

/// Seconds with a fraction, as far as they can be times or durations.
std::optional<double> seconds(const QJsonValue &value)
{
    bool ok = value.isDouble();
    const double seconds = ok ? value.toDouble() : value.toString().toDouble(&ok);
    if (!ok || !(std::abs(seconds) < kMaxSeconds))
        return {};
    return seconds;
}

qint64 microseconds(const QJsonValue &value)
{
    const auto duration = seconds(value);
    return duration && *duration >= 0 ? std::llround(*duration * 1e6) : -1;
}

/// Seconds since 1970, without the fraction: of a number of them, or of a time with its offset
/// from UTC as in RFC 3339.
std::optional<qint64> timeOf(const QJsonValue &value)
{
    if (const auto sinceEpoch = seconds(value))
        return static_cast<qint64>(std::floor(*sinceEpoch));
    constexpr qsizetype kWholeSeconds = QLatin1String("yyyy-MM-ddTHH:mm:ss").size();
    QString text = value.toString();
    if (text.size() > kWholeSeconds && QLatin1String(".,").contains(text[kWholeSeconds])) {
        const auto begin = text.cbegin() + kWholeSeconds;
        const auto end
            = std::find_if_not(begin + 1, text.cend(), [](QChar c) { return c.isDigit(); });
        text.remove(kWholeSeconds, end - begin); // Qt would round it
    }
    if (text.size() <= kWholeSeconds) // without an offset
        return {};
    const QDateTime at = QDateTime::fromString(text, Qt::ISODate);
    if (!at.isValid())
        return {};
    return at.toSecsSinceEpoch();
}

/// Whether \a text is a token (RFC 9110, section 5.6.2), as every method is.
bool isToken(const QByteArray &text)
{
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')
            || (c != '\0' && std::strchr("!#$%&'*+-.^_`|~", c));
    });
}

/// Nothing when \a method is none, which would make the target another word.
std::optional<QByteArray> requestLine(
    const QByteArray &method, const std::optional<QByteArray> &target, const QByteArray &protocol)
{
    if (!isToken(method) || !target)
        return {};
    return method + ' ' + *target + ' ' + protocol;
}

/// Joins what the formats have in common; \a request holds the rest.
std::optional<Entry> entry(const std::optional<QByteArray> &host, const QJsonValue &time,
    const std::optional<QByteArray> &line, const QJsonValue &status, Request request)
{
    const auto at = timeOf(time);
    const qint64 code = number(status);
    if (!at || !line || code < 0 || code > kMaxStatus)
        return {};
    request.at = *at;
    request.request = *line;
    request.status = static_cast<int>(code);
    const auto combined = combinedLine(request);
    if (!combined)
        return {};
    return Entry { host, *combined };
}

/// Caddy's access log ("Structured logs" in its manual): a time at which the request ended, header
/// fields as arrays. The logger of errors tells of the same requests again.
std::optional<Entry> caddyEntry(const JsonLine &json)
{
    const QJsonObject &o = json.object();
    const QJsonObject from = member(o, "request").toObject();
    const QJsonObject headers = member(from, "headers").toObject();
    const auto logger = json.optionalText(member(o, "logger"));
    if (logger && !logger->startsWith("http.log.access"))
        return {};
    Request request;
    request.address = json.text(member(from, "client_ip"));
    if (request.address.isEmpty()) // before there was a list of trusted proxies
        request.address = json.text(member(from, "remote_ip", "remote_addr"));
    request.bytes = number(member(o, "size"));
    request.referrer = json.text(member(headers, "Referer"));
    request.userAgent = json.text(member(headers, "User-Agent"));
    request.durationUs = microseconds(member(o, "duration"));
    return entry(json.optionalText(member(from, "host")), member(o, "ts"),
        requestLine(json.text(member(from, "method")), json.optionalText(member(from, "uri")),
            json.text(member(from, "proto"))),
        member(o, "status"), request);
}

/// Traefik's access log (the fields of "Access logs" in its manual): durations in nanoseconds,
/// header fields with "request_" in front, if they are kept at all.
std::optional<Entry> traefikEntry(const JsonLine &json)
{
    const QJsonObject &o = json.object();
    const qint64 nanoseconds = number(member(o, "Duration"));
    Request request;
    request.address = json.text(member(o, "ClientHost", "ClientAddr"));
    request.bytes = number(member(o, "DownstreamContentSize"));
    request.referrer = json.text(member(o, "request_Referer"));
    request.userAgent = json.text(member(o, "request_User-Agent"));
    request.durationUs = nanoseconds < 0 ? -1 : nanoseconds / 1000;
    return entry(json.optionalText(member(o, "RequestHost", "RequestAddr")),
        member(o, "StartUTC", "time"),
        requestLine(json.text(member(o, "RequestMethod")),
            json.optionalText(member(o, "RequestPath")), json.text(member(o, "RequestProtocol"))),
        member(o, "DownstreamStatus"), request);
}

/// The log_format of docs/web-servers.md. The request is the client's line as it came.
std::optional<Entry> nginxEntry(const JsonLine &json)
{
    const QJsonObject &o = json.object();
    if (!member(o, "request").isString())
        return {};
    Request request;
    request.address = json.text(member(o, "remote_addr"));
    request.bytes = number(member(o, "body_bytes_sent"));
    request.referrer = json.text(member(o, "http_referrer", "http_referer"));
    request.userAgent = json.text(member(o, "http_user_agent"));
    request.durationUs = microseconds(member(o, "request_time"));
    return entry(json.optionalText(member(o, "host")), member(o, "time"),
        json.text(member(o, "request")), member(o, "status"), request);
}

} // namespace

std::optional<Entry> jsonEntry(Format format, QByteArrayView line)
{
    const JsonLine json(line);
    switch (format) {
    case Format::CaddyJson:
        return caddyEntry(json);
    case Format::TraefikJson:
        return traefikEntry(json);
    case Format::NginxJson:
        return nginxEntry(json);
    case Format::Combined:
    case Format::VhostCombined:
    case Format::TraefikCommon:
        break;
    }
    return {};
}

} // namespace vesk::translate
