#pragma once

#include <QDate>
#include <QHash>
#include <QSqlQuery>
#include <QVariantMap>

#include <optional>

namespace vesk::report {

/// Named values of a statement: ":site" and the like.
using Bindings = QVariantMap;

/// A SELECT that runs at once. A failure is reported, and then there are no more rows.
class Statement
{
public:
    /// Runs \a sql. \a bindings may have values that it does not name.
    Statement(const QString &sql, const Bindings &bindings);

    bool failed() const { return !m_query; }

    /// Goes to the next row. False after the last one.
    bool next();

    /// Of the row, the value of a column. Its name has to be a literal.
    QVariant value(const char *column) const;
    QString text(const char *column) const { return value(column).toString(); }
    QDate day(const char *column) const { return value(column).toDate(); }

    /// 0 for NULL.
    double number(const char *column) const { return value(column).toDouble(); }

    /// Nothing for NULL.
    std::optional<double> figure(const char *column) const;

private:
    std::optional<QSqlQuery> m_query;
    mutable QHash<const char *, int> m_columns; ///< the places of those that were asked for
};

/// The text of the statement \a name, a file of the folder sql.
QString statementText(const char *name);

} // namespace vesk::report
