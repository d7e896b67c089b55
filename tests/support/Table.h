#pragma once

#include <QByteArray>
#include <QRegularExpression>
#include <QStringList>
#include <QTest>

/// The table of a test's data function: the columns "text" and, as a QString, "expected".
class Table
{
public:
    Table();
    void operator()(const char *name, const QByteArray &text, const QString &expected) const;
    /// A row that is named by its text.
    void operator()(const QByteArray &text, const QString &expected) const;
};

/// The fields of a record, to be compared all at once.
QString joined(const QStringList &fields);

/// The words of \a line, split at blanks.
QStringList words(const QString &line);

/// Expects \a count warnings that match \a pattern.
void ignoreWarning(const QString &pattern, int count = 1);
