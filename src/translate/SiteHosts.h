#pragma once

#include <QByteArrayView>
#include <QSet>
#include <QString>

namespace vesk::translate {

/// The host names of one site, to tell its lines from those of others in the same log.
class SiteHosts
{
public:
    /// \a siteHost, that with "www." in front, and \a otherHosts, which have blanks between them.
    explicit SiteHosts(const QString &siteHost, const QString &otherHosts = {});

    /// Whether \a host, as a web server logged it, is one of them. Its port and a dot at its end do
    /// not matter, the rest is compared as comparableHost() has it.
    bool contains(QByteArrayView host) const { return m_names.contains(comparable(host)); }

private:
    static QString comparable(QByteArrayView host);

    QSet<QString> m_names;
};

} // namespace vesk::translate
