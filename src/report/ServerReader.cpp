#include "report/ServerReader.h"

#include "figures/Figures.h"
#include "figures/Statements.h"
#include "report/SlowPaths.h"

namespace vesk::report {

namespace {

/// From what the days of a period are told.
struct Origin
{
    QList<QDate> kept; ///< from figures
    QList<QDate> requests; ///< from requests, as far as there are any
};

/// How many requests there are of each day.
QHash<QDate, double> countRequests(Task &task)
{
    QHash<QDate, double> counts;
    Statement days(statementText("traffic.sql"), task.bindings);
    while (days.next())
        counts[days.day("day")] = days.number("requests");
    task.failed |= days.failed();
    return counts;
}

/// Figures come before requests, but where addresses are wanted, which only requests have.
Origin originOf(Task &task)
{
    QSet<QDate> kept = keptDays(task, task.period);
    if (task.options.addresses && task.site.mayReadHits && !kept.isEmpty()) {
        const QHash<QDate, double> counts = countRequests(task);
        kept.removeIf([&](QDate day) { return counts.value(day) >= task.days[day].requests; });
    }
    Origin origin;
    for (QDate day = task.period.first; day <= task.period.last; day = day.addDays(1)) {
        if (kept.contains(day))
            origin.kept += day;
        else if (task.site.mayReadHits)
            origin.requests += day;
    }
    return origin;
}

/// A statement over all that tells of the days. \a relations and \a line are what requests have.
QString statementOver(
    const Origin &origin, const char *name, const QString &relations, const char *line)
{
    QStringList with;
    QStringList lines;
    if (!origin.requests.isEmpty()) {
        with += relations;
        lines += QStringLiteral("SELECT list, key, detail, v1::bigint, v2::bigint, v3 FROM ")
            + QLatin1String(line);
    }
    if (!origin.kept.isEmpty()) {
        with += statementText("kept.sql");
        lines += QStringLiteral("SELECT * FROM kept");
    }
    QString sql = statementText(name);
    sql.replace(QLatin1String("{relations}"), with.join(QLatin1String(", ")));
    sql.replace(QLatin1String("{lines}"), lines.join(QLatin1String(" UNION ALL ")));
    return sql;
}

void readLines(Task &task, const Origin &origin, Lines &lines)
{
    Bindings bindings { { QStringLiteral(":kept"), arrayOf(origin.kept) },
        { QStringLiteral(":scopes"),
            QStringLiteral("{%1}").arg(task.bindings[QStringLiteral(":scope")].toString()) },
        { QStringLiteral(":slow"), false } };
    QString requests;
    if (!origin.requests.isEmpty()) {
        requests = figures::requestRelations(origin.requests);
        task.failed |= requests.isEmpty();
    }
    readLines(task, statementOver(origin, "server.sql", requests, "line"), bindings, lines);
    if (origin.kept.isEmpty())
        return readLines(task, statementText("slow.sql"), {}, lines);
    bindings[QStringLiteral(":slow")] = true;
    const QString durations = figures::statementText("durations.sql");
    readSlowPaths(task,
        statementOver(origin, "slow_kept.sql", requests + QLatin1String(", ") + durations, "timed"),
        bindings, lines);
}

/// Requests and bytes of each day that has requests.
QMap<QDate, QList<Value>> trafficOf(const Lines &lines)
{
    QMap<QDate, QList<Value>> days;
    for (const Line &line : lines.value(ListId::Days))
        days[QDate::fromString(line.key, Qt::ISODate)]
            = { line.values[0].value_or(0), line.values[1].value_or(0) };
    return days;
}

/// What is said of days of which not all is known.
QString noteOn(const Task &task, qint64 lost, const Server &server, qsizetype withoutAddresses)
{
    if (!server.known)
        return task.site.mayReadHits
            ? QStringLiteral("The requests of this time have been deleted.")
            : QStringLiteral("This account may not read the single requests (vesk.hits).");
    const QString days = counted(lost, QStringLiteral("day"));
    if (lost > 0 && task.site.mayReadHits)
        return QStringLiteral("Requests of %1 have been deleted. This is of the others.").arg(days);
    if (lost > 0)
        return QStringLiteral(
            "This account may not read the single requests (vesk.hits), and no figures are kept "
            "of %1. This is of the others.")
            .arg(days);
    if (!task.options.addresses || withoutAddresses == 0)
        return {};
    return task.site.mayReadHits
        ? QStringLiteral("Requests of %1 have been deleted, and their addresses with them.")
              .arg(counted(withoutAddresses, QStringLiteral("day")))
        : QStringLiteral("This account may not read addresses (vesk.hits).");
}

/// Tells of how many days requests have been deleted, and sums up the others.
void judge(const Task &task, const Origin &origin, Server &server)
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
    server.note = noteOn(task, lost, server, origin.kept.size());
    server.totals = { { QStringLiteral("requests"), QStringLiteral("Requests"), Unit::Count, {}, {},
                          requests },
        { QStringLiteral("bytes"), QStringLiteral("Data"), Unit::Bytes, {}, {}, bytes } };
}

} // namespace

Server readServer(Task &task, Lines &lines)
{
    Server server;
    const Origin origin = originOf(task);
    if (!origin.kept.isEmpty() || !origin.requests.isEmpty())
        readLines(task, origin, lines);
    server.days = { { QStringLiteral("days"), QStringLiteral("Requests") }, task.period,
        trafficOf(lines), false };
    server.days.numbers.columns = namedColumns("requests bytes");
    judge(task, origin, server);
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
