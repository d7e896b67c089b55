#include "report/TextGrid.h"

#include "common/Text.h"

#include <algorithm>

namespace vesk::report {

QString right(const QString &text, int columns)
{
    return QString(std::max(0, columns - columnsOf(text)), u' ') + text;
}

QString left(const QString &text, int columns)
{
    return text + QString(std::max(0, columns - columnsOf(text)), u' ');
}

QString trimmedEnd(QString text)
{
    while (text.endsWith(u' '))
        text.chop(1);
    return text;
}

QString rule(const QString &heading)
{
    const QString start = QStringLiteral("── ") + heading + u' ';
    return start + QString(std::max(0, kTextColumns - columnsOf(start)), QChar(0x2500));
}

void Grid::add(const QList<QString> &cells)
{
    for (qsizetype i = 0; i < m_columns.size(); ++i)
        m_columns[i].cells += cells.value(i);
}

QString Grid::heads() const
{
    QString line;
    for (const GridColumn &column : m_columns)
        line += right(column.head, width(column));
    return line;
}

QString Grid::row(qsizetype index) const
{
    QString line;
    for (const GridColumn &column : m_columns)
        line += right(column.cells[index], width(column));
    return line;
}

int Grid::width(const GridColumn &column)
{
    int most = columnsOf(column.head);
    for (const QString &cell : column.cells)
        most = std::max(most, columnsOf(cell));
    return std::max(column.least, most + 2);
}

} // namespace vesk::report
