#pragma once

#include <QList>
#include <QString>
#include <QStringList>

/// What texts for a terminal are laid out with.
namespace vesk::report {

inline constexpr int kTextColumns = 80;

/// \a text with blanks before it, in so many columns of a terminal.
QString right(const QString &text, int columns);

/// \a text with blanks behind it.
QString left(const QString &text, int columns);

QString trimmedEnd(QString text);

/// A heading in a line that goes on to the last column.
QString rule(const QString &heading);

/// Columns of figures, right-aligned, as wide as they have to be.
class Grid
{
public:
    void addColumn(const QString &head, int least = 8) { m_columns += { head, {}, least }; }
    void add(const QList<QString> &cells);

    QString heads() const;
    QString row(qsizetype index) const;

private:
    struct GridColumn
    {
        QString head;
        QStringList cells;
        int least;
    };

    static int width(const GridColumn &column);

    QList<GridColumn> m_columns;
};

} // namespace vesk::report
