#include "analytics/Visits.h"
#include "support/Table.h"

using vesk::analytics::Visits;

namespace {

using Requests = QList<Visits::Request>;

/// Requests, each written as the visitor and the time of a day.
Requests requests(const QString &list)
{
    Requests result;
    for (const QString &request : words(list))
        result.append({ request.section(u'@', 0, 0).toLatin1(),
            QDateTime(QDate(2026, 3, 10), QTime::fromString(request.section(u'@', 1), Qt::ISODate),
                Qt::UTC) });
    return result;
}

/// Draws 1, 2, 3 and so on.
Visits::DrawNumbers counter()
{
    return [last = 0](qsizetype count) mutable {
        QList<qint64> numbers;
        while (count-- > 0)
            numbers.append(++last);
        return numbers;
    };
}

QString text(const QList<qint64> &numbers)
{
    QStringList fields;
    for (const qint64 number : numbers)
        fields += QString::number(number);
    return fields.join(u',');
}

} // namespace

class TestVisits : public QObject
{
    Q_OBJECT

private slots:
    void numbers_data()
    {
        const Table row; // of requests; the numbers are expected in their order
        row("gap of 1800 s", "a@10:00:00 a@10:30:00 a@11:00:00", "1,1,1");
        row("gap of 1801 s", "a@10:00:00 a@10:30:01", "1,2");
        row("out of order", "a@10:30:00 a@10:00:00 a@11:00:00 a@11:00:01", "1,1,1,1");
        row("gap counts from the latest", "a@10:30:00 a@10:00:00 a@11:00:01", "1,1,2");
        row("in line order", "b@10:00:00 a@10:00:00 b@10:00:01 b@12:00:00 c@10:00:00 b@12:00:01",
            "1,2,1,3,4,3");
    }

    /// All at once, and one by one.
    void numbers()
    {
        QFETCH(QByteArray, text);
        Visits all;
        QTEST(::text(all.numbers(requests(text), counter())), "expected");
        Visits visits;
        const Visits::DrawNumbers draw = counter();
        QList<qint64> single;
        for (const Visits::Request &request : requests(text))
            single += visits.numbers({ request }, draw);
        QTEST(::text(single), "expected");
    }

    void goesOnFromWhatIsStored()
    {
        Visits visits;
        const auto stored
            = [&visits](const char *visitor, qint64 id, const char *first, const char *last) {
                  const Requests times = requests(QStringLiteral("x@%1 x@%2").arg(first, last));
                  visits.takeUp(visitor, { id, times[0].at, times[1].at });
              };
        stored("a", 91, "10:00:00", "10:10:00");
        stored("a", 92, "10:41:00", "10:50:00");
        stored("b", 93, "10:00:00", "10:10:00");
        stored("c", 94, "10:30:00", "10:31:00");
        stored("d", 95, "10:30:00", "10:31:00");
        QCOMPARE(
            text(visits.numbers(requests("a@10:40:00 b@10:40:01 c@10:00:00 d@09:59:59 e@10:00:00"
                                         " a@11:20:00 a@11:50:01 b@10:05:00"),
                counter())),
            "92,1,94,2,3,92,4,1");
    }

    void drawsAgainWhatCouldNotBeDrawn()
    {
        Visits visits;
        const auto drawOne = [](qsizetype) { return QList<qint64> { 7 }; };
        QCOMPARE(
            text(visits.numbers(requests("a@10:00:00 b@10:00:00 b@10:00:01 a@10:00:02"), drawOne)),
            "7,0,0,7");
        QCOMPARE(text(visits.numbers(requests("a@10:00:03 b@10:00:03"), counter())), "7,1");
    }

    void forgetsTheIdleOfMany()
    {
        const QDateTime noon(QDate(2026, 3, 10), QTime(12, 0), Qt::UTC);
        Visits visits;
        const Visits::DrawNumbers draw = counter();
        Requests many
            = requests("on@11:00:00 on@11:30:00 back@11:30:00 back@11:00:00 idle@11:29:59");
        for (int i = 0; i < 49997; ++i)
            many.append({ QByteArray::number(i), noon });
        visits.numbers(many, draw); // of 50,000 visitors
        visits.prune(noon);
        QCOMPARE(
            text(visits.numbers(requests("idle@11:29:59 one-more@12:00:00"), draw)), "3,50001");
        visits.prune(noon);
        QCOMPARE(text(visits.numbers(requests("on@11:59:00 back@11:59:00 idle@11:29:59"), draw)),
            "1,2,50002");
        visits.prune(noon.addSecs(7200));
        QCOMPARE(text(visits.numbers(requests("on@12:00:00 back@12:00:00"), draw)), "50003,50004");
    }
};

QTEST_GUILESS_MAIN(TestVisits)
#include "tst_visits.moc"
