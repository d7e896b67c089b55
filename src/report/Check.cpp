#include "report/Check.h"

#include "common/Text.h"
#include "report/Format.h"
#include "report/Json.h"
#include "report/Period.h"

#include <QJsonDocument>
#include <QStringList>

#include <algorithm>

namespace vesk::report {

namespace {

void sort(QList<CheckedSite> &sites)
{
    std::stable_sort(sites.begin(), sites.end(), [](const CheckedSite &a, const CheckedSite &b) {
        return worst(a.findings) > worst(b.findings);
    });
}

/// What there is to say of a site with which nothing is wrong, and what could not be judged.
QString newsOf(const Facts &facts)
{
    QStringList news;
    if (facts.newest.isNull())
        news += QStringLiteral("no requests yet");
    else
        news += QStringLiteral("%1 on %2")
                    .arg(counted(qint64(facts.requests.value(facts.complete)),
                             QStringLiteral("request")),
                        dayName(facts.complete));
    if (!facts.newest.isNull() && !facts.errors)
        news += QStringLiteral("server errors unknown");
    if (!facts.nightsKnown)
        news += QStringLiteral("nights unknown");
    return news.join(QLatin1String(", "));
}

const char *wordFor(Level level)
{
    return level == Level::Critical ? "CRITICAL" : level == Level::Warning ? "WARNING" : "OK";
}

} // namespace

int statusOf(const QList<CheckedSite> &sites)
{
    Level level = Level::Fine;
    for (const CheckedSite &site : sites)
        level = std::max(level, worst(site.findings));
    return static_cast<int>(level);
}

QByteArray toLines(QList<CheckedSite> sites)
{
    sort(sites);
    QString lines;
    for (const CheckedSite &site : sites) {
        QStringList texts;
        for (const Finding &finding : site.findings)
            texts += finding.text;
        if (texts.isEmpty())
            texts += newsOf(site.facts);
        const QString line = QLatin1String(wordFor(worst(site.findings))) + u' ' + site.host
            + QLatin1String(": ") + texts.join(QLatin1String("; "));
        // Behind a vertical bar monitoring programs look for figures.
        lines += clean(line).replace(u'|', u'/') + u'\n';
    }
    return lines.toUtf8();
}

QByteArray toJson(QList<CheckedSite> sites)
{
    sort(sites);
    QJsonArray array;
    for (const CheckedSite &site : sites)
        array += QJsonObject { { QStringLiteral("site"), site.host },
            { QStringLiteral("level"), levelName(worst(site.findings)) },
            { QStringLiteral("findings"), json(site.findings) } };
    return QJsonDocument(
        QJsonObject { { QStringLiteral("format"), 1 },
            { QStringLiteral("status"), statusOf(sites) }, { QStringLiteral("sites"), array } })
        .toJson();
}

} // namespace vesk::report
