#include "analytics/Countries.h"

#include "common/Db.h"

#include <QStringList>

namespace vesk::analytics {

namespace {

constexpr qsizetype kMaxCountries = 200000;

} // namespace

void Countries::init()
{
    QSqlQuery q;
    q.exec(QStringLiteral("SELECT EXISTS (SELECT 1 FROM vesk.geo_country)"));
    m_haveGeo = q.next() && q.value(0).toBool();
}

/// The range with the greatest start not above an address holds it, unless it ends below.
void Countries::lookUp(const QSet<QString> &addresses)
{
    if (!m_haveGeo)
        return;
    if (m_countries.size() > kMaxCountries)
        m_countries.clear();
    QStringList unknown;
    for (const QString &address : addresses) {
        if (!address.isEmpty() && !m_countries.contains(address))
            unknown.append(address);
    }
    if (unknown.isEmpty())
        return;

    for (const QString &address : unknown)
        m_countries.insert(address, {});
    // Addresses need no quoting.
    auto q = db::run(
        QStringLiteral(
            "SELECT a.ip, g.country FROM unnest(CAST(? AS text[])) AS a (ip) CROSS JOIN LATERAL ("
            "SELECT country, ip_to FROM vesk.geo_country WHERE ip_from <= CAST(a.ip AS inet) "
            "ORDER BY ip_from DESC LIMIT 1) g WHERE g.ip_to >= CAST(a.ip AS inet)"),
        { u'{' + unknown.join(u',') + u'}' });
    if (!q)
        return;
    while (q->next())
        m_countries.insert(q->value(0).toString(), q->value(1).toString());
}

QString Countries::of(const QString &address)
{
    const auto known = m_countries.constFind(address);
    if (known != m_countries.constEnd())
        return *known;
    if (!m_haveGeo || address.isEmpty())
        return {};
    lookUp({ address });
    return m_countries.value(address);
}

} // namespace vesk::analytics
