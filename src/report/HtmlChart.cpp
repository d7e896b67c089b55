#include "report/HtmlChart.h"

#include "common/Text.h"

#include <algorithm>
#include <cmath>

/// Places across are in percent and upright ones in pixels, so that letters keep their size.
namespace vesk::report {

namespace {

constexpr double kTop = 10;
constexpr double kHeight = 180;
constexpr double kFoot = kTop + kHeight;
constexpr qsizetype kMostOpenRows = 10;
constexpr qsizetype kMostNarrow = 9; ///< bars of a chart that does not fill the page, see page.css

QString percent(double value)
{
    return QString::number(value, 'f', 3) + u'%';
}

QString pixels(double value)
{
    return QString::number(value, 'f', 1);
}

/// The distance of the lines of a scale that has at most five: 1, 2, 5, 10, 20...
double stepFor(double most)
{
    for (double zeros = 1;; zeros *= 10) {
        for (const double digit : { 1, 2, 5 }) {
            if (digit * zeros * 5 >= most)
                return digit * zeros;
        }
    }
}

QString scaleLabel(double value, double top)
{
    if (top < 1e5 || value == 0)
        return grouped(value);
    return top < 1e7 ? grouped(value / 1e3) + u'k' : grouped(value / 1e6) + u'M';
}

void writeLegend(Html &html)
{
    const Element legend(html, "ul", { { "class", QStringLiteral("legend") } });
    for (const auto &[name, text] :
        { std::pair("people", "people"), std::pair("unverified", "unverified browsers, on top") }) {
        const Element item(html, "li");
        {
            const Element svg(html, "svg", { { "aria-hidden", QStringLiteral("true") } });
            html.leaf("rect", {},
                { { "class", QLatin1String(name) }, { "width", QStringLiteral("12") },
                    { "height", QStringLiteral("12") } });
        }
        html.text(QLatin1String(text));
    }
}

void writeScale(Html &html, double top, double step)
{
    for (int i = 0; i * step <= top; ++i) {
        const double value = i * step;
        const QString y = pixels(kFoot - kHeight * value / top);
        html.leaf("line", {},
            { { "class", QStringLiteral("grid") }, { "x2", QStringLiteral("100%") }, { "y1", y },
                { "y2", y } });
        html.leaf("text", scaleLabel(value, top),
            { { "class", QStringLiteral("y") }, { "x", QStringLiteral("-8") }, { "y", y },
                { "dy", QStringLiteral("4") } });
    }
}

QString tooltip(const List &numbers, const ListRow &row)
{
    QStringList parts;
    for (qsizetype i = 0; i < row.values.size(); ++i)
        parts += show(row.values[i], numbers.columns[i].unit) + u' '
            + numbers.columns[i].head.toLower();
    return row.shown() + QLatin1String(": ")
        + (parts.isEmpty() ? QStringLiteral("no report") : parts.join(QLatin1String(", ")));
}

void writeBar(Html &html, const char *kind, double x, double slot, double from, double to)
{
    html.leaf("rect", {},
        { { "class", QLatin1String(kind) }, { "x", percent(x + 0.12 * slot) },
            { "width", percent(0.76 * slot) }, { "y", pixels(kFoot - to) },
            { "height", pixels(to - from) } });
}

void writeBars(Html &html, const Chart &chart, double top)
{
    const QList<ListRow> &rows = chart.numbers.rows;
    const double slot = 100.0 / double(rows.size());
    for (qsizetype i = 0; i < rows.size(); ++i) {
        const double x = slot * double(i);
        const auto [dark, all] = chart.heights(rows[i]);
        const Element group(html, "g");
        html.leaf("title", tooltip(chart.numbers, rows[i]));
        html.leaf("rect", {},
            { { "class", QStringLiteral("hit") }, { "x", percent(x) }, { "width", percent(slot) },
                { "y", pixels(kTop) }, { "height", pixels(kHeight) } });
        if (all > dark)
            writeBar(html, "unverified", x, slot, kHeight * dark / top, kHeight * all / top);
        if (dark > 0)
            writeBar(html, "people", x, slot, 0, kHeight * dark / top);
    }
}

/// On a narrow screen about six of the labels remain. One at the right edge ends there.
void writeTicks(Html &html, const Chart &chart)
{
    const auto count = std::count_if(chart.ticks.begin(), chart.ticks.end(),
        [](const QString &tick) { return !tick.isEmpty(); });
    if (count == 0)
        return;
    const auto thin = (count + 5) / 6;
    const double slot = 100.0 / double(chart.ticks.size());
    int nth = 0;
    for (qsizetype i = 0; i < chart.ticks.size(); ++i) {
        if (chart.ticks[i].isEmpty())
            continue;
        const double right = slot * double(i + 1);
        const double middle = right - slot / 2;
        QString kind = middle > 95 && slot < 6 ? QStringLiteral("last") : QStringLiteral("x");
        if (nth++ % thin != 0)
            kind += QLatin1String(" wide");
        html.leaf("text", chart.ticks[i],
            { { "class", kind }, { "x", percent(kind.startsWith(u'x') ? middle : right) },
                { "y", QStringLiteral("210") } });
    }
}

void writeNumbers(Html &html, const List &numbers)
{
    const bool isOpen = numbers.rows.size() <= kMostOpenRows;
    const auto table = [&] {
        const Element element(html, "table", { { "class", QStringLiteral("plain") } });
        html.tableHead(numbers.heads());
        const Element body(html, "tbody");
        for (const ListRow &row : numbers.rows) {
            const Element line(html, "tr");
            html.leaf("th", row.shown(), { { "scope", QStringLiteral("row") } });
            for (qsizetype i = 0; i < numbers.columns.size(); ++i)
                html.leaf("td", show(row.values.value(i), numbers.columns[i].unit));
        }
    };
    if (isOpen)
        html.open("details", { { "open", QString() } });
    else
        html.open("details");
    html.leaf("summary", QStringLiteral("The same in numbers"));
    table();
    html.close();
}

} // namespace

bool isWorthDrawing(const Chart &chart)
{
    return chart.numbers.rows.size() > 1;
}

void writeChart(Html &html, const Chart &chart)
{
    const QList<ListRow> &rows = chart.numbers.rows;
    double most = 1;
    const ListRow *best = nullptr;
    for (const ListRow &row : rows) {
        const auto [dark, all] = chart.heights(row);
        most = std::max(most, all);
        if (!best || dark > chart.heights(*best).first)
            best = &row;
    }
    const double step = stepFor(most);
    const double top = step * std::ceil(most / step);
    html.paragraph(chart.numbers.note, "soft");
    if (chart.stacked)
        writeLegend(html);
    const QString about = chart.numbers.title
        + (best ? QStringLiteral(". The most: ") + tooltip(chart.numbers, *best) : QString());
    {
        const Element svg(html, "svg",
            { { "class",
                  QStringLiteral("chart bars%1").arg(std::min(rows.size(), kMostNarrow + 1)) },
                { "role", QStringLiteral("img") }, { "aria-label", about },
                { "height", QStringLiteral("220") } });
        writeScale(html, top, step);
        writeBars(html, chart, top);
        writeTicks(html, chart);
    }
    writeNumbers(html, chart.numbers);
}

} // namespace vesk::report
