#pragma once

#include <QList>
#include <QString>

#include <optional>

/// Which site is meant. Failed statements are reported as by db::exec().
namespace vesk {

struct Site
{
    int id = 0;
    QString host; ///< as stored
    QString name;
};

/// The id of the site with \a host in any case; 0 when there is none. Case is what the database
/// makes of it: with the locale C it folds the letters of ASCII alone.
int siteId(const QString &host);

/// The site with \a host in any case, or as systemd escapes it in a unit's name. Nothing when there
/// is none.
std::optional<Site> findSite(const QString &host);

/// All sites, by host. Nothing when they cannot be read.
std::optional<QList<Site>> allSites();

/// \a text without the escapes "\xNN" that systemd writes into the names of units
/// (systemd.unit(5)): how a timer for a site with an international name hands that over. Everything
/// else stays.
QString unescapeUnitName(const QString &text);

} // namespace vesk
