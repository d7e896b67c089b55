// Logs of other formats. The input is the fields of a request, with U+001E between them: each
// server writes its line of it, which has to become the row that was sent. It is also taken as a
// log.

#include "Check.h"

#include "analytics/RowBuilder.h"
#include "translate/TranslatedLog.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QString>

#include <algorithm>
#include <array>
#include <cstring>

using namespace vesk;
using analytics::Row;
using analytics::RowBuilder;
using translate::Format;

namespace {

constexpr std::array kFormats { Format::Combined, Format::VhostCombined, Format::TraefikCommon,
    Format::TraefikJson, Format::CaddyJson, Format::NginxJson };

struct Sent
{
    QByteArray method;
    QByteArray target;
    QByteArray referrer;
    QByteArray agent;
    QByteArray host;
    int status = 0;
    qint64 at = 0; ///< seconds since 1970
};

bool isJson(Format format)
{
    return translate::namesHosts(format) && format != Format::VhostCombined;
}

/// What the input says, as far as a request can have it: a method that is a token, a header field
/// without a line feed and blanks at its ends.
Sent sentBy(QByteArrayView input)
{
    const QByteArrayList fields = input.toByteArray().split('\x1e');
    Sent sent;
    for (const char c : fields.value(0)) {
        if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'z' && !std::strchr("[\\]", c)))
            sent.method += c;
    }
    sent.method += sent.method.isEmpty() ? "GET" : "";
    sent.target = fields.value(1);
    sent.referrer = fields.value(2);
    sent.agent = fields.value(3);
    sent.host = fields.value(4);
    sent.status = std::abs(fields.value(5).toInt() % 1000);
    sent.at = std::abs(fields.value(6).toLongLong() % 253402300800);
    return sent;
}

/// Qt would take a byte order mark at the beginning away.
QString decoded(const QByteArray &utf8)
{
    return QString::fromUtf8('x' + utf8).sliced(1);
}

/// The same as a server sees it that is written in Go: in its texts what is not UTF-8 is replaced.
Sent inUtf8(Sent sent)
{
    for (QByteArray *text : { &sent.target, &sent.referrer, &sent.agent, &sent.host })
        *text = decoded(*text).toUtf8();
    return sent;
}

QByteArray quoted(const QByteArray &text)
{
    return '"' + QByteArray(text).replace('\\', "\\\\").replace('"', "\\\"") + '"';
}

/// As nginx quotes with escape=json.
QByteArray jsonQuoted(const QByteArray &text)
{
    QByteArray escaped;
    for (const char c : quoted(text)) {
        const bool isControl = c >= 0 && c < ' ';
        escaped += isControl ? "\\u00" + QByteArray(1, c).toHex() : QByteArray(1, c);
    }
    return escaped;
}

QByteArray combined(const Sent &sent)
{
    const auto orDash = [](const QByteArray &text) { return text.isEmpty() ? "-" : text; };
    const QDateTime at = QDateTime::fromSecsSinceEpoch(sent.at, Qt::UTC);
    return "192.0.2.7 - - ["
        + QLocale::c().toString(at, QStringLiteral("dd/MMM/yyyy:HH:mm:ss +0000")).toLatin1() + "] "
        + quoted(sent.method + ' ' + sent.target + " HTTP/2.0") + ' '
        + QByteArray::number(sent.status) + " 5 " + quoted(orDash(sent.referrer)) + ' '
        + quoted(orDash(sent.agent));
}

QByteArray traefikJson(const Sent &sent)
{
    const QDateTime at = QDateTime::fromSecsSinceEpoch(sent.at, Qt::UTC);
    const QJsonObject line { { QStringLiteral("ClientHost"), QStringLiteral("192.0.2.7") },
        { QStringLiteral("RequestHost"), decoded(sent.host) },
        { QStringLiteral("RequestMethod"), decoded(sent.method) },
        { QStringLiteral("RequestPath"), decoded(sent.target) },
        { QStringLiteral("DownstreamStatus"), sent.status },
        { QStringLiteral("DownstreamContentSize"), 5 },
        { QStringLiteral("StartUTC"), at.addMSecs(999).toString(Qt::ISODateWithMs) },
        { QStringLiteral("Duration"), 37000999 },
        { QStringLiteral("request_Referer"), decoded(sent.referrer) },
        { QStringLiteral("request_User-Agent"), decoded(sent.agent) } };
    return QJsonDocument(line).toJson(QJsonDocument::Compact);
}

QByteArray caddyJson(const Sent &sent)
{
    const QJsonObject headers {
        { QStringLiteral("Referer"), QJsonArray { decoded(sent.referrer) } },
        { QStringLiteral("User-Agent"), QJsonArray { decoded(sent.agent) } },
    };
    const QJsonObject request { { QStringLiteral("client_ip"), QStringLiteral("192.0.2.7") },
        { QStringLiteral("host"), decoded(sent.host) },
        { QStringLiteral("method"), decoded(sent.method) },
        { QStringLiteral("uri"), decoded(sent.target) }, { QStringLiteral("headers"), headers } };
    const QJsonObject line { { QStringLiteral("ts"), static_cast<double>(sent.at) + 0.5 },
        { QStringLiteral("status"), sent.status }, { QStringLiteral("size"), 5 },
        { QStringLiteral("duration"), 0.037 }, { QStringLiteral("request"), request } };
    return QJsonDocument(line).toJson(QJsonDocument::Compact);
}

