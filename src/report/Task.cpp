#include "report/Task.h"

#include "figures/Figures.h"

namespace vesk::report {

Task::Task(const ReportedSite &itsSite, const Period &itsPeriod, const Options &itsOptions)
    : site(itsSite)
    , period(itsPeriod)
    , options(itsOptions)
    , bindings { { QStringLiteral(":site"), site.id }, { QStringLiteral(":first"), period.first },
        { QStringLiteral(":last"), period.last },
        { QStringLiteral(":before"), period.before().first },
        { QStringLiteral(":rows"), options.rows },
        { QStringLiteral(":scope"),
            options.everyone ? QStringLiteral("all") : QStringLiteral("people") },
        { QStringLiteral(":addresses"), options.addresses } }
{
}

Bindings Task::bindingsWith(const Bindings &more) const
{
    Bindings all = bindings;
    all.insert(more);
    return all;
}

void readLines(Task &task, const QString &sql, const Bindings &more, Lines &lines)
{
    if (task.failed)
        return;
    Statement statement(sql, task.bindingsWith(more));
    while (statement.next()) {
        const auto list = listOf(statement.text("list"));
        if (!list)
            qFatal("no list has the lines %s", qPrintable(statement.text("list")));
        lines[*list] += Line { statement.text("key"), statement.text("detail"),
            { statement.figure("v1"), statement.figure("v2"), statement.figure("v3"),
                statement.figure("v4") },
            statement.figure("before"), statement.value("total").toLongLong(),
            statement.value("summed_up").toLongLong(), statement.number("whole") };
    }
    task.failed |= statement.failed();
}

QString arrayOf(const QList<QDate> &days)
{
    QStringList names;
    for (const QDate day : days)
        names += day.toString(Qt::ISODate);
    return u'{' + names.join(u',') + u'}';
}

QSet<QDate> keptDays(Task &task, const Period &period)
{
    if (!task.site.mayReadFigures || task.failed)
        return {};
    const auto days = figures::validDays(task.site.id, period.first, period.last);
    task.failed |= !days;
    return days.value_or(QSet<QDate>());
}

} // namespace vesk::report
