#pragma once

#include "report/Report.h"

#include <QHash>

/// The lists of the report: which there are, and how their rows are named.
namespace vesk::report {

/// A row as the statements give it, ranked. What the values are depends on the list.
struct Line
{
    QString key;
    QString detail;
    QList<Value> values;
    Value before;
    qint64 total = 0; ///< lines of this list in all
    double whole = 0; ///< sum of the first values of all of them
};

/// The lines of each list, by its name in the statements.
using Lines = QHash<QString, QList<Line>>;

/// The lists that sql/lines.sql fills. Without \a split, search terms and campaigns are one.
QList<List> rollupLists(const Lines &lines, bool split);

/// Of sql/hits.sql and sql/slow.sql: of the visits, and of the server, addresses only if wanted.
QList<List> visitLists(const Lines &lines);
QList<List> serverLists(const Lines &lines, bool addresses);

/// The queries that search engines report.
List queryList(const Lines &lines);

/// "Search engines" for "search" and so on.
QString kindName(const QString &kind);

} // namespace vesk::report
