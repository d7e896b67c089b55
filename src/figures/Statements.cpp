#include "figures/Statements.h"

#include "common/Resource.h"

#include <QDir>
#include <QRegularExpression>
#include <QStringList>

namespace vesk::figures {

namespace {

/// The latest script that makes or replaces the roll-up.
QString rollupScript()
{
    const QDir scripts(QStringLiteral(":/sql"));
    QString latest;
    for (const QString &name : scripts.entryList(QDir::Files, QDir::Name)) {
        const QString text = resourceText(scripts.filePath(name));
        if (text.contains(QLatin1String("FUNCTION vesk.rollup_day(")))
            latest = text;
    }
    return latest;
}

/// The condition of requests that were made on \a days, a range of the index for each run of them.
QString madeOn(const QList<QDate> &days)
{
    QStringList ranges;
    for (qsizetype i = 0; i < days.size();) {
        const QDate first = days[i];
        while (++i < days.size() && days[i] == days[i - 1].addDays(1)) { }
        ranges
            += QStringLiteral("at >= date '%1'::timestamptz AND at < date '%2'::timestamptz")
                   .arg(first.toString(Qt::ISODate), days[i - 1].addDays(1).toString(Qt::ISODate));
    }
    return ranges.isEmpty() ? QStringLiteral("false") : ranges.join(QLatin1String(" OR "));
}

/// The day of a request made on \a days. Of one it is not worked out for each request.
QString dayOf(const QList<QDate> &days)
{
    return days.size() == 1 ? QStringLiteral("date '%1'").arg(days[0].toString(Qt::ISODate))
                            : QStringLiteral("at::date");
}

/// The text of requests.sql with the rules of the roll-up; empty, after a message, without them.
QString relationsWithRules()
{
    const QString rollup = rollupScript();
    QString sql = statementText("requests.sql");
    static const QRegularExpression pattern(
        QStringLiteral(R"(path COLLATE "C" ~\* (.*?) AS (probe|asset))"),
        QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression count(QStringLiteral(R"(HAVING count\(\*\) >= (\d+))"));
    for (auto rules = pattern.globalMatch(rollup); rules.hasNext();) {
        const auto rule = rules.next();
        sql.replace(u'{' + rule.captured(2) + u'}', rule.captured(1));
    }
    if (const auto rule = count.match(rollup); rule.hasMatch())
        sql.replace(QLatin1String("{sweep}"), rule.captured(1));
    static const QRegularExpression open(QStringLiteral(R"(\{(probe|asset|sweep)\})"));
    if (!sql.contains(open))
        return sql;
    qCritical("the rules of the roll-up cannot be found in its script");
    return {};
}

} // namespace

QString statementText(const char *name)
{
    return resourceText(QStringLiteral(":/figures/") + QLatin1String(name));
}

QString requestRelations(const QList<QDate> &days)
{
    static const QString relations = relationsWithRules();
    QString sql = relations;
    sql.replace(QLatin1String("{when}"), madeOn(days));
    return sql.replace(QLatin1String("{day}"), dayOf(days));
}

} // namespace vesk::figures
