#include "report/SearchReader.h"

#include <algorithm>

namespace vesk::report {

namespace {

constexpr int kLeastDays = 28; ///< search engines report days late

QList<SearchEngine> readEngines(Task &task, const Bindings &bindings)
{
    QList<SearchEngine> found;
    Statement engines(statementText("engines.sql"), bindings);
    while (engines.next()) {
        const auto figure = [&](const char *id, const char *name, Unit unit, const char *before) {
            return Figure { QLatin1String(id), QLatin1String(name), unit, {}, {},
                engines.figure(id), engines.figure(before) };
        };
        found += SearchEngine { engines.text("engine"), engines.day("newest"),
            engines.value("days").toInt(),
            { figure("clicks", "Clicks", Unit::Count, "clicks_before"),
                figure("impressions", "Shown", Unit::Count, "impressions_before"),
                figure("click_rate", "Click rate", Unit::Rate, "click_rate_before"),
                figure("position", "Average position", Unit::Position, "position_before") } };
    }
    task.failed |= engines.failed();
    return found;
}

} // namespace

Search readSearch(Task &task)
{
    if (task.failed)
        return {};
    const qint64 days = std::max<qint64>(task.period.days(), kLeastDays);
    Search search { {}, daysUpTo(task.period.last, int(days)) };
    if (!task.site.mayReadSearch) {
        search.note = QStringLiteral(
            "This account may not read what search engines report (vesk.search_*).");
        return search;
    }
    const Bindings bindings = task.bindingsWith({ { QStringLiteral(":from"), search.period.first },
        { QStringLiteral(":before_from"), search.period.before().first } });
    search.engines = readEngines(task, bindings);
    Lines lines;
    readLines(task, statementText("queries.sql"), bindings, lines);
    search.queries = filled(lines, { ListId::Queries }).value(ListId::Queries);
    return search;
}

} // namespace vesk::report
