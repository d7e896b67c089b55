#include "analytics/LogParser.h"

#include <QLocale>
#include <QRegularExpression>
#include <QTest>

using vesk::analytics::parseCombined;

namespace {

const QByteArray kTime = "10/Oct/2000:13:55:36 -0700";
const QByteArray kRequest = "GET / HTTP/1.1";

QByteArray line(const QByteArray &time, const QByteArray &request, const QByteArray &rest = "200 5")
{
    return "192.0.2.7 - - [" + time + "] \"" + request + "\" " + rest;
}

void row(const char *name, const QByteArray &text, const char *expected)
{
    QTest::newRow(name) << text << expected;
}

} // namespace

class TestLogParser : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qputenv("TZ", "XXX+05:45"); } // the local zone must not matter
    void init() { QTest::failOnWarning(QRegularExpression(".*")); }

    void wholeLine()
    {
        const auto entry = parseCombined("192.0.2.7 ident frank [10/Oct/2000:13:55:36 -0700] \"POST /a%20b?c=d HTTP/1.0\" 404 "
                                         "2326 \"http://www.example.com/start.html\" \"Mozilla/4.08 [en] (Win98; I)\" 1234");
        QVERIFY(entry);
        QCOMPARE(entry->ip, "192.0.2.7");
        QCOMPARE(entry->at, QDateTime(QDate(2000, 10, 10), QTime(20, 55, 36), Qt::UTC));
        QCOMPARE(entry->method + ' ' + entry->target, QByteArray("POST /a%20b?c=d"));
        QCOMPARE(entry->status, 404);
        QCOMPARE(entry->bytes, 2326);
        QCOMPARE(entry->referrer, QByteArray("http://www.example.com/start.html"));
        QCOMPARE(entry->userAgent, QByteArray("Mozilla/4.08 [en] (Win98; I)"));
        QCOMPARE(entry->responseUs, 1234);
    }

    void address_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("expected");
        row("host name", "host.example.org - - ", "host.example.org");
        row("dash", "- - - ", "-");
        row("spaces around", "  192.0.2.7   -  -   ", "192.0.2.7");
        row("tab is content", "a\tb - - ", "a\tb");
        row("Latin-1", "h\xf4te - - ", "h\u00f4te");
    }

    void address()
    {
        QFETCH(QByteArray, text);
        const QByteArray good = line(kTime, kRequest);
        const auto entry = parseCombined(text + good.sliced(good.indexOf('[')));
        QVERIFY(entry);
        QTEST(entry->ip, "expected");
    }

    void time_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("expected");
        row("positive offset", "01/Jan/2001:03:55:36 +0530", "2000-12-31T22:25:36Z");
        row("only a minus is negative", "10/Oct/2000:13:55:36 ~0700", "2000-10-10T06:55:36Z");
        row("16 hours west", "10/Oct/2000:13:55:36 -1600", "2000-10-11T05:55:36Z");
        row("16 hours east", "10/Oct/2000:13:55:36 +1600", "2000-10-09T21:55:36Z");
        row("last second of a leap day", "29/Feb/2000:23:59:59 +0000", "2000-02-29T23:59:59Z");
        row("hour 24 is midnight", "10/Oct/2000:24:10:10 +0000", "2000-10-10T00:00:00Z");
        row("leap second is midnight", "10/Oct/2000:23:59:60 +0000", "2000-10-10T00:00:00Z");
        row("midnight in the zone", "10/Oct/2000:13:60:00 -0700", "2000-10-10T07:00:00Z");
        row("hour that is no number is 0", "10/Oct/2000:xx:55:36 +0000", "2000-10-10T00:55:36Z");
        row("any separators", "10-Oct-2000T13.55.36Z+0000", "2000-10-10T13:55:36Z");
        row("text after the offset", "10/Oct/2000:13:55:36 -070059 x", "2000-10-10T20:55:36Z");
        row("start of year 1", "01/Jan/0001:01:00:00 +0100", "0001-01-01T00:00:00Z");
        row("end of year 9999", "31/Dec/9999:22:59:59 -0100", "9999-12-31T23:59:59Z");
        for (QDate day(2023, 1, 5); day.year() == 2023; day = day.addMonths(1)) {
            const QByteArray name = QLocale::c().toString(day, u"dd/MMM/yyyy").toLatin1();
            row(name, name + ":00:00:00 +0000", day.toString(u"yyyy-MM-ddT00:00:00Z").toLatin1());
        }
    }

    void time()
    {
        QFETCH(QByteArray, text);
        const auto entry = parseCombined(line(text, kRequest));
        QVERIFY(entry);
        QTEST(entry->at.toString(Qt::ISODate), "expected");
    }

    void request_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("expected");
        row("no protocol", "GET /a", "GET|/a");
        row("more words", "GET /a b c", "GET|/a");
        row("dash", "-", "-|");
        row("empty", "", "|");
        row("two spaces before the target", "GET  /a HTTP/1.1", "GET|");
        row("space first", " /a HTTP/1.1", "|/a");
        row("escaped quote", "GET /a\\\"b HTTP/1.1", "GET|/a\"b");
    }

    void request()
    {
        QFETCH(QByteArray, text);
        const auto entry = parseCombined(line(kTime, text));
        QVERIFY(entry);
        QTEST(QString::fromLatin1(entry->method + '|' + entry->target), "expected");
    }

    /// With ' for the double quote; size, referrer, user agent and duration are expected.
    void fields_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("expected");
        row("status alone", "200", "0|||-1");
        row("common format with duration", "200 5 77", "5|||77");
        row("dashes", "200 - '-' '-' -", "0|||-1");
        row("dash within a text", "200 5 '--' '-u'", "5|--|-u|-1");
        row("repeated spaces", "  200   5   'r'   'u'   9  ", "5|r|u|9");
        row("numbers over 32 bits", "200 5000000000 6000000000", "5000000000|||6000000000");
        row("numbers over 64 bits", "200 9223372036854775808 9223372036854775808", "0|||0");
        row("size that is no number", "200 5k 'r' 'u'", "0|r|u|-1");
        row("last number counts", "200 5 'r' 'u' 11 host 22", "5|r|u|22");
        row("host name after the number", "200 5 'r' 'u' 11 host", "5|r|u|-1");
        row("letter in the number", "200 5 'r' 'u' 12a4", "5|r|u|-1");
        row("minus sign", "200 5 'r' 'u' -5", "5|r|u|-1");
        row("plus sign", "200 5 'r' 'u' +5", "5|r|u|-1");
        row("carriage return is content", "200 5 'r' 'u' 11\r", "5|r|u|-1");
        row("tab separates nothing", "200 5 'r'\t'u' 11", "5|r||11");
        row("escaped quote", "200 5 'r' 'u \\'v\\' w' 9", "5|r|u \"v\" w|9");
        row("escaped backslash", "200 5 'r\\\\' 'u' 9", "5|r\\|u|9");
        row("other escapes", "200 5 'r' '\\x41\\t'", "5|r|x41t|-1");
        row("unterminated referrer", "200 5 'r 11", "5|||-1");
        row("unterminated agent", "200 5 'r' 'u 11", "5|r||-1");
        row("backslash at the end", "200 5 'r' 'u\\", "5|r||-1");
        row("unquoted referrer", "200 5 - 'u' 11", "5|||11");
    }

    void fields()
    {
        QFETCH(QByteArray, text);
        const auto entry = parseCombined(line(kTime, kRequest, text.replace('\'', '"')));
        QVERIFY(entry);
        QCOMPARE(entry->status, 200);
        const QList<QByteArray> values { QByteArray::number(entry->bytes), entry->referrer, entry->userAgent,
            QByteArray::number(entry->responseUs) };
        QTEST(QString::fromLatin1(values.join('|')), "expected");
    }

    void rejects_data()
    {
        QTest::addColumn<QByteArray>("text");
        const auto bad = [](const char *name, const QByteArray &text) { QTest::newRow(name) << text; };
        const QByteArray good = line(kTime, kRequest);
        const qsizetype time = good.indexOf('[');
        const qsizetype request = good.indexOf('"');
        bad("empty", "");
        bad("no time", good.first(time) + good.sliced(request));
        bad("field missing before the time", good.sliced(good.indexOf('-')));
        bad("space in the user name", good.first(time) + "b " + good.sliced(time));
        bad("tab before the time", good.first(time) + '\t' + good.sliced(time));
        bad("no closing bracket", QByteArray(good).replace(']', ' '));
        bad("nothing after the time", good.first(request));
        bad("request without quotes", QByteArray(good).replace('"', ' '));
        bad("unterminated request", good.chopped(7));
        bad("offset cut short", line(kTime.chopped(1), kRequest));
        for (const char *text : { "10/oct/2000:13:55:36 -0700", "31/Feb/2000:13:55:36 -0700", "00/Oct/2000:13:55:36 -0700",
                 "10/Oct/2000:13:55:36 +1601", "10/Oct/2000:13:55:36 -1601", "01/Jan/0001:00:59:59 +0100", "31/Dec/9999:23:00:00 -0100" })
            bad(text, line(text, kRequest));
        for (const char *status : { "", "- 5", "2O0 5", "4294967496 5" })
            bad(qPrintable(QStringLiteral("status ") + QLatin1String(status)), line(kTime, kRequest, status));
    }

    void rejects()
    {
        QFETCH(QByteArray, text);
        QVERIFY(!parseCombined(text));
    }
};

QTEST_GUILESS_MAIN(TestLogParser)
#include "tst_logparser.moc"
