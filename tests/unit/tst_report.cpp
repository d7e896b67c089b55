#include "report/Format.h"
#include "report/Period.h"
#include "support/Table.h"

using namespace vesk::report;

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
        QCOMPARE(periodName({ last, last }), "2 March 2026");
        QCOMPARE(periodName({ QDate(2026, 3, 1), last }), "1 to 2 March 2026");
        QCOMPARE(periodName({ QDate(2026, 2, 1), last }), "1 February to 2 March 2026");
        QCOMPARE(periodName({ QDate(2025, 3, 2), last }), "2 March 2025 to 2 March 2026");
        QCOMPARE(periodName(Period { QDate(2026, 3, 1), last }.before()), "27 to 28 February 2026");
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
        row(7, {}, Unit::Mean, "7.0", "-");
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
};

QTEST_GUILESS_MAIN(TestReport)
#include "tst_report.moc"
