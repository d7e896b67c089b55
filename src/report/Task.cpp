#include "report/Task.h"

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

void readLines(Task &task, const QString &sql, const Bindings &more, Lines &lines)
{
    if (task.failed)
        return;
    Bindings bindings = task.bindings;
    bindings.insert(more);
    Statement statement(sql, bindings);
    while (statement.next()) {
        const auto list = listOf(statement.text("list"));
        if (!list)
            qFatal("no list has the lines %s", qPrintable(statement.text("list")));
        lines[*list] += Line { statement.text("key"), statement.text("detail"),
            { statement.figure("v1"), statement.figure("v2"), statement.figure("v3"),
                statement.figure("v4") },
            statement.figure("before"), statement.value("total").toLongLong(),
            statement.number("whole") };
    }
    task.failed |= statement.failed();
}

} // namespace vesk::report
