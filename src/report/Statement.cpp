#include "report/Statement.h"

#include "common/Db.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSqlError>
#include <QSqlRecord>

namespace vesk::report {

namespace {

QString resource(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

/// The latest script that makes or replaces the roll-up.
QString rollupScript()
{
    const QDir scripts(QStringLiteral(":/sql"));
    QString latest;
    for (const QString &name : scripts.entryList(QDir::Files, QDir::Name)) {
        const QString text = resource(scripts.filePath(name));
        if (text.contains(QLatin1String("FUNCTION vesk.rollup_day(")))
            latest = text;
    }
    return latest;
}

} // namespace

Statement::Statement(const QString &sql, const Bindings &bindings)
    : m_query(db::runNamed(sql, bindings))
{
}

bool Statement::next()
{
    if (!m_query || m_query->next())
        return m_query.has_value();
    if (m_query->lastError().isValid()) {
        db::reportFailure(db::presentable(m_query->lastError()));
        m_query.reset();
    }
    return false;
}

QVariant Statement::value(const char *column) const
{
    auto place = m_columns.constFind(column);
    if (place == m_columns.cend())
        place = m_columns.insert(column, m_query->record().indexOf(QLatin1String(column)));
    if (*place < 0)
        qFatal("the statement has no column %s", column);
    return m_query->value(*place);
}

std::optional<double> Statement::figure(const char *column) const
{
    const QVariant found = value(column);
    return found.isNull() ? std::nullopt : std::optional(found.toDouble());
}

QString statementText(const char *name)
{
    return resource(QStringLiteral(":/report/") + QLatin1String(name));
}

QString hitsStatement()
{
    const QString rollup = rollupScript();
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
    static const QRegularExpression open(QStringLiteral(R"(\{(probe|asset|sweep)\})"));
    if (!sql.contains(open))
        return sql;
    qCritical("the rules of the roll-up cannot be found in its script");
    return {};
}

} // namespace vesk::report
