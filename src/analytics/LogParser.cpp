#include "analytics/LogParser.h"

#include <QDate>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <string_view>

namespace vesk::analytics {

namespace {

constexpr qint64 kUnixEpochJulianDay = 2440588;
constexpr qint64 kSecondsPerDay = 86400;
constexpr qsizetype kSafeDigits = 18; // any number of so many fits
constexpr int kMaxOffsetSeconds = 16 * 3600;
constexpr qint64 kYear1 = -62135596800; // 0001-01-01 00:00 UTC in seconds since 1970
constexpr qint64 kYear10000 = 253402300800;

void skipSpaces(QByteArrayView s, qint64 &pos)
{
    while (pos < s.size() && s[pos] == ' ')
        ++pos;
}

/// The bytes from \a pos up to \a c or the end.
QByteArrayView upTo(char c, QByteArrayView s, qint64 pos)
{
    const qsizetype end = s.indexOf(c, pos);
    return s.sliced(pos, (end < 0 ? s.size() : end) - pos);
}

/// The next field between spaces; empty at the end of the line.
QByteArrayView token(QByteArrayView s, qint64 &pos)
{
    skipSpaces(s, pos);
    const QByteArrayView field = upTo(' ', s, pos);
    pos += field.size();
    return field;
}

/// The double-quoted field that starts at \a pos, its backslash escapes resolved. Nothing when
/// there is none or its end is missing.
std::optional<QByteArray> quoted(QByteArrayView s, qint64 &pos)
{
    if (pos >= s.size() || s[pos] != '"')
        return {};
    ++pos;
    const QByteArrayView plain = upTo('"', s, pos);
    if (pos + plain.size() < s.size() && !plain.contains('\\')) { // nearly always
        pos += plain.size() + 1;
        return plain.toByteArray();
    }
    QByteArray field;
    for (; pos < s.size() && s[pos] != '"'; ++pos) {
        if (s[pos] == '\\' && pos + 1 < s.size())
            ++pos;
        field += s[pos];
    }
    if (pos >= s.size())
        return {};
    ++pos;
    return field;
}

/// A quoted field that is logged as "-" when there is no value.
QByteArray optionalField(QByteArrayView s, qint64 &pos)
{
    skipSpaces(s, pos);
    QByteArray field = quoted(s, pos).value_or(QByteArray());
    return field == "-" ? QByteArray() : field;
}

/// The number of a month by its English abbreviation; 0 when it is none.
int monthNumber(QByteArrayView name)
{
    static constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    for (size_t i = 0; i < kMonths.size(); i += 3) {
        if (kMonths.compare(i, 3, name.data(), 3) == 0)
            return static_cast<int>(i / 3) + 1;
    }
    return 0;
}

bool isDigits(QByteArrayView text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// \a text as a decimal number. Anything but some digits is left to the platform, which also reads
/// signs and blanks; what is no number counts as 0.
qint64 number(QByteArrayView text, bool *ok = nullptr)
{
    if (text.isEmpty() || text.size() > kSafeDigits || !isDigits(text))
        return text.toLongLong(ok);
    if (ok)
        *ok = true;
    return std::accumulate(text.begin(), text.end(), qint64 { 0 },
        [](qint64 value, char c) { return value * 10 + (c - '0'); });
}

/// Reads dd/Mon/yyyy:HH:MM:SS +hhmm as UTC; invalid when it is no time of the years 1 to 9999. An
/// impossible time of day counts as midnight.
QDateTime parseTime(QByteArrayView text)
{
    if (text.size() <= 25)
        return {};
    const auto at = [text](qsizetype pos, qsizetype length) {
        return static_cast<int>(number(text.sliced(pos, length)));
    };

    const QDate date(at(7, 4), monthNumber(text.sliced(3, 3)), at(0, 2));
    const int hour = at(12, 2);
    const int minute = at(15, 2);
    const int second = at(18, 2);
    const int sign = text[21] == '-' ? -1 : 1;
    const int offset = sign * (at(22, 2) * 3600 + at(24, 2) * 60);
    if (!date.isValid() || std::abs(offset) > kMaxOffsetSeconds)
        return {};

    const bool validTime = QTime::isValid(hour, minute, second);
    const int timeOfDay = validTime ? hour * 3600 + minute * 60 + second : 0;
    const qint64 days = date.toJulianDay() - kUnixEpochJulianDay;
    const qint64 seconds = days * kSecondsPerDay + timeOfDay - offset;
    if (seconds < kYear1 || seconds >= kYear10000)
        return {};
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC);
}

/// The request duration: the last field of the rest of the line, when it is a number.
qint64 parseDuration(QByteArrayView s, qint64 pos)
{
    QByteArrayView lastField;
    for (QByteArrayView field = token(s, pos); !field.isEmpty(); field = token(s, pos))
        lastField = field;
    return !lastField.isEmpty() && isDigits(lastField) ? number(lastField) : -1;
}

} // namespace

std::optional<LogLine> parseCombined(QByteArrayView line)
{
    LogLine entry;
    qint64 pos = 0;
    entry.ip = QString::fromLatin1(token(line, pos));
    token(line, pos); // identity
    token(line, pos); // user name

    skipSpaces(line, pos);
    if (pos >= line.size() || line[pos] != '[')
        return {};
    const qsizetype timeEnd = line.indexOf(']', pos);
    if (timeEnd < 0)
        return {};
    const QByteArrayView time = line.sliced(pos + 1, timeEnd - pos - 1);
    pos = timeEnd + 1;

    skipSpaces(line, pos);
    const std::optional<QByteArray> request = quoted(line, pos);
    if (!request)
        return {};
    entry.at = parseTime(time);
    if (!entry.at.isValid())
        return {};
    const QByteArrayView method = upTo(' ', *request, 0);
    entry.method = method.toByteArray();
    if (method.size() < request->size())
        entry.target = upTo(' ', *request, method.size() + 1).toByteArray();

    bool isNumber = false;
    const qint64 status = number(token(line, pos), &isNumber);
    entry.status = static_cast<int>(status);
    if (!isNumber || entry.status != status)
        return {};
    entry.bytes = number(token(line, pos));
    entry.referrer = optionalField(line, pos);
    entry.userAgent = optionalField(line, pos);
    entry.responseUs = parseDuration(line, pos);
    return entry;
}

} // namespace vesk::analytics
