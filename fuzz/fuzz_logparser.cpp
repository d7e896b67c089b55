// Access-log lines. What the parser makes of one is written as a line again, which has to give the
// same record.

#include "Check.h"

#include "analytics/LogParser.h"

#include <QByteArray>
#include <QDate>
#include <QTime>

using namespace vesk;
using analytics::LogLine;

namespace {

QByteArray quoted(const QByteArray &text)
{
    return '"' + QByteArray(text).replace('\\', "\\\\").replace('"', "\\\"") + '"';
}

QByteArray padded(int number, qsizetype digits)
{
    return QByteArray::number(number).rightJustified(digits, '0');
}

QByteArray timeText(const QDateTime &at)
{
    static constexpr const char *kMonths[]
        = { "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec" };
    const QDate date = at.date();
    const QTime time = at.time();
    return padded(date.day(), 2) + '/' + kMonths[date.month() - 1] + '/' + padded(date.year(), 4)
        + ':' + padded(time.hour(), 2) + ':' + padded(time.minute(), 2) + ':'
        + padded(time.second(), 2) + " +0000";
}

QByteArray rendered(const LogLine &entry)
{
    const auto orDash = [](const QByteArray &text) { return text.isEmpty() ? "-" : text; };
    QByteArray line = entry.ip.toLatin1() + " - - [" + timeText(entry.at) + "] "
        + quoted(entry.method + ' ' + entry.target + " HTTP/1.1") + ' '
        + QByteArray::number(entry.status) + ' ' + QByteArray::number(entry.bytes) + ' '
        + quoted(orDash(entry.referrer)) + ' ' + quoted(orDash(entry.userAgent));
    if (entry.responseUs >= 0)
        line += ' ' + QByteArray::number(entry.responseUs);
    return line;
}

void checkEntry(const LogLine &entry, qsizetype lineSize)
{
    fuzz::check(!entry.ip.isEmpty() && !entry.ip.contains(u' '), "the address is one field");
    fuzz::check(entry.at.isValid() && entry.at.timeSpec() == Qt::UTC, "the time is UTC");
    fuzz::check(entry.at >= QDateTime(QDate(1, 1, 1), QTime(0, 0), Qt::UTC)
            && entry.at < QDateTime(QDate(10000, 1, 1), QTime(0, 0), Qt::UTC),
        "the time is in the years 1 to 9999");
    fuzz::check(!entry.method.contains(' ') && !entry.target.contains(' '), "the request is split");
    fuzz::check(entry.referrer != "-" && entry.userAgent != "-", "a dash is no value");
    fuzz::check(entry.responseUs >= -1, "no negative duration");
    fuzz::check(entry.ip.size() + entry.method.size() + entry.target.size() + entry.referrer.size()
                + entry.userAgent.size()
            < lineSize,
        "the fields are parts of the line");
}

void checkSame(const LogLine &a, const LogLine &b)
{
    fuzz::check(a.ip == b.ip, "same address");
    fuzz::check(a.at == b.at, "same time");
    fuzz::check(a.method == b.method && a.target == b.target, "same request");
    fuzz::check(a.status == b.status && a.bytes == b.bytes, "same answer");
    fuzz::check(a.referrer == b.referrer, "same referrer");
    fuzz::check(a.userAgent == b.userAgent, "same user agent");
    fuzz::check(a.responseUs == b.responseUs, "same duration");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArrayView line = fuzz::view(data, size);
    const std::optional<LogLine> entry = analytics::parseCombined(line);
    if (!entry)
        return 0;
    checkEntry(*entry, line.size());
    const std::optional<LogLine> again = analytics::parseCombined(rendered(*entry));
    fuzz::check(again.has_value(), "a written line is an entry");
    checkSame(*entry, *again);
    return 0;
}