QByteArray nginxJson(const Sent &sent)
{
    const QDateTime at = QDateTime::fromSecsSinceEpoch(sent.at, Qt::OffsetFromUTC, 0);
    return R"({"time":")" + at.toString(Qt::ISODate).toLatin1() + R"(","host":)"
        + jsonQuoted(sent.host) + R"(,"remote_addr":"192.0.2.7","request":)"
        + jsonQuoted(sent.method + ' ' + sent.target + " HTTP/2.0") + R"(,"status":")"
        + QByteArray::number(sent.status).rightJustified(3, '0')
        + R"(","body_bytes_sent":"5","request_time":"0.037","http_referrer":)"
        + jsonQuoted(sent.referrer) + R"(,"http_user_agent":)" + jsonQuoted(sent.agent) + '}';
}

QByteArray written(Format format, const Sent &sent)
{
    switch (format) {
    case Format::Combined:
        return combined(sent) + " 37000";
    case Format::VhostCombined:
        return "example.org:443 " + combined(sent) + " 37000";
    case Format::TraefikCommon:
        return combined(sent) + R"( 9 "web@docker" "http://10.0.0.5:80" 37ms)";
    case Format::TraefikJson:
        return traefikJson(sent);
    case Format::CaddyJson:
        return caddyJson(sent);
    case Format::NginxJson:
        return nginxJson(sent);
    }
    return {};
}

/// What RowBuilder makes of \a line; \a row only counts when that is a row.
RowBuilder::Outcome build(QByteArrayView line, Row &row)
{
    return RowBuilder(QByteArrayLiteral("secret"), 1, QStringLiteral("example.org"))
        .build(line, row);
}

/// Checks that the line of the server in \a format becomes the row that its request is.
void checkRequest(Format format, Sent sent)
{
    const QByteArray line = written(format, sent);
    if (line.contains('\n')) // no server writes that in one of the formats that are text
        return;
    const auto entry = translate::translate(format, line);
    fuzz::check(entry.has_value(), "a server's line is an entry");
    fuzz::check(!entry->line.contains('\n'), "a line becomes one line");
    fuzz::check(entry->host.value_or(sent.host) == sent.host || !isJson(format), "same host");

    sent.referrer.replace('\n', ' ');
    sent.agent.replace('\n', ' ');
    Row row;
    Row expected;
    const RowBuilder::Outcome outcome = build(entry->line, row);
    fuzz::check(outcome == build(combined(sent) + " 37000", expected), "a row if it is one");
    if (outcome != RowBuilder::Outcome::Row)
        return;
    fuzz::check(row.log.status == (row.engagedSecs ? 204 : sent.status), "same status");
    fuzz::check(row.log.referrer == (sent.referrer == "-" ? "" : sent.referrer), "same referrer");
    fuzz::check(row.log.userAgent == (sent.agent == "-" ? "" : sent.agent), "same user agent");
    fuzz::check(row.log.at.toSecsSinceEpoch() == sent.at, "same time");
    fuzz::check(row.path == expected.path && row.page == expected.page, "same path");
    fuzz::check(row.log.method == expected.log.method && row.log.bytes == 5, "same request");
    fuzz::check(row.log.responseUs == 37000 && row.ip == expected.ip, "same duration and address");
    fuzz::check(row.source.kind == expected.source.kind && row.source.name == expected.source.name
            && row.source.searchTerms == expected.source.searchTerms,
        "same source");
}

/// Checks that a line comes out for each line, and what does as an entry is one to the parser.
void checkLog(const std::uint8_t *data, std::size_t size)
{
    const QList<QByteArrayView> lines = fuzz::lines(data, size);
    for (const QByteArrayView line : lines) {
        for (const Format format : kFormats) {
            const auto entry = translate::translate(format, line);
            fuzz::check(!entry || !translate::namesHosts(format)
                    || analytics::parseCombined(entry->line).has_value(),
                "an entry is one to the parser");
        }
    }
    auto next = lines.begin();
    translate::TranslatedLog log(
        [&] { return next == lines.end() ? std::nullopt : std::optional(*next++); },
        translate::SiteHosts(QStringLiteral("example.org")));
    qint64 taken = 0;
    qint64 strange = 0;
    while (const auto line = log.next()) {
        ++taken;
        fuzz::check(!line->contains('\n'), "a line becomes at most one line");
        if (log.strangeLines() > strange)
            fuzz::check(!analytics::parseCombined(*line), "what is no entry is none to the parser");
        strange = log.strangeLines();
    }
    fuzz::check(taken + log.othersLines() == lines.size() && log.lines() == lines.size(),
        "no line is lost");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    checkLog(data, size);
    const Sent sent = sentBy(fuzz::view(data, size));
    for (const Format format : kFormats)
        checkRequest(format,
            format == Format::CaddyJson || format == Format::TraefikJson ? inUtf8(sent) : sent);
    return 0;
}
