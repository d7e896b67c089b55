#pragma once

#include <QByteArray>
#include <QString>

namespace vesk::analytics {

/// What a user agent tells about the client. The texts are stored data: do not change them.
struct Client
{
    QString bot; ///< crawler name, "Other crawler" or "No user agent"; null for a person
    QString device; ///< desktop, mobile or tablet
    QString browser; ///< browser family, or Other
    QString os; ///< operating-system family, or Other
};

/// Where a request came from. The texts are stored data: do not change them.
struct Source
{
    QString kind; ///< campaign, direct, internal, search, ai, social, email or referral
    QString name; ///< the service, the referring host or the campaign source; may be empty
    QString searchTerms; ///< search terms or the campaign name; may be empty
};

/// The client behind the raw bytes of a user-agent header, which are empty when it was not sent.
Client classifyClient(const QByteArray &userAgent);

/// Whether the query of a request target names a campaign, in utm_source.
bool namesCampaign(const QByteArray &target);

/// The source of a request: the campaign that its target names, else what the raw bytes of its
/// referrer header tell. \a siteHost is the site's own host name in lower case, with or without
/// www.
Source classifySource(
    const QByteArray &referrer, const QByteArray &target, const QString &siteHost);

/// Whether a request is a page view, and not an asset, a feed, an API or administration call.
/// \a path is the decoded path without the query.
bool isPage(const QByteArray &method, const QString &path);

} // namespace vesk::analytics
