#include "support/Table.h"

Table::Table()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("expected");
}

void Table::operator()(const char *name, const QByteArray &text, const QString &expected) const
{
    QTest::newRow(name) << text << expected;
}

void Table::operator()(const QByteArray &text, const QString &expected) const
{
    (*this)(text.isEmpty() ? "empty" : text.left(60).constData(), text, expected);
}

QString joined(const QStringList &fields)
{
    return fields.join(u'|');
}

QStringList words(const QString &line)
{
    return line.split(u' ', Qt::SkipEmptyParts);
}

void ignoreWarning(const QString &pattern, int count)
{
    for (int i = 0; i < count; ++i)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(pattern));
}
