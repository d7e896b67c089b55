#pragma once

#include <QSqlQuery>
#include <QVariant>

#include <utility>

namespace vesk::report {

/// Named values of a statement: ":site" and the like.
using Bindings = QList<std::pair<const char *, QVariant>>;

/// A SELECT that runs at once. A failure is reported, and then there are no rows.
class Statement
{
public:
    Statement(const QString &sql, const Bindings &bindings);

    bool failed() const { return m_failed; }
    bool next() { return !m_failed && m_query.next(); }

    QString text(int column) const { return m_query.value(column).toString(); }
    QVariant value(int column) const { return m_query.value(column); }

    /// 0 for NULL.
    double number(int column) const { return m_query.value(column).toDouble(); }

private:
    QSqlQuery m_query;
    bool m_failed = false;
};

/// The text of the statement \a name, a file of the folder sql.
QString statementText(const char *name);

/// The text of sql/hits.sql with the rules of the roll-up put in. Empty, after a message, when they
/// cannot be found in the roll-up's script.
QString hitsStatement();

} // namespace vesk::report
