#include "report/Statement.h"

#include "common/Db.h"
#include "common/Resource.h"

#include <QSqlRecord>

namespace vesk::report {

Statement::Statement(const QString &sql, const Bindings &bindings)
    : m_query(db::runNamed(sql, bindings))
{
}

bool Statement::next()
{
    if (!m_query || m_query->next())
        return m_query.has_value();
    if (!db::allRead(*m_query))
        m_query.reset();
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
    return resourceText(QStringLiteral(":/report/") + QLatin1String(name));
}

} // namespace vesk::report
