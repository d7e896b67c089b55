#include "report/HtmlList.h"

#include "common/Text.h"

#include <algorithm>

namespace vesk::report {

namespace {

constexpr qsizetype kMostUnbroken = 6; ///< rows that stay together on paper

/// The first cell: what the row is about, with a bar that is long by \a share.
void writeKey(Html &html, const List &list, const ListRow &row, double share, const QString &site)
{
    const Element cell(html, "th", { { "scope", QStringLiteral("row") } });
    if (row.name.isEmpty())
        html.stranger(row.key);
    else
        html.text(clean(row.name));
    if (list.isLinked && !row.detail.isEmpty()) {
        const Element note(html, "small");
        html.text(QStringLiteral("from "));
        html.stranger(shownLink(row.detail, site));
    } else if (!row.detail.isEmpty() && row.name.isEmpty()) {
        html.text(QStringLiteral(" "));
        html.leaf("span", clean(row.detail), { { "class", QStringLiteral("kind") } });
    }
    const Element svg(html, "svg",
        { { "class", QStringLiteral("bar") }, { "aria-hidden", QStringLiteral("true") },
            { "height", QStringLiteral("5") } });
    html.leaf("rect", {},
        { { "width", QString::number(100 * share, 'f', 2) + u'%' },
            { "height", QStringLiteral("5") } });
}

void writeTable(Html &html, const List &list, const QString &site)
{
    const Element table(html, "table", { { "aria-labelledby", list.id } });
    html.tableHead(list.heads());
    double most = 0;
    for (const ListRow &row : list.rows)
        most = std::max(most, row.values[0].value_or(0));
    const Element body(html, "tbody");
    for (const ListRow &row : list.rows) {
        const Element line(html, "tr");
        writeKey(html, list, row, most > 0 ? row.values[0].value_or(0) / most : 0, site);
        for (qsizetype i = 0; i < list.columns.size(); ++i) {
            const Unit unit = list.columns[i].unit;
            const Element cell(html, "td");
            html.text(show(row.values[i], unit));
            if (i == 0 && row.before)
                html.leaf("small", change(row.values[i], row.before, unit));
        }
    }
}

} // namespace

void writeList(Html &html, const List &list, const QString &site)
{
    const bool isShort = list.rows.size() <= kMostUnbroken;
    const Element element(html, "div",
        { { "class", isShort ? QStringLiteral("list short") : QStringLiteral("list") } });
    html.leaf("h3", list.title, { { "id", list.id } });
    html.paragraph(list.note, "soft");
    writeTable(html, list, site);
    if (list.total > list.rows.size())
        html.paragraph(
            QStringLiteral("and %1 more").arg(grouped(double(list.total - list.rows.size())))
                + hintOn(list),
            "more");
}

} // namespace vesk::report
