#include "report/ServerReader.h"

namespace vesk::report {

namespace {

/// Requests and bytes of each day that has requests.
QMap<QDate, QList<Value>> trafficOf(const Lines &lines)
{
    QMap<QDate, QList<Value>> days;
    for (const Line &line : lines.value(ListId::Days))
        days[QDate::fromString(line.key, Qt::ISODate)]
            = { line.values[0].value_or(0), line.values[1].value_or(0) };
    return days;
}

/// Tells of how many days requests have been deleted, and sums up the others.
void judge(const Task &task, Server &server)
{
    qint64 lost = 0;
    double requests = 0;
    double bytes = 0;
    for (QDate date = task.period.first; date <= task.period.last; date = date.addDays(1)) {
        const QList<Value> day = server.days.values.value(date, { 0, 0 });
        lost += task.days.value(date).requests > *day[0];
        requests += *day[0];
        bytes += *day[1];
    }
    server.known = requests > 0;
    server.complete = lost == 0;
    if (!server.known)
        server.note = QStringLiteral("The requests of this time have been deleted.");
    else if (lost > 0)
        server.note = QStringLiteral("Requests of %1 have been deleted. This is of the others.")
                          .arg(counted(lost, QStringLiteral("day")));
    server.totals = { { QStringLiteral("requests"), QStringLiteral("Requests"), Unit::Count, {}, {},
                          requests },
        { QStringLiteral("bytes"), QStringLiteral("Data"), Unit::Bytes, {}, {}, bytes } };
}

} // namespace

Server readServer(Task &task, Lines &lines)
{
    Server server;
    if (!task.site.mayReadHits) {
        server.note = QStringLiteral("This account may not read the single requests (vesk.hits).");
        return server;
    }
    const QString hits = hitsStatement();
    task.failed |= hits.isEmpty();
    readLines(task, hits, {}, lines);
    readLines(task, statementText("slow.sql"), {}, lines);
    server.days = { { QStringLiteral("days"), QStringLiteral("Requests") }, task.period,
        trafficOf(lines), false };
    server.days.numbers.columns = columnsOf("requests bytes");
    judge(task, server);
    server.lists = filled(lines,
        { ListId::StatusClasses, ListId::Statuses, ListId::Clients, ListId::FileTypes,
            ListId::MissingFiles, ListId::Errors, ListId::SlowPaths, ListId::Downloads });
    if (task.options.addresses)
        server.lists.insert(filled(lines, { ListId::ScannerAddresses }));
    return server;
}

PeopleBy peopleByOf(const Lines &lines)
{
    QHash<QString, double> counts;
    for (const Line &line : lines.value(ListId::PeopleBy))
        counts[line.key] = line.values[0].value_or(0);
    return { counts[QStringLiteral("beacon")], counts[QStringLiteral("style_sheet")],
        counts[QStringLiteral("referrer")] };
}

QMap<ListId, List> visitLists(const Lines &lines)
{
    return filled(
        lines, { ListId::EntryPages, ListId::ExitPages, ListId::VisitLengths, ListId::VisitPages });
}

} // namespace vesk::report
