#include "analytics/RowBuilder.h"

#include "analytics/PercentEncoding.h"
#include "common/LineLimit.h"
#include "common/Sha256.h"

#include <QHostAddress>
#include <QUrl>
#include <QUrlQuery>

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <utility>

namespace vesk::analytics {

namespace {

constexpr qsizetype kHashBytes = 8; // stored data: do not change
constexpr qsizetype kMaxBeaconPath = 2000; // UTF-16 code units
constexpr double kMaxEngagedSecs = 6 * 3600;

constexpr qsizetype kRememberedClients = 4096;
constexpr qsizetype kRememberedReferrers = 4096;
constexpr qsizetype kRememberedVisitors = 16384;

bool isBlank(QByteArrayView line)
{
    return std::all_of(
        line.begin(), line.end(), [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); });
}

/// Four decimal numbers of up to three digits. \a canonical tells whether they are at most 255 and
/// without leading zeros.
bool isDottedQuad(QStringView text, bool *canonical)
{
    int numbers = 1;
    int digits = 0;
    int value = 0;
    *canonical = true;
    for (const QChar c : text) {
        if (c >= u'0' && c <= u'9' && digits < 3) {
            *canonical = *canonical && (digits == 0 || value > 0);
            value = value * 10 + (c.unicode() - u'0');
            ++digits;
        } else if (c == u'.' && digits > 0) {
            *canonical = *canonical && value <= 255;
            ++numbers;
            digits = 0;
            value = 0;
        } else {
            return false;
        }
    }
    *canonical = *canonical && value <= 255;
    return numbers == 4 && digits > 0;
}

/// Hexadecimal digits, up to eight colons, then maybe dots.
bool isIpv6Text(QStringView text)
{
    const auto isAllowed = [](QChar c) {
        return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F')
            || c == u':' || c == u'.';
    };
    const qsizetype dot = text.indexOf(u'.');
    return std::all_of(text.begin(), text.end(), isAllowed) && text.contains(u':')
        && text.count(u':') <= 8 && (dot < 0 || text.lastIndexOf(u':') < dot);
}

/// The request target without its query.
QByteArray rawPath(const QByteArray &target)
{
    const qsizetype mark = target.indexOf('?');
    return mark < 0 ? target : target.first(mark);
}

QString decoded(const QByteArray &path)
{
    if (!path.contains('%')) // nearly always
        return QString::fromUtf8(path);
    return QString::fromUtf8(QByteArray::fromPercentEncoding(withStrayPercentsEscaped(path)));
}

/// Reads what a page's beacon reports, p the page's path and t the seconds that it was visible.
/// False when that is nothing usable: no path, or seconds out of range or too few to be stored.
bool readBeacon(const QByteArray &query, Row &row)
{
    const QUrlQuery parameters(QString::fromLatin1(withStrayPercentsEscaped(query)));
    const auto value = [&parameters](QLatin1String key) {
        return parameters.queryItemValue(key, QUrl::FullyDecoded);
    };
    row.path = value(QLatin1String("p")).left(kMaxBeaconPath);
    const double seconds = value(QLatin1String("t")).toDouble();
    // Written so that it also refuses a NaN.
    if (row.path.isEmpty() || !(seconds > 0 && seconds <= kMaxEngagedSecs))
        return false;
    row.engagedSecs = static_cast<float>(seconds);
    return *row.engagedSecs > 0;
}

/// \a day as yyyy-MM-dd. Qt takes longer for that than the hash takes.
QByteArray isoDate(QDate day)
{
    std::array<char, sizeof "yyyy-MM-dd"> text {};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d", day.year(), day.month(), day.day());
    return text.data();
}

} // namespace

QByteArray visitorHash(
    const QByteArray &secret, int siteId, const QString &ip, const QByteArray &userAgent, QDate day)
{
    return sha256({ secret, isoDate(day), QByteArray::number(siteId), ip.toLatin1(), userAgent })
        .first(kHashBytes);
}

bool isAddress(const QString &text)
{
    bool canonical = false;
    const bool dottedQuad = isDottedQuad(text, &canonical);
    if (dottedQuad && canonical)
        return true; // nearly always
    // QHostAddress alone would also take "1", "0x7f.1.1.1", surrounding spaces, scope ids, and a
    // "::" behind eight groups.
    return (dottedQuad || isIpv6Text(text)) && QHostAddress().setAddress(text);
}

RowBuilder::RowBuilder(const QByteArray &secret, int siteId, const QString &siteHost)
    : m_secret(secret)
    , m_siteId(siteId)
    , m_siteHost(siteHost)
    , m_clients(kRememberedClients)
    , m_referrers(kRememberedReferrers)
    , m_visitors(kRememberedVisitors)
{
}

RowBuilder::Outcome RowBuilder::build(QByteArrayView line, Row &row)
{
    const bool overlong = line.size() > kMaxLineBytes;
    if (!overlong && isBlank(line))
        return Outcome::Blank;
    std::optional<LogLine> log = overlong ? std::nullopt : parseCombined(line);
    if (!log)
        return Outcome::NotAnEntry;

    row = {};
    row.log = std::move(*log);
    const QByteArray path = rawPath(row.log.target);
    if (path == "/vesk-b") {
        if (!readBeacon(
                row.log.target.sliced(std::min(path.size() + 1, row.log.target.size())), row))
            return Outcome::Dropped;
        row.log.method = QByteArrayLiteral("BEACON");
        row.log.status = 204;
    } else {
        row.path = decoded(path);
        row.page = isPage(row.log.method, row.path);
    }
    using Status = std::numeric_limits<qint16>; // the column's type
    if (row.log.status < Status::min() || row.log.status > Status::max())
        return Outcome::NotAnEntry;

    Visitor from = visitor(row.log);
    row.ip = std::move(from.ip);
    row.visitor = std::move(from.hash);
    row.client = std::move(from.client);
    row.source = source(row.log);
    return Outcome::Row;
}

Source RowBuilder::source(const LogLine &log)
{
    const auto classify
        = [this, &log] { return classifySource(log.referrer, log.target, m_siteHost); };
    return namesCampaign(log.target) ? classify() : m_referrers.get(log.referrer, classify);
}

RowBuilder::Visitor RowBuilder::visitor(const LogLine &log)
{
    const QDate day = log.at.date();
    if (day != m_visitorDay) {
        m_visitors.clear();
        m_visitorDay = day;
    }
    // A blank cannot be part of the address, so no two visitors share a key.
    return m_visitors.get(log.ip.toLatin1() + ' ' + log.userAgent, [&] {
        return Visitor { isAddress(log.ip) ? log.ip : QString(),
            visitorHash(m_secret, m_siteId, log.ip, log.userAgent, day),
            m_clients.get(log.userAgent, [&log] { return classifyClient(log.userAgent); }) };
    });
}

} // namespace vesk::analytics
