#include "report/Reader.h"

#include "common/Db.h"
#include "common/Text.h"
#include "figures/Statements.h"
#include "report/DayReader.h"
#include "report/SearchReader.h"
#include "report/ServerReader.h"

namespace vesk::report {

Snapshot::Snapshot()
{
    QString error;
    m_open = db::execScript(
        QStringLiteral("START TRANSACTION ISOLATION LEVEL REPEATABLE READ, READ ONLY;")
            + QLatin1String(figures::kSettings),
        &error);
    if (!m_open)
        db::reportFailure(error);
}

Snapshot::~Snapshot()
{
    QSqlQuery(QStringLiteral("ROLLBACK"));
}

std::optional<Report> readReport(
    const ReportedSite &site, const Period &period, const Options &options)
{
    Report report;
    report.host = site.host;
    report.siteName = site.name;
    report.period = period;
    report.before = period.before();
    report.everyone = options.everyone;

    Task task(site, period, options);
    readDays(task);
    const Totals now = sumOf(task.days, period);
    const Totals before = sumOf(task.days, report.before);
    if (task.failed)
        return {};
    if (now.days == 0) {
        qCritical("%s has no report for %s", qPrintable(clean(site.host)),
            qPrintable(periodName(period)));
        return {};
    }
    judgePeriods(task, now, before, report);
    report.totals = visitorFigures(now, before, report.compared);
    report.requests = requestFigures(now, before, report.compared);
    report.visitors = visitorsByDay(task);
    report.charts = readCharts(task, report.visitors);

    Lines lines;
    report.server = readServer(task, lines);
    report.lists = readLists(task, report.server.complete && report.server.known, lines);
    if (report.server.known) {
        report.lists.insert(visitLists(lines));
        report.peopleBy = peopleByOf(lines);
    }
    if (!report.compared) {
        for (List &list : report.lists) {
            for (ListRow &row : list.rows)
                row.before.reset();
        }
    }
    report.search = readSearch(task);
    if (task.failed)
        return {};
    return report;
}

} // namespace vesk::report
