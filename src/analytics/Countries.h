#pragma once

#include <QHash>
#include <QSet>
#include <QString>

namespace vesk::analytics {

/// The countries of addresses by the ranges in vesk.geo_country. What was looked up is remembered,
/// also that there is none.
class Countries
{
public:
    /// Asks the database whether there are any ranges. Until then, and without any, nothing is
    /// looked up.
    void init();

    /// Looks up those of \a addresses that are not remembered, in one statement. When it fails,
    /// which is reported, they count as addresses of no country.
    void lookUp(const QSet<QString> &addresses);

    /// The two-letter code for an address; empty when there is none, or \a address is empty.
    QString of(const QString &address);

private:
    bool m_haveGeo = false;
    QHash<QString, QString> m_countries; ///< by address as logged; empty where none is known
};

} // namespace vesk::analytics
