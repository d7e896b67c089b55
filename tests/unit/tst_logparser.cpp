#include "analytics/LogParser.h"
#include "support/Table.h"

#include <QLocale>

using vesk::analytics::parseCombined;

namespace {

const QByteArray kTime = "10/Oct/2000:13:55:36 -0700";

QByteArray line(const QByteArray &time, const QByteArray &request = "\"GET /\"",
    const QByteArray &rest = " 200 5", const QByteArray &client = "192.0.2.7 - - ")
{
    return client + '[' + time + "] " + request + rest;
}

} // namespace

class TestLogParser : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qputenv("TZ", "XXX+05:45"); } // the local zone must not matter
    void init() { QTest::failOnWarning(QRegularExpression(".*")); }

    void parses_data()
    {
        const Table row; // address, time, method and target are expected
        const auto client = [&row](const QByteArray &text, const QString &address) {
            row(line(kTime, "\"GET /\"", " 200 5", text), address + "|2000-10-10T20:55:36Z|GET|/");
        };
        client("host.example.org ident frank ", "host.example.org");
        client("- - - ", "-");
        client("  192.0.2.7   -  -   ", "192.0.2.7");
        client("a\tb - - ", "a\tb");
        client("h\xf4te - - ", "h\u00f4te");

        const auto time = [&row](const char *text, const QString &utc) {
            row(line(text), "192.0.2.7|" + utc + "|GET|/");
        };
        time("01/Jan/2001:03:55:36 +0530", "2000-12-31T22:25:36Z");
        time("10/Oct/2000:13:55:36 ~0700", "2000-10-10T06:55:36Z"); // only a minus is negative
        time("10/Oct/2000:13:55:36 -1600", "2000-10-11T05:55:36Z");
        time("10/Oct/2000:13:55:36 +1600", "2000-10-09T21:55:36Z");
        time("29/Feb/2000:23:59:59 +0000", "2000-02-29T23:59:59Z");
        time("10/Oct/2000:24:10:10 +0000", "2000-10-10T00:00:00Z"); // impossible, so midnight
        time("10/Oct/2000:23:60:10 +0000", "2000-10-10T00:00:00Z");
        time("10/Oct/2000:23:59:60 -0700", "2000-10-10T07:00:00Z");
        time("10/Oct/2000:xx:55:36 +0000", "2000-10-10T00:55:36Z");
        time("10-Oct-2000T13.55.36Z+0000", "2000-10-10T13:55:36Z"); // any separators
        time("10/Oct/2000:13:55:36 -070059 x", "2000-10-10T20:55:36Z");
        time("01/Jan/0001:01:00:00 +0100", "0001-01-01T00:00:00Z");
        time("31/Dec/9999:22:59:59 -0100", "9999-12-31T23:59:59Z");
        for (QDate day(2023, 1, 5); day.year() == 2023; day = day.addMonths(1))
            time(QLocale::c().toString(day, u"dd/MMM/yyyy:00:00:00 +0000").toLatin1(),
                day.toString(u"yyyy-MM-ddT00:00:00Z"));

        const auto request = [&row](const QByteArray &text, const QString &expected) {
            row(line(kTime, '"' + text + '"'), "192.0.2.7|2000-10-10T20:55:36Z|" + expected);
        };
        request("POST /a%20b?c=d HTTP/1.0", "POST|/a%20b?c=d");
        request("-", "-|");
        request("", "|");
        request("GET  /a HTTP/1.1", "GET|");
        request(" /a HTTP/1.1", "|/a");
        request("GET /a\\\"b HTTP/1.1", "GET|/a\"b");
    }

    void parses()
    {
        QFETCH(QByteArray, text);
        const auto entry = parseCombined(text);
        QVERIFY(entry);
        QTEST(joined({ entry->ip, entry->at.toString(Qt::ISODate), entry->method, entry->target }),
            "expected");
    }

    /// With ' for the double quote; status, size, referrer, user agent and duration are expected.
    void fields_data()
    {
        const Table row;
        row("404 2326 'http://a.example/' 'Mozilla/4.08 [en] (Win98; I)' 1234",
            "404|2326|http://a.example/|Mozilla/4.08 [en] (Win98; I)|1234");
        row("200", "200|0|||-1");
        row("200 5 77", "200|5|||77");
        row("200 - '-' '-' -", "200|0|||-1");
        row("200 5 '--' '-u'", "200|5|--|-u|-1");
        row("  200   5   'r'   'u'   9  ", "200|5|r|u|9");
        row("200 5000000000 6000000000", "200|5000000000|||6000000000");
        row("200 9223372036854775808 9223372036854775808", "200|0|||0");
        row("200 5k 'r' 'u' 11 host 22", "200|0|r|u|22");
        for (const char *last : { "11 host", "12a4", "-5", "+5", "11\r" })
            row("200 5 'r' 'u' " + QByteArray(last), "200|5|r|u|-1");
        row("tab separates nothing", "200 5 'r'\t'u' 11", "200|5|r||11");
        row("200 5 'r\\\\' 'u \\'v\\' w' 9", "200|5|r\\|u \"v\" w|9");
        row("200 5 'r' '\\x41\\t'", "200|5|r|x41t|-1");
        row("200 5 'r 11", "200|5|||-1");
        row("200 5 'r' 'u 11", "200|5|r||-1");
        row("200 5 'r' 'u\\", "200|5|r||-1");
        row("200 5 - 'u' 11", "200|5|||11");
    }

    void fields()
    {
        QFETCH(QByteArray, text);
        const auto entry = parseCombined(line(kTime, "\"GET /\"", ' ' + text.replace('\'', '"')));
        QVERIFY(entry);
        QTEST(joined({ QString::number(entry->status), QString::number(entry->bytes),
                  entry->referrer, entry->userAgent, QString::number(entry->responseUs) }),
            "expected");
    }

    void rejects_data()
    {
        const Table row;
        const auto bad = [&row](const QByteArray &text) { row(text, QString()); };
        bad("");
        bad("192.0.2.7 - - \"GET /\" 200 5");
        for (const char *client : { "192.0.2.7 - ", "192.0.2.7 - a b ", "192.0.2.7 - -\t" })
            bad(line(kTime, "\"GET /\"", " 200 5", client));
        bad(line(kTime).replace(']', ""));
        for (const char *request : { "", "GET /", "\"GET /" })
            bad(line(kTime, request));
        for (const char *time : { "10/Oct/2000:13:55:36 -070", "10/oct/2000:13:55:36 -0700",
                 "31/Feb/2000:13:55:36 -0700", "00/Oct/2000:13:55:36 -0700",
                 "10/Oct/2000:13:55:36 +1601", "10/Oct/2000:13:55:36 -1601",
                 "01/Jan/0001:00:59:59 +0100", "31/Dec/9999:23:00:00 -0100" })
            bad(line(time));
        for (const char *status : { "", " - 5", " 2O0 5", " 4294967496 5" })
            bad(line(kTime, "\"GET /\"", status));
    }

    void rejects()
    {
        QFETCH(QByteArray, text);
        QVERIFY(!parseCombined(text));
    }
};

QTEST_GUILESS_MAIN(TestLogParser)
#include "tst_logparser.moc"
