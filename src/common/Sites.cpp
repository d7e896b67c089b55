#include "common/Sites.h"

#include "common/Db.h"

#include <QRegularExpression>
#include <QSqlQuery>
#include <QVariant>

namespace vesk {

int siteId(const QString &host)
{
    auto q = db::run(QStringLiteral("SELECT id FROM vesk.sites WHERE host = lower(?)"), { host });
    return q && q->next() ? q->value(0).toInt() : 0;
}

std::optional<Site> findSite(const QString &host)
{
    const int id = siteId(unescapeUnitName(host));
    if (id == 0)
        return {};
    auto q = db::run(QStringLiteral("SELECT host, name FROM vesk.sites WHERE id = ?"), { id });
    if (!q || !q->next())
        return {};
    return Site { id, q->value(0).toString(), q->value(1).toString() };
}

std::optional<QList<Site>> allSites()
{
    auto q = db::run(QStringLiteral("SELECT id, host, name FROM vesk.sites ORDER BY host"));
    if (!q)
        return {};
    QList<Site> sites;
    while (q->next())
        sites.append({ q->value(0).toInt(), q->value(1).toString(), q->value(2).toString() });
    return sites;
}

QString unescapeUnitName(const QString &text)
{
    static const QRegularExpression escape(QStringLiteral(R"(\\x([0-9a-f]{2}))"));
    QByteArray bytes;
    qsizetype end = 0;
    for (auto it = escape.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        bytes += QStringView(text).sliced(end, match.capturedStart() - end).toUtf8();
        bytes += QByteArray::fromHex(match.capturedView(1).toLatin1());
        end = match.capturedEnd();
    }
    return QString::fromUtf8(bytes) + text.sliced(end);
}

} // namespace vesk
