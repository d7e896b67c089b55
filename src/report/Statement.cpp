#include "report/Statement.h"

#include "common/Db.h"

#include <QFile>
#include <QRegularExpression>

namespace vesk::report {

namespace {

QString resource(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

} // namespace

Statement::Statement(const QString &sql, const Bindings &bindings)
{
    m_query.setForwardOnly(true);
    m_query.prepare(sql);
    for (const auto &[name, value] : bindings) // those that it does not name are left out
        m_query.bindValue(QLatin1String(name), value);
    m_failed = !db::exec(m_query);
}

QString statementText(const char *name)
{
    return resource(QStringLiteral(":/report/") + QLatin1String(name));
}

QString hitsStatement()
{
    const QString rollup = resource(QStringLiteral(":/sql/004_rollups.sql"));
    QString sql = statementText("hits.sql");
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
    if (!sql.contains(QLatin1String("{probe}")) && !sql.contains(QLatin1String("{asset}"))
        && !sql.contains(QLatin1String("{sweep}")))
        return sql;
    qCritical("the rules of the roll-up cannot be found in its script");
    return {};
}

} // namespace vesk::report
