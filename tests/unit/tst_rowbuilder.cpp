#include "analytics/Memo.h"
#include "analytics/RowBuilder.h"
#include "common/LineLimit.h"
#include "support/Table.h"

using namespace vesk::analytics;
using Outcome = RowBuilder::Outcome;

namespace {

const QByteArray kSecret = "secret";
constexpr int kSite = 17;
const QString kHost = "example.org";

/// A line of which the UTC day is the one after \a day.
QByteArray line(const QByteArray &target, const QByteArray &rest = "200 5",
    const QByteArray &ip = "192.0.2.7", const QByteArray &day = "07/Mar/2024")
{
    return ip + " - - [" + day + ":23:30:00 -0100] \"GET " + target + " HTTP/1.1\" " + rest;
}

Outcome build(const QByteArray &text, Row &row)
{
    return RowBuilder(kSecret, kSite, kHost).build(text, row);
}

} // namespace

class TestRowBuilder : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qputenv("TZ", "XXX+05:45"); } // the local zone must not matter
    void init() { QTest::failOnWarning(QRegularExpression(".*")); }

    void outcome_data()
    {
        const Table row;
        constexpr qsizetype kMax = vesk::kMaxLineBytes;
        const QByteArray longest = line(QByteArray(kMax - line("").size(), 'a'));
        row("white space", " \t\r\v\f", "blank");
        row("", "blank");
        row("words", "no entry");
        row("longest", longest, "row");
        row("line too long", longest + '5', "no entry");
        row("white space too long", QByteArray(kMax + 1, ' '), "no entry");
        for (const char *status : { "32767", "-32768" })
            row(status, line("/", status), "row");
        for (const char *status : { "32768", "-32769" })
            row(status, line("/", status), "no entry");
        row("any status of a beacon", line("/vesk-b?p=/a&t=1", "32768"), "row");
        for (const char *query : { "", "?", "?t=5", "?p=&t=5", "?p=/a", "?p=/a&t=", "?p=/a&t=x",
                 "?p=/a&t=1,5", "?p=/a&t=0", "?p=/a&t=-3", "?p=/a&t=21600.5", "?p=/a&t=nan",
                 "?p=/a&t=inf", "?p=/a&t=1e-60", "?p=/a&t=0&t=5", "?P=/a&T=5" })
            row(query, line(QByteArray("/vesk-b") + query), "dropped");
    }

    void outcome()
    {
        QFETCH(QByteArray, text);
        Row row;
        const Outcome outcome = build(text, row);
        QTEST(QStringList({ "blank", "no entry", "dropped", "row" }).at(int(outcome)), "expected");
    }

    void target_data()
    {
        const Table row;
        row("/a%20b+c?x=1", "GET|404|page|/a b+c");
        row("?x=1", "GET|404|page|");
        row("/A/../b//c+d", "GET|404|page|/A/../b//c+d");
        row("/\u00e9%C3%A9%c3%a9%FF", "GET|404|page|/\u00e9\u00e9\u00e9\ufffd");
        row("/a%3Fb%2523100%?c", "GET|404|page|/a?b%23100%");
        row("/a?b=c.css", "GET|404|page|/a");
        row("/100%free%zz%u0041%2", "GET|404|page|/100%free%zz%u0041%2");
        row("/a%20%zz", "GET|404|page|/a %zz");
        row("/a%2Ecss", "GET|404|other|/a.css");
        row("/VESK-B?p=/x&t=5", "GET|404|page|/VESK-B");
        row("/vesk-b/?p=/x&t=5", "GET|404|page|/vesk-b/");
        row("/vesk%2Db?p=/x&t=5", "GET|404|page|/vesk-b");

        row("/vesk-b?p=%2Fa&t=12.5", "BEACON|204|other|/a|12.5");
        row("/vesk-b?t=21600&p=/a", "BEACON|204|other|/a|21600");
        row("/vesk-b?p=/a&t=1e-3&p=/b&t=2", "BEACON|204|other|/a|0.001");
        row("/vesk-b?p=/a%20%zz%2&t=1", "BEACON|204|other|/a %zz%2|1");
        row("/vesk-b?p=/+%25%C3%A9?b%3Fc&t=1", "BEACON|204|other|/+%\u00e9?b?c|1");
        row("Latin-1", "/vesk-b?p=/\xe9&t=1", "BEACON|204|other|/\u00e9|1");
        const QByteArray longest(2000, 'a');
        const QByteArray wide = QByteArray("\U0001f600").repeated(1000); // 2000 UTF-16 code units
        row("/vesk-b?t=2001&p=" + longest + 'b', "BEACON|204|other|" + longest + "|2001");
        row("/vesk-b?t=7&p=" + wide.toPercentEncoding() + 'b', "BEACON|204|other|" + wide + "|7");
    }

    void target()
    {
        QFETCH(QByteArray, text);
        Row row;
        QCOMPARE(build(line("/vesk-b?p=/old&t=9"), row), Outcome::Row); // of which nothing stays
        QCOMPARE(build(line(text, "404"), row), Outcome::Row);
        QStringList fields { row.log.method, QString::number(row.log.status),
            row.page ? "page" : "other", row.path };
        if (row.engagedSecs)
            fields += QString::number(*row.engagedSecs);
        QTEST(joined(fields), "expected");
    }

    /// The hashes come from Python, the first one for instance from
    /// hashlib.sha256(b'secret' + b'2024-03-08' + b'17' + b'host' + b'Agent').hexdigest()[:16]
    void hash()
    {
        Row row;
        QCOMPARE(build(line("/", "200 5 \"-\" \"Agent\"", "host"), row), Outcome::Row);
        QCOMPARE(row.visitor.toHex(), QByteArray("0e6ccf41c39a0abb"));
        const QDate early(999, 2, 3);
        QCOMPARE(visitorHash("", -1, "h\u00f4te", "\xff\xc3\xa9", early).toHex(),
            QByteArray("c69d72aa64e2a2db"));
    }

    void source_data()
    {
        const Table row;
        row("/?utm_campaign=c", "search|Bing|x|curl");
        row("/?utm%5Fsource=n", "campaign|n||curl");
        row("/vesk-b?p=/&t=1", "search|Bing|x|curl");
        row("/vesk-b?p=/&t=1&utm_source=n&utm_campaign=c", "campaign|n|c|curl");
    }

    void source()
    {
        QFETCH(QByteArray, text);
        Row row;
        QCOMPARE(
            build(line(text, "200 5 \"https://bing.com/?q=x\" \"curl/8\""), row), Outcome::Row);
        QTEST(joined({ row.source.kind, row.source.name, row.source.searchTerms, row.client.bot }),
            "expected");
    }

    /// Visitors whose address and user agent, written together, read the same.
    void neighbours()
    {
        RowBuilder builder(kSecret, kSite, kHost);
        const QStringList texts { "1.2.3.4|5Firefox/1 curl/8", "1.2.3.45|Firefox/1 curl/8",
            "1.2.3.4|5.6.7.8", "1.2.3.45|.6.7.8", "2001:db8::1|0 iPhone", "2001:db8::10| iPhone" };
        for (int i = 0; i < 12; ++i) { // each remembered before it comes again
            const QString &expected = texts[i % 6];
            const QByteArray agent = expected.section('|', 1).toLatin1();
            const QByteArray ip = expected.section('|', 0, 0).toLatin1();
            Row row;
            QCOMPARE(
                builder.build(line("/", "200 5 \"-\" \"" + agent + '"', ip), row), Outcome::Row);
            QCOMPARE(row.ip + '|' + row.log.userAgent, expected);
            QCOMPARE(row.client.bot + row.client.browser + row.client.os,
                classifyClient(agent).bot + classifyClient(agent).browser
                    + classifyClient(agent).os);
        }
    }

    /// More of everything than is remembered, again and again, with days that change to and fro.
    void repeatedLines()
    {
        RowBuilder builder(kSecret, kSite, kHost);
        for (int i = 0; i < 45000; ++i) {
            const QByteArray n = QByteArray::number(i % 20000 / (i % 3 + 1));
            const QByteArray agent = QByteArray(i % 7 ? 1 : 600, 'x') + n.left(4)
                + (i % 2 ? " curl/8 iPhone" : " Firefox/1 Windows");
            const QByteArray referrer = (i % 5 ? "https://bing.com/?q=" : "https://h.example/") + n;
            const QByteArray target = i % 11 ? "/" : "/?utm_source=" + n;
            const QDate day(2024, 3, i > 40000 && i / 100 % 2 ? 8 : 7);
            const QByteArray text = line(target, "200 5 \"" + referrer + "\" \"" + agent + '"',
                "10.0." + n, day.toString(u"dd'/Mar/'yyyy").toLatin1());
            Row row;
            QCOMPARE(builder.build(text, row), Outcome::Row);
            const Client client = classifyClient(agent);
            const Source source = classifySource(referrer, target, kHost);
            QCOMPARE(row.client.bot + row.client.os, client.bot + client.os);
            QCOMPARE(row.source.name + row.source.searchTerms, source.name + source.searchTerms);
            QCOMPARE(row.visitor, visitorHash(kSecret, kSite, row.log.ip, agent, day.addDays(1)));
        }
    }

    /// How often a memory of two texts computes, when it is asked for texts of one letter in turn.
    void memo()
    {
        const auto count = [](const char *asked) {
            int computed = 0;
            Memo<char> memory(2);
            for (const char *c = asked; *c; ++c)
                memory.get(QByteArray(*c == 'L' ? 10000 : 1, *c), [&] { return ++computed, *c; });
            return computed;
        };
        QCOMPARE(count("ababba"), 2);
        QCOMPARE(count("abcab"), 5); // full, so everything is forgotten
        QCOMPARE(count("aLLaL"), 4); // the long text is not kept
    }
};

QTEST_GUILESS_MAIN(TestRowBuilder)
#include "tst_rowbuilder.moc"
