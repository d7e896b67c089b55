#include "report/SiteReader.h"

#include "report/Statement.h"

namespace vesk::report {

std::optional<ReportedSite> readCalendar(const Site &known)
{
    ReportedSite site { known, {}, {}, {}, {}, {}, {} };
    const Bindings bindings { { QStringLiteral(":site"), site.id } };
    Statement days(statementText("calendar.sql"), bindings);
    if (!days.next())
        return {};
    site.newest = days.day("newest");
    site.calendar = { days.day("today"), days.day("last_complete") };
    site.mayReadHits = days.value("may_read_hits").toBool();
    site.mayReadSearch = days.value("may_read_search").toBool();
    if (!site.mayReadHits)
        return site;
    Statement last(statementText("newest_request.sql"), bindings);
    if (!last.next())
        return {};
    site.lastRequestDay = last.day("day");
    site.lastRequestTime = last.value("time").toTime();
    return site;
}

QList<QDate> readMonths(const ReportedSite &site)
{
    QList<QDate> months;
    Statement rows(statementText("months.sql"), { { QStringLiteral(":site"), site.id } });
    while (rows.next())
        months += rows.day("month");
    return months;
}

} // namespace vesk::report
