#include "report/Check.h"
#include "report/Sites.h"
#include "report/SitesReader.h"
#include "support/Table.h"

using namespace vesk::report;

namespace {

/// A site with 1,000 requests each day, errors on none, and a good night; then the changes: a name
/// and a number each, days as distances from today.
Facts factsWith(const QString &changes)
{
    const QDate today(2026, 3, 31);
    Facts facts { today, today.addDays(-500), today, today.addDays(-1), {}, 0, true,
        Night { today, {}, {} }, {} };
    for (int i = 0; i < kJudgedDays; ++i)
        facts.requests[today.addDays(-i)] = 1000;
    for (const QString &change : changes.split(", ", Qt::SkipEmptyParts)) {
        const QString name = change.section(' ', 0, 0);
        const double number = change.section(' ', 1).toDouble();
        const QDate day = today.addDays(qint64(number));
        if (name == "newest") {
            facts.newest = day;
            facts.complete = day.addDays(-1);
            while (facts.requests.lastKey() > day)
                facts.requests.remove(facts.requests.lastKey());
        } else if (name == "new") {
            facts.added = day;
            facts.newest = facts.complete = QDate();
            facts.requests.clear();
        } else if (name == "errors")
            facts.errors = number;
        else if (name == "each")
            std::fill(facts.requests.begin(), facts.requests.end(), number);
        else if (name == "yesterday")
            facts.requests[today.addDays(-1)] = number;
        else if (name == "burst")
            facts.requests[day] = 1e6;
        else if (name == "without")
            facts.requests.remove(day);
        else if (name == "since") // history begins there
            while (facts.requests.firstKey() < day)
                facts.requests.remove(facts.requests.firstKey());
        else if (name == "night")
            facts.night->day = day;
        else if (name == "failing")
            facts.night->failingSince = day;
        else if (name == "unknown")
            facts.night.reset();
        else
            facts.waiting += day;
    }
    return facts;
}

SiteLine line(const char *host, Level level, double requests, double bots, Value bytes)
{
    SiteLine site { host };
    site.days = 1;
    site.visitors = site.compared = requests / 10;
    site.requests = requests;
    site.botRequests = bots;
    site.bytes = bytes;
    if (level != Level::Fine)
        site.findings += { "silent", level, "text" };
    return site;
}

} // namespace

class TestSites : public QObject
{
    Q_OBJECT

private slots:
    void judgement_data()
    {
        const Table row;
        row("all is well", "");
        row("newest -2", "");
        row("newest -3", "1 silent");
        row("newest -7", "1 silent");
        row("newest -8", "2 silent");
        row("newest -3, without -10, without -20", ""); // a pause that is usual
        row("newest -4, without -10, without -20", "1 silent");
        row("newest -3, without -10", "1 silent"); // one that was an accident
        row("new -2", "");
        row("new -3", "1 silent");
        row("errors 49", "");
        row("errors 50", "1 errors");
        row("errors 249", "1 errors");
        row("errors 250", "2 errors");
        row("yesterday 400, errors 100", "2 errors"); // a part of that day's
        row("each 40, errors 9", "");
        row("each 40, errors 10", "2 errors");
        row("yesterday 101", "");
        row("yesterday 100", "1 requests");
        row("yesterday 10", "2 requests");
        row("without -1", "2 requests"); // no request at all
        row("yesterday 9999", "");
        row("yesterday 10000", "1 requests");
        row("each 99, yesterday 1", "");
        row("each 100, yesterday 1", "2 requests");
        row("yesterday 100, since -21", ""); // two weeks tell nothing
        row("yesterday 100, since -22", "1 requests");
        row("burst -8, burst -15, burst -22, since -50", ""); // the median of seven, and of eight
        row("burst -8, burst -15, burst -22, burst -29", "2 requests");
        row("night -1", "");
        row("night -2", "1 night");
        row("night -4", "2 night");
        row("failing 0", "1 night");
        row("failing -1", "1 night");
        row("failing -2", "2 night");
        row("waits -2", ""); // a run goes on
        row("waits -2, failing 0", "1 night, 1 waiting");
        row("waits -2, unknown", "1 waiting");
        row("errors 250, failing 0", "2 errors, 1 night"); // the worst first
    }
    void judgement()
    {
        QFETCH(QByteArray, text);
        QStringList found;
        for (const Finding &finding : judge(factsWith(text == "all is well" ? "" : text), {}))
            found += QString::number(int(finding.level)) + ' ' + finding.kind;
        QTEST(found.join(", "), "expected");
    }

    void overview()
    {
        Overview all { { QDate(2026, 3, 30), QDate(2026, 3, 30) } };
        all.sites = { line("a", Level::Fine, 100, 90, 5), line("b", Level::Fine, 900, 10, 7),
            line("c", Level::Warning, 10, 0, 1), line("d", Level::Critical, 10, 0, 2),
            SiteLine { "e" } };
        all.sites[0].visitorsBefore = 20;
        all.sites[1].visitorsBefore = 70;
        arrange(all);
        QString order;
        for (const SiteLine &site : all.sites)
            order += site.host;
        QCOMPARE(order, "dcbae");
        QCOMPARE(all.total.requests, 1020);
        QCOMPARE(all.total.botShare(), 100.0 / 1020);
        QCOMPARE(all.total.bytes, 15);
        QCOMPARE(change(all.total.compared, all.total.visitorsBefore, Unit::Count), "+11 %");
        all.sites[3].bytes.reset();
        arrange(all);
        QVERIFY(!all.total.bytes);
        QCOMPARE(gapsOf(all).size(), 3);
    }

    void lastCompleteDay()
    {
        QList<KnownSite> sites;
        for (const char *newest : { "newest -5", "newest -1", "newest 3", "new 0" }) // one is ahead
            sites += { {}, factsWith(newest) };
        QCOMPARE(calendarOf(sites).lastComplete, QDate(2026, 3, 29));
        QCOMPARE(calendarOf(sites.mid(3)).lastComplete, QDate(2026, 3, 30));
    }
};

QTEST_GUILESS_MAIN(TestSites)
#include "tst_sites.moc"
