#include "report/Course.h"

#include <QLocale>

namespace vesk::report {

namespace {

enum class Step { Day, Week, Month };

/// Days that share a bar.
struct Bin
{
    QDate first;
    QDate last;
};

Step stepFor(qint64 days, qint64 most)
{
    return days <= most ? Step::Day : days <= 7 * most ? Step::Week : Step::Month;
}

bool beginsAt(QDate day, Step step)
{
    return step == Step::Day || (step == Step::Week && day.dayOfWeek() == Qt::Monday)
        || (step == Step::Month && day.day() == 1);
}

QList<Bin> binsOf(const Period &period, Step step)
{
    QList<Bin> bins;
    for (QDate day = period.first; day <= period.last; day = day.addDays(1)) {
        if (bins.isEmpty() || beginsAt(day, step))
            bins += Bin { day, day };
        bins.last().last = day;
    }
    return bins;
}

QString label(const Bin &bin, Step step)
{
    if (step == Step::Week)
        return QLatin1String("Week of ") + formatted(bin.first, "d MMM yyyy");
    return formatted(bin.first, step == Step::Day ? "ddd d MMM yyyy" : "MMM yyyy");
}

/// Below days, every one, some or the Mondays; below weeks and months, where a month or, in a
/// long period, a year begins.
QString tick(const Bin &bin, qsizetype index, Step step, qint64 days)
{
    if (days <= 26)
        return index % (1 + days / 14) == 0 ? formatted(bin.first, "d MMM") : QString();
    if (step == Step::Day)
        return bin.first.dayOfWeek() == Qt::Monday ? formatted(bin.first, "d MMM") : QString();
    const QDate month(bin.last.year(), bin.last.month(), 1);
    const bool isLong = days >= 800;
    if (bin.first > month || (isLong && month.month() != 1))
        return {};
    return formatted(month, isLong ? "yyyy" : month.month() == 1 ? "MMM ’yy" : "MMM");
}

/// Averages of the figures of some days.
class Average
{
public:
    void add(const QList<Value> &values)
    {
        if (values.isEmpty())
            return;
        ++m_days;
        m_sums.resize(values.size());
        for (qsizetype i = 0; i < values.size(); ++i)
            m_sums[i] += values[i].value_or(0);
    }

    QList<Value> values() const
    {
        QList<Value> averages;
        for (const double sum : m_sums)
            averages += sum / m_days;
        return averages;
    }

private:
    int m_days = 0;
    QList<double> m_sums;
};

void useMeans(List &list)
{
    for (Column &column : list.columns) {
        if (column.unit == Unit::Count)
            column.unit = Unit::Mean;
    }
}

} // namespace

Chart course(const Period &period, int most, const List &numbers, const DayValues &valuesOf)
{
    const Step step = stepFor(period.days(), most);
    Chart chart { numbers };
    List &list = chart.numbers;
    const char *unit = step == Step::Day ? "day" : step == Step::Week ? "week" : "month";
    list.title += QLatin1String(" by ") + QLatin1String(unit);
    list.key = { QStringLiteral("first_day"), QLatin1String(unit) };
    list.key.head[0] = list.key.head[0].toUpper();
    if (step != Step::Day) {
        list.note = QStringLiteral("The average day of each %1.").arg(QLatin1String(unit));
        useMeans(list);
    }
    for (const Bin &bin : binsOf(period, step)) {
        Average average;
        for (QDate day = bin.first; day <= bin.last; day = day.addDays(1))
            average.add(valuesOf(day));
        chart.ticks += tick(bin, list.rows.size(), step, period.days());
        list.rows
            += ListRow { bin.first.toString(Qt::ISODate), label(bin, step), {}, average.values() };
    }
    list.total = list.rows.size();
    return chart;
}

Chart course(const DaySeries &series, int most)
{
    Chart chart = course(series.period, most, series.numbers,
        [&series](QDate day) { return series.values.value(day); });
    chart.stacked = series.stacked;
    return chart;
}

Chart weekdays(const Period &period, const List &numbers, const DayValues &valuesOf)
{
    Chart chart { numbers };
    useMeans(chart.numbers);
    Average averages[7];
    for (QDate day = period.first; day <= period.last; day = day.addDays(1))
        averages[day.dayOfWeek() - 1].add(valuesOf(day));
    for (int i = 0; i < 7; ++i) {
        const QString name = QLocale::c().dayName(i + 1);
        chart.numbers.rows += ListRow { name, {}, {}, averages[i].values() };
        chart.ticks += QLocale::c().dayName(i + 1, QLocale::ShortFormat);
    }
    chart.numbers.total = 7;
    return chart;
}

} // namespace vesk::report
