#include "report/Course.h"
#include "report/Format.h"
#include "report/Period.h"
#include "support/Table.h"

using namespace vesk::report;

namespace {

Period periodOf(const QString &text)
{
    return { QDate::fromString(text.left(10), Qt::ISODate),
        QDate::fromString(text.mid(11, 10), Qt::ISODate) };
}

/// Of each day but the third of a month its number.
QList<Value> numberOf(QDate day)
{
    return day.day() == 3 ? QList<Value>() : QList<Value> { day.day() };
}

const List kNumbers { "id", "Days", {}, {}, { { "day", "Day" } } };

QString shown(const Chart &chart)
{
    QStringList bars;
    for (const ListRow &bar : chart.numbers.rows)
        bars += bar.shown() + ' ' + show(bar.values.value(0), chart.numbers.columns[0].unit);
    return bars.join(", ");
}

} // namespace

class TestReport : public QObject
{
    Q_OBJECT

private slots:
    void period_data()
    {
        const Table row;
        row("2026-03-02", "2026-03-02 2026-03-02");
        row("2026-03-02..2026-03-15", "2026-03-02 2026-03-15");
        row("2024-02", "2024-02-01 2024-02-29");
        row("2026", "2026-01-01 2026-12-31");
        row("today", "2026-03-05 2026-03-05");
        row("yesterday", "2026-03-04 2026-03-04");
        row("week", "2026-02-25 2026-03-03");
        row("month", "2026-02-02 2026-03-03");
        row("2015-01-01..2025-01-07", "2015-01-01 2025-01-07"); // ten years and no day more
        for (const char *text : { "2015-01-01..2025-01-08", "2026-03-15..2026-03-02", "2026-02-29",
                 "2026-13", "0000", "0999-01-01", "2026-3-2", "26-03-02", "2026-03-02..", "..",
                 "2026-03-02..2026-03", "Today", "", "infinity", "31.3.2026", "२०२६", " 2026" })
            row(text, "-");
    }
    void period()
    {
        QFETCH(QByteArray, text);
        const auto parsed
            = parsePeriod(QString::fromUtf8(text), { QDate(2026, 3, 5), QDate(2026, 3, 3) });
        const QString shown = !parsed
            ? "-"
            : parsed->first.toString(Qt::ISODate) + ' ' + parsed->last.toString(Qt::ISODate);
        QTEST(shown, "expected");
    }

    void names()
    {
        const QDate last(2026, 3, 2);
        QCOMPARE(periodName({ QDate(2025, 3, 2), last }), "2 March 2025 to 2 March 2026");
        const QList<QDate> days { last, last.addDays(2), last.addDays(3), last.addDays(9),
            last.addDays(20), last.addDays(22) };
        QCOMPARE(daysName(days), "2 March 2026, 4 to 5 March 2026, 11 March 2026 and 2 more");
    }

    void links()
    {
        QCOMPARE(shownLink("http://www.Bücher.de/%C3%BC?q", "xn--bcher-kva.de"), "/ü?q");
        for (const char *other :
            { "https://example.org.de/", "example.org/", "ftp://example.org/" })
            QCOMPARE(shownLink(other, "example.org"), other);
    }

    void figures_data()
    {
        QTest::addColumn<Value>("now");
        QTest::addColumn<Value>("before");
        QTest::addColumn<Unit>("unit");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("changed");
        const auto row
            = [](Value now, Value before, Unit unit, const char *shown, const char *changed) {
                  QTest::newRow(shown) << now << before << unit << QString::fromUtf8(shown)
                                       << QString::fromUtf8(changed);
              };
        row(1234567, 1234567, Unit::Count, "1,234,567", "0 %");
        row(0, 0, Unit::Count, "0", "0 %");
        row(5, 0, Unit::Count, "5", "new");
        row(39, 4, Unit::Count, "39", "+875 %");
        row(40, 4, Unit::Count, "40", "×10");
        row(2, 3, Unit::Count, "2", "−33 %");
        row({}, 4, Unit::Count, "-", "-");
        row(0.5404, 0.5545, Unit::Rate, "54.0 %", "−1.4 pt");
        row(10.84, 9.3, Unit::Position, "10.8", "+1.5");
        row(3599.6, 1800, Unit::Seconds, "60:00", "+100 %");
        row(999, {}, Unit::Bytes, "999 B", "-");
        row(2747282740., {}, Unit::Bytes, "2.7 GB", "-");
        row(84, {}, Unit::Microseconds, "0.08 ms", "-");
        row(999499, {}, Unit::Microseconds, "999 ms", "-");
        row(1768484, {}, Unit::Microseconds, "1.8 s", "-");
    }
    void figures()
    {
        QFETCH(Value, now);
        QFETCH(Value, before);
        QFETCH(Unit, unit);
        QTEST(show(now, unit), "shown");
        QTEST(change(now, before, unit), "changed");
    }

    void courses_data()
    {
        const Table row; // days and the most bars
        row("2026-03-02 2026-03-04 3",
            "Days by day: Mon 2 Mar 2026 2, Tue 3 Mar 2026 -, Wed 4 Mar 2026 4");
        row("2026-03-01 2026-03-10 9",
            "Days by week: Week of 1 Mar 2026 1.0, Week of 2 Mar 2026 5.3, Week of 9 Mar 2026 9.5");
        row("2026-03-30 2026-04-06 1", "Days by month: Mar 2026 30.5, Apr 2026 3.6");
    }
    void courses()
    {
        QFETCH(QByteArray, text);
        const Chart chart = course(periodOf(text), text.sliced(22).toInt(), kNumbers, numberOf);
        QTEST(chart.numbers.title + ": " + shown(chart), "expected");
    }

    void ticks_data()
    {
        const Table row; // with the number of the bar
        row("2026-03-01 2026-03-13 99",
            "0 1 Mar, 1 2 Mar, 2 3 Mar, 3 4 Mar, 4 5 Mar, 5 6 Mar, 6 7 Mar, 7 8 Mar, 8 9 Mar, "
            "9 10 Mar, 10 11 Mar, 11 12 Mar, 12 13 Mar");
        row("2026-03-01 2026-03-26 99",
            "0 1 Mar, 2 3 Mar, 4 5 Mar, 6 7 Mar, 8 9 Mar, 10 11 Mar, 12 13 Mar, 14 15 Mar, "
            "16 17 Mar, 18 19 Mar, 20 21 Mar, 22 23 Mar, 24 25 Mar");
        row("2026-03-01 2026-03-27 99", "1 2 Mar, 8 9 Mar, 15 16 Mar, 22 23 Mar");
        row("2026-01-01 2026-03-31 20", "0 Jan ’26, 4 Feb, 8 Mar");
        row("2024-01-02 2026-03-11 31", "12 2025, 24 2026"); // 800 days
    }
    void ticks()
    {
        QFETCH(QByteArray, text);
        const Chart chart = course(periodOf(text), text.sliced(22).toInt(), kNumbers, numberOf);
        QStringList ticks;
        for (qsizetype i = 0; i < chart.ticks.size(); ++i) {
            if (!chart.ticks[i].isEmpty())
                ticks += QString::number(i) + ' ' + chart.ticks[i];
        }
        QTEST(ticks.join(", "), "expected");
    }
};

QTEST_GUILESS_MAIN(TestReport)
#include "tst_report.moc"
