#include "report/Report.h"

#include "common/HostName.h"
#include "common/Text.h"

#include <QLocale>
#include <QRegularExpression>
#include <QUrl>

namespace vesk::report {

QStringList List::heads() const
{
    QStringList heads { key.head };
    for (const Column &column : columns)
        heads += column.head;
    return heads;
}

std::pair<double, double> Chart::heights(const ListRow &row) const
{
    const double dark = row.values.value(0).value_or(0);
    return { dark, dark + (stacked ? row.values.value(1).value_or(0) : 0) };
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
    static const QRegularExpression form(QStringLiteral("^https?://([^/]*)(/.*)$"),
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::DotMatchesEverythingOption);
    const auto link = form.match(referrer);
    const QString host = comparableHost(link.captured(1));
    const QString own = comparableHost(site);
    const bool isOwn = link.hasMatch() && (host == own || host == QLatin1String("www.") + own);
    return isOwn ? QUrl::fromPercentEncoding(link.captured(2).toUtf8()) : referrer;
}

QString peopleLine(const PeopleBy &people)
{
    return QStringLiteral("People by a style sheet %1, by a beacon %2, by a referrer alone %3.")
        .arg(grouped(people.styleSheet), grouped(people.beacon), grouped(people.referrer));
}

QString siteTitle(const QString &host, const QString &name)
{
    return name.isEmpty() || name == host ? host : host + QStringLiteral(" · ") + name;
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
