#include "translate/SiteHosts.h"

#include "common/HostName.h"

#include <QStringList>

#include <algorithm>

namespace vesk::translate {

namespace {

/// More bytes than a name has in UTF-8: its ASCII form has 253 at most (RFC 1035, section 2.3.4).
constexpr qsizetype kMaxHostBytes = 512;

QByteArrayView withoutPort(QByteArrayView host)
{
    const qsizetype colon = host.lastIndexOf(':');
    const bool isPort = colon >= 0 && std::all_of(host.begin() + colon + 1, host.end(), [](char c) {
        return c >= '0' && c <= '9';
    }) && (host.indexOf(':') == colon || host.startsWith('[')); // not a part of an IPv6 address
    return isPort ? host.first(colon) : host;
}

} // namespace

SiteHosts::SiteHosts(const QString &siteHost, const QString &otherHosts)
{
    for (const QString &host : otherHosts.simplified().split(u' ', Qt::SkipEmptyParts))
        m_names.insert(comparable(host.toUtf8()));
    m_names.insert(comparable(siteHost.toUtf8()));
    m_names.insert(comparable("www." + siteHost.toUtf8()));
    m_names.remove(QString());
}

/// One form for all that name the same host; empty for what names none.
QString SiteHosts::comparable(QByteArrayView host)
{
    if (host.size() > kMaxHostBytes)
        return {};
    host = withoutPort(host);
    if (host.endsWith('.'))
        host = host.chopped(1);
    return comparableHost(QString::fromUtf8(host));
}

} // namespace vesk::translate
