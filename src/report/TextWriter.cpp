#include "common/Text.h"
#include "report/Course.h"
#include "report/TextGrid.h"
#include "report/Writers.h"

#include <algorithm>

namespace vesk::report {

namespace {

constexpr int kMostBarLines = 31;
constexpr int kLabel = 17; ///< of the bars of a chart

class TextWriter
{
public:
    explicit TextWriter(const Report &report)
        : m_report(report)
    {
    }

    QByteArray write();

private:
    void line(const QString &text) { m_text += trimmedEnd(text) + u'\n'; }
    void head();
    void totals();
    void requests();
    void title(const QString &text);
    void chart(const Chart &chart);
    void list(const List &list);
    void sideBySide(const QList<List> &lists);
    void server();
    void search();

    const Report &m_report;
    QString m_text;
};

void TextWriter::head()
{
    line({});
    line(fit(siteTitle(m_report.host, m_report.siteName), kTextColumns));
    line(periodTitle(m_report));
    for (const QString &note : m_report.notes)
        line(note);
}

void TextWriter::title(const QString &text)
{
    line({});
    line(rule(text));
}

void TextWriter::totals()
{
    title(QStringLiteral("Totals"));
    line(QStringLiteral("%1%2%3%4%5")
             .arg(QLatin1String("people"), 25)
             .arg(QLatin1String("before"), 12)
             .arg(QLatin1String("change"), 10)
             .arg(QLatin1String("with unverified"), 20)
             .arg(QLatin1String("change"), 10));
    for (const Figure &f : m_report.totals) {
        line(QStringLiteral("  %1 %2 %3 %4 %5 %6")
                 .arg(f.name, -13)
                 .arg(show(f.people, f.unit), 9)
                 .arg(show(f.peopleBefore, f.unit), 11)
                 .arg(change(f.people, f.peopleBefore, f.unit), 9)
                 .arg(show(f.everyone, f.unit), 19)
                 .arg(change(f.everyone, f.everyoneBefore, f.unit), 9));
    }
    if (m_report.peopleBy)
        line(QLatin1String("  ") + peopleLine(*m_report.peopleBy));
}

void TextWriter::requests()
{
    line({});
    for (const Figure &f : m_report.requests) {
        line(QStringLiteral("  %1 %2 %3 %4   %5")
                 .arg(f.name, -13)
                 .arg(show(f.everyone, f.unit), 9)
                 .arg(show(f.everyoneBefore, f.unit), 11)
                 .arg(change(f.everyone, f.everyoneBefore, f.unit), 9)
                 .arg(f.meaning));
    }
    if (m_report.period.days() > 1) {
        line({});
        line(QStringLiteral("Every day counts its visitors anew: who came on two days is in these "
                            "sums twice."));
    }
}

/// Full blocks for the first column, light ones for what stands on it. A single bar tells nothing.
void TextWriter::chart(const Chart &chart)
{
    const List &numbers = chart.numbers;
    if (numbers.rows.size() < 2)
        return;
    Grid grid;
    for (const Column &column : numbers.columns)
        grid.addColumn(column.head.toLower());
    double most = 0;
    for (const ListRow &row : numbers.rows) {
        QStringList cells;
        for (qsizetype i = 0; i < numbers.columns.size(); ++i)
            cells += show(row.values.value(i), numbers.columns[i].unit);
        grid.add(cells);
        most = std::max(most, chart.heights(row).second);
    }
    title(numbers.title);
    const QString heads = QString(kLabel, u' ') + grid.heads();
    line(heads);
    const int room = kTextColumns - 2 - columnsOf(heads);
    for (qsizetype i = 0; i < numbers.rows.size(); ++i) {
        const ListRow &row = numbers.rows[i];
        const auto [dark, all] = chart.heights(row);
        const int blocks = most > 0 ? qRound(room * dark / most) : 0;
        const int allBlocks = most > 0 ? qRound(room * all / most) : 0;
        line(right(row.shown(), kLabel) + grid.row(i) + QLatin1String("  ")
            + QString(blocks, QChar(0x2588)) + QString(allBlocks - blocks, QChar(0x2591)));
    }
}

void TextWriter::list(const List &list)
{
    if (list.rows.isEmpty())
        return;
    const bool isCompared = std::any_of(list.rows.begin(), list.rows.end(),
        [](const ListRow &row) { return row.before.has_value(); });
    Grid grid;
    int detailWidth = 0;
    for (qsizetype i = 0; i < list.columns.size(); ++i) {
        grid.addColumn(list.columns[i].head.toLower());
        if (i == 0 && isCompared)
            grid.addColumn(QStringLiteral("change"));
    }
    for (const ListRow &row : list.rows) {
        QStringList cells;
        for (qsizetype i = 0; i < list.columns.size(); ++i) {
            cells += show(row.values.value(i), list.columns[i].unit);
            if (i == 0 && isCompared)
                cells += change(row.values[0], row.before, list.columns[0].unit);
        }
        grid.add(cells);
        if (!list.isLinked && !row.detail.isEmpty())
            detailWidth = std::max(detailWidth, columnsOf(fit(row.detail, 9)) + 1);
    }
    title(list.title);
    const QString heads = grid.heads();
    line(heads);
    const int room = kTextColumns - 2 - columnsOf(heads);
    for (qsizetype i = 0; i < list.rows.size(); ++i) {
        const ListRow &row = list.rows[i];
        const QString detail
            = detailWidth > 0 ? left(fit(row.detail, detailWidth - 1), detailWidth) : QString();
        line(grid.row(i) + QLatin1String("  ") + detail + fit(row.shown(), room - detailWidth));
        if (list.isLinked && !row.detail.isEmpty())
            line(QString(columnsOf(heads) + 4, u' ')
                + fit(QLatin1String("from ") + shownLink(row.detail, m_report.host), room - 2));
    }
    if (list.total > list.rows.size())
        line(right(u'+' + grouped(double(list.total - list.rows.size())), 8)
            + QLatin1String("  more") + hintOn(list));
}

/// Short lists next to each other: counts and names.
void TextWriter::sideBySide(const QList<List> &lists)
{
    constexpr int kMost = 10;
    QStringList rows(kMost + 1);
    qsizetype used = 0;
    qint64 total = 0;
    for (const List &list : lists) {
        Grid grid;
        grid.addColumn({}, 7);
        int width = columnsOf(list.key.head);
        const qsizetype count = std::min<qsizetype>(kMost, list.rows.size());
        for (qsizetype i = 0; i < count; ++i) {
            grid.add({ show(list.rows[i].values[0], list.columns[0].unit) });
            width = std::max(width, columnsOf(fit(list.rows[i].shown(), 16)));
        }
        rows[0]
            += QString(columnsOf(grid.heads()) + 2, u' ') + left(list.key.head.toLower(), width);
        for (qsizetype i = 0; i < kMost; ++i) {
            rows[i + 1] += i < count
                ? grid.row(i) + QLatin1String("  ") + left(fit(list.rows[i].shown(), 16), width)
                : QString(columnsOf(grid.heads()) + 2 + width, u' ');
        }
        used = std::max(used, count);
        total = std::max(total, list.total);
    }
    if (used == 0)
        return;
    title(QStringLiteral("Visitors"));
    for (qsizetype i = 0; i <= used; ++i)
        line(rows[i]);
    if (total > used)
        line(right(u'+' + grouped(double(total - used)), 8));
}

void TextWriter::server()
{
    const Server &server = m_report.server;
    title(QStringLiteral("Server"));
    if (!server.note.isEmpty())
        line(QLatin1String("  ") + server.note);
    for (const Figure &f : server.totals)
        line(QStringLiteral("  %1 %2").arg(f.name, -13).arg(show(f.everyone, f.unit), 9));
    if (!server.known)
        return;
    chart(course(server.days, kMostBarLines));
    for (const List &each : server.lists)
        list(each);
}

void TextWriter::search()
{
    const Search &search = m_report.search;
    if (!search.note.isEmpty()) {
        title(QStringLiteral("Search console"));
        line(QLatin1String("  ") + search.note);
    }
    if (!search.engines.isEmpty()) {
        title(QLatin1String("Search console, ") + periodName(search.period));
        line(QStringLiteral("  clicks  change     shown     rate  position"));
    }
    for (const SearchEngine &engine : search.engines) {
        const auto &f = engine.figures;
        line(QStringLiteral("%1 %2 %3 %4 %5  %6, up to %7")
                 .arg(show(f[0].everyone, f[0].unit), 8)
                 .arg(change(f[0].everyone, f[0].everyoneBefore, f[0].unit), 7)
                 .arg(show(f[1].everyone, f[1].unit), 9)
                 .arg(show(f[2].everyone, f[2].unit), 8)
                 .arg(show(f[3].everyone, f[3].unit), 9)
                 .arg(fit(engine.name, 12), dayName(engine.newest)));
    }
    list(search.queries);
}

QByteArray TextWriter::write()
{
    head();
    totals();
    requests();
    chart(course(m_report.visitors, kMostBarLines));
    for (const Chart &each : m_report.charts)
        chart(each);
    for (const List &each : pick(m_report.lists,
             { ListId::Pages, ListId::EntryPages, ListId::ExitPages, ListId::VisitLengths,
                 ListId::VisitPages, ListId::Sources, ListId::SearchTerms, ListId::Campaigns,
                 ListId::TermsAndCampaigns }))
        list(each);
    sideBySide(pick(
        m_report.lists, { ListId::Countries, ListId::Browsers, ListId::Systems, ListId::Devices }));
    for (const List &each : pick(m_report.lists, { ListId::Crawlers, ListId::MissingPages }))
        list(each);
    server();
    search();
    line({});
    return m_text.toUtf8();
}

} // namespace

QByteArray toText(const Report &report)
{
    return TextWriter(report).write();
}

} // namespace vesk::report
