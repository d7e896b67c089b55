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
    qint64 summedUp = 0; ///< those of them of which only the sum is kept, in no line
    double whole = 0; ///< sum of the first values of all of them
};

using Lines = QHash<ListId, QList<Line>>;

/// The columns with these names in JSON, which blanks divide.
QList<Column> namedColumns(const char *ids);

/// The list for which the statements have lines under \a name. Nothing when there is none.
std::optional<ListId> listOf(const QString &name);

/// Those lists with their lines.
QMap<ListId, List> filled(const Lines &lines, std::initializer_list<ListId> ids);

} // namespace vesk::report
