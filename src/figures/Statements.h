#pragma once

#include <QDate>
#include <QList>
#include <QString>

/// The text of statements over single requests and over the figures that are stored of them.
namespace vesk::figures {

/// Settings of a transaction with such statements: memory for the groups of a busy day, and no
/// plans for few rows where there are many.
inline constexpr char kSettings[] = "SET LOCAL search_path = pg_catalog;"
                                    "SET LOCAL work_mem = '64MB';"
                                    "SET LOCAL enable_nestloop = off;"
                                    "SET LOCAL enable_mergejoin = off;"
                                    "SET LOCAL enable_sort = off;"
                                    "SET LOCAL jit = off";

/// The text of the file \a name of the folder sql.
QString statementText(const char *name);

/// The relations of sql/requests.sql for the requests of \a days, which are in order, with the
/// rules of the roll-up as its latest script has them. They name :site, :scopes, an array of
/// "people" and "all", and :addresses, whether to have those of scanners. Empty, after a message,
/// when the rules cannot be found.
QString requestRelations(const QList<QDate> &days);

} // namespace vesk::figures
