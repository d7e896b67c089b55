#include "report/Writers.h"

#include "report/Course.h"
#include "report/Json.h"

#include <QJsonDocument>

#include <limits>

namespace vesk::report {

namespace {

using report::json;

constexpr int kAllDays = std::numeric_limits<int>::max() / 7; ///< one for each day

/// Figures of people and of everyone.
QJsonObject totals(const QList<Figure> &figures)
{
    QJsonObject object;
    for (const Figure &f : figures)
        object[f.id] = QJsonObject { { QStringLiteral("people"), json(f.people) },
            { QStringLiteral("people_before"), json(f.peopleBefore) },
            { QStringLiteral("all"), json(f.everyone) },
            { QStringLiteral("all_before"), json(f.everyoneBefore) } };
    return object;
}

/// Figures that are the same for both.
QJsonObject plain(const QList<Figure> &figures)
{
    QJsonObject object;
    for (const Figure &f : figures)
        object[f.id] = QJsonObject { { QStringLiteral("value"), json(f.everyone) },
            { QStringLiteral("before"), json(f.everyoneBefore) } };
    return object;
}

QJsonObject json(const PeopleBy &people)
{
    return { { QStringLiteral("beacon"), json(Value(people.beacon)) },
        { QStringLiteral("style_sheet"), json(Value(people.styleSheet)) },
        { QStringLiteral("referrer"), json(Value(people.referrer)) } };
}

QJsonObject json(const List &list, const ListRow &row)
{
    QJsonObject object { { list.key.id, row.key } };
    if (!list.detailId.isEmpty())
        object[list.detailId] = row.detail.isEmpty() ? QJsonValue() : QJsonValue(row.detail);
    for (qsizetype i = 0; i < list.columns.size(); ++i)
        object[list.columns[i].id] = json(row.values.value(i));
    if (row.before)
        object[list.columns[0].id + QLatin1String("_before")] = json(row.before);
    return object;
}

QJsonArray rows(const List &list)
{
    QJsonArray array;
    for (const ListRow &row : list.rows)
        array += json(list, row);
    return array;
}

QJsonObject json(const QMap<ListId, List> &lists)
{
    QJsonObject object;
    for (const List &list : lists)
        object[list.id] = QJsonObject { { QStringLiteral("total"), list.total },
            { QStringLiteral("summed_up"), list.summedUp },
            { QStringLiteral("rows"), rows(list) } };
    return object;
}

QJsonObject json(const Server &server)
{
    QJsonObject object { { QStringLiteral("known"), server.known },
        { QStringLiteral("complete"), server.complete }, { QStringLiteral("note"), server.note } };
    if (!server.known)
        return object;
    object[QStringLiteral("totals")] = plain(server.totals);
    object[QStringLiteral("days")] = rows(course(server.days, kAllDays).numbers);
    object[QStringLiteral("lists")] = json(server.lists);
    return object;
}

QJsonObject json(const Search &search)
{
    QJsonArray engines;
    for (const SearchEngine &engine : search.engines)
        engines += QJsonObject { { QStringLiteral("engine"), engine.name },
            { QStringLiteral("newest"), json(engine.newest) },
            { QStringLiteral("days"), engine.days },
            { QStringLiteral("totals"), plain(engine.figures) } };
    return { { QStringLiteral("note"), search.note },
        { QStringLiteral("period"), json(search.period) }, { QStringLiteral("engines"), engines },
        { QStringLiteral("lists"),
            json(QMap<ListId, List> { { ListId::Queries, search.queries } }) } };
}

} // namespace

QByteArray toJson(const Report &report)
{
    QJsonObject charts { { report.visitors.numbers.id,
        rows(course(report.visitors, kAllDays).numbers) } };
    for (const Chart &chart : report.charts)
        charts[chart.numbers.id] = rows(chart.numbers);
    const QJsonObject object { { QStringLiteral("format"), 1 },
        { QStringLiteral("site"), report.host }, { QStringLiteral("name"), report.siteName },
        { QStringLiteral("period"), json(report.period) },
        { QStringLiteral("days_with_report"), report.days },
        { QStringLiteral("compared_with"),
            report.compared ? QJsonValue(json(report.before)) : QJsonValue() },
        { QStringLiteral("notes"), QJsonArray::fromStringList(report.notes) },
        { QStringLiteral("scope"),
            report.everyone ? QStringLiteral("all") : QStringLiteral("people") },
        { QStringLiteral("totals"), totals(report.totals) },
        { QStringLiteral("requests"), plain(report.requests) },
        { QStringLiteral("people_by"), report.peopleBy ? json(*report.peopleBy) : QJsonValue() },
        { QStringLiteral("charts"), charts }, { QStringLiteral("lists"), json(report.lists) },
        { QStringLiteral("server"), json(report.server) },
        { QStringLiteral("search"), json(report.search) } };
    return QJsonDocument(object).toJson();
}

} // namespace vesk::report
