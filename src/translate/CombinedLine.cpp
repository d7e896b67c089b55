#include "translate/CombinedLine.h"

#include <QDate>

#include <algorithm>
#include <array>
#include <cstdio>

namespace vesk::translate {

namespace {

constexpr qint64 kUnixEpochJulianDay = 2440588;
constexpr qint64 kSecondsPerDay = 86400;
constexpr qint64 kYear1 = -62135596800; // 0001-01-01 00:00 UTC in seconds since 1970
constexpr qint64 kYear10000 = 253402300800;

bool isControl(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7f;
}

/// "192.0.2.7:4711", "[2001:db8::7]:4711" and "[2001:db8::7]" without what is not of the address.
QByteArray withoutPort(const QByteArray &address)
{
    if (address.startsWith('[') && address.contains(']'))
        return address.sliced(1, address.indexOf(']') - 1);
    return address.count(':') == 1 ? address.first(address.indexOf(':')) : address;
}

QByteArray addressField(const QByteArray &address)
{
    QByteArray field = withoutPort(address);
    const bool isField
        = std::none_of(field.begin(), field.end(), [](char c) { return c == ' ' || isControl(c); });
    return field.isEmpty() || !isField ? QByteArrayLiteral("-") : field;
}

/// The time as the combined format has it: "10/Oct/2000:20:55:36 +0000".
void appendTime(QByteArray &line, qint64 at)
{
    static constexpr std::array kMonths { "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug",
        "Sep", "Oct", "Nov", "Dec" };
    const qint64 sinceYear1 = at - kYear1; // not negative, so that the division rounds down
    const qint64 days = sinceYear1 / kSecondsPerDay + kYear1 / kSecondsPerDay;
    const int secs = static_cast<int>(sinceYear1 % kSecondsPerDay);
    const QDate date = QDate::fromJulianDay(days + kUnixEpochJulianDay);
    std::array<char, 64> text {};
    const int length = std::snprintf(text.data(), text.size(), "%02d/%s/%04d:%02d:%02d:%02d +0000",
        date.day(), kMonths.at(static_cast<size_t>(date.month()) - 1), date.year(), secs / 3600,
        secs / 60 % 60, secs % 60);
    line.append(text.data(), length);
}

enum class Controls { Escaped, Kept };

void appendQuoted(QByteArray &line, const QByteArray &text, Controls controls)
{
    line += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            line += '\\';
            line += c;
        } else if (controls == Controls::Escaped && isControl(c)) {
            line += '%' + QByteArray(1, c).toHex().toUpper();
        } else {
            line += c == '\n' ? ' ' : c;
        }
    }
    line += '"';
}

QByteArray orDash(const QByteArray &text)
{
    return text.isEmpty() ? QByteArrayLiteral("-") : text;
}

} // namespace

std::optional<QByteArray> combinedLine(const Request &request)
{
    if (request.at < kYear1 || request.at >= kYear10000)
        return {};
    QByteArray line;
    line.reserve(128 + request.request.size() + request.referrer.size() + request.userAgent.size());
    line += addressField(request.address) + " - - [";
    appendTime(line, request.at);
    line += "] ";
    appendQuoted(line, orDash(request.request), Controls::Escaped);
    line += ' ' + QByteArray::number(request.status) + ' '
        + (request.bytes < 0 ? QByteArrayLiteral("-") : QByteArray::number(request.bytes)) + ' ';
    appendQuoted(line, orDash(request.referrer), Controls::Kept);
    line += ' ';
    appendQuoted(line, orDash(request.userAgent), Controls::Kept);
    if (request.durationUs >= 0)
        line += ' ' + QByteArray::number(request.durationUs);
    return line;
}

} // namespace vesk::translate
