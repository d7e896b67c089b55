#include "report/Report.h"

#include "common/Text.h"

#include <QLocale>

namespace vesk::report {

QStringList List::heads() const
{
    QStringList heads { key.head };
    for (const Column &column : columns)
        heads += column.head;
    return heads;
}

QList<List> pick(const QMap<ListId, List> &lists, std::initializer_list<ListId> ids)
{
    QList<List> picked;
    for (const ListId id : ids) {
        if (lists.contains(id))
            picked += lists[id];
    }
    return picked;
}

QString hintOn(const List &list)
{
    QStringList hints;
    if (list.total - list.summedUp > list.rows.size())
        hints += QStringLiteral("--rows all");
    if (list.summedUp > 0)
        hints += grouped(double(list.summedUp)) + QLatin1String(" only summed up");
    return hints.isEmpty() ? QString()
                           : QLatin1String(" (") + hints.join(QLatin1String(", ")) + u')';
}

QString shownLink(const QString &referrer, const QString &site)
{
    for (const char *start : { "https://", "http://", "https://www.", "http://www." }) {
        const QString own = QLatin1String(start) + site + u'/';
        if (referrer.startsWith(own, Qt::CaseInsensitive))
            return referrer.mid(own.size() - 1);
    }
    return referrer;
}

QString peopleLine(const PeopleBy &people)
{
    return QStringLiteral("People by a style sheet %1, by a beacon %2, by a referrer alone %3.")
        .arg(grouped(people.styleSheet), grouped(people.beacon), grouped(people.referrer));
}

QString siteTitle(const Report &report)
{
    const bool isNamed = !report.siteName.isEmpty() && report.siteName != report.host;
    return isNamed ? report.host + QStringLiteral(" · ") + report.siteName : report.host;
}

QString periodTitle(const Report &report)
{
    const QString name = periodName(report.period);
    if (report.period.days() > 1)
        return QStringLiteral("%1 (%2)").arg(
            name, counted(report.period.days(), QStringLiteral("day")));
    return QLocale::c().dayName(report.period.first.dayOfWeek()) + QLatin1String(", ") + name;
}

} // namespace vesk::report
