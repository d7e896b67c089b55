// Logs in all formats: the same requests give the same rows as in the combined format.

#include "analytics/RowBuilder.h"
#include "common/LineLimit.h"
#include "translate/MergedLines.h"
#include "translate/TimeSpan.h"
#include "translate/TranslatedLog.h"

#include <QDebug>
#include <QHash>
#include <QTest>

#include <algorithm>
#include <array>
#include <iterator>

using namespace vesk::translate;
using vesk::analytics::Row;
using vesk::analytics::RowBuilder;

namespace {

/// The line of each server for a request that took 37 milliseconds.
constexpr struct
{
    Format format;
    const char *line;
} kServers[] = {
    { Format::Combined, "$combined 37000" },
    { Format::VhostCombined, "example.org:443 $combined 37000" },
    { Format::TraefikCommon, R"($combined 9 "web@docker" "http://10.0.0.5:80" 37ms)" },
    { Format::TraefikJson,
        R"({"ClientHost":"192.0.2.7","RequestHost":"example.org","RequestMethod":"GET",)"
        R"("RequestPath":"$target","DownstreamStatus":404,"DownstreamContentSize":5,)"
        R"("StartUTC":"2026-03-03T10:20:30.987654321Z","Duration":37000999,)"
        R"("request_User-Agent":"$agent","request_Referer":"$referrer"})" },
    { Format::CaddyJson,
        R"({"ts":1772533230.987,"logger":"http.log.access.log0","request":{"method":"GET",)"
        R"("client_ip":"192.0.2.7","host":"example.org","uri":"$target","headers":{)"
        R"("Referer":["$referrer"],"User-Agent":["$agent"]}},"duration":0.037,"size":5,)"
        R"("status":404})" },
    { Format::NginxJson,
        R"({"time":"2026-03-03T12:20:30+02:00","remote_addr":"192.0.2.7","host":"example.org",)"
        R"("request":"GET $target HTTP/2.0","status":"404","body_bytes_sent":"5",)"
        R"("request_time":"0.037","http_referrer":"$referrer","http_user_agent":"$agent"})" },
};

bool isJson(Format format)
{
    return namesHosts(format) && format != Format::VhostCombined;
}

struct Sent
{
    QByteArray target = "/a", referrer = "http://a.example/x", agent = "UA";
};

/// With the escapes of JSON, as nginx writes them, or with those of the combined format.
QByteArray escaped(const QByteArray &text, bool json)
{
    QByteArray result;
    for (const char c : text) {
        if (json && c >= 0 && c < ' ')
            result += "\\u00" + QByteArray(1, c).toHex();
        else
            result += c == '"' || c == '\\' ? QByteArray("\\") + c : QByteArray(1, c);
    }
    return result.isEmpty() && !json ? "-" : result;
}

QByteArray written(Format format, const Sent &sent)
{
    const auto is = [format](const auto &server) { return server.format == format; };
    return QByteArray(std::find_if(std::begin(kServers), std::end(kServers), is)->line)
        .replace("$combined",
            R"(192.0.2.7 - - [03/Mar/2026:12:20:30 +0200] "GET $target HTTP/2.0")"
            R"( 404 5 "$referrer" "$agent")")
        .replace("$target", escaped(sent.target, isJson(format)))
        .replace("$referrer", escaped(sent.referrer, isJson(format)))
        .replace("$agent", escaped(sent.agent, isJson(format)));
}

QString described(const QByteArray &line)
{
    RowBuilder builder("secret", 1, "example.org");
    Row row;
    if (builder.build(line, row) != RowBuilder::Outcome::Row)
        return "no row";
    QString text;
    QDebug(&text) << row.ip << row.log.at << row.log.method << row.path << row.page
                  << row.log.status << row.log.bytes << row.log.referrer << row.log.userAgent
                  << row.log.responseUs << row.source.kind << row.source.name
                  << row.source.searchTerms << row.visitor;
    return text;
}

LineSource linesOf(const QByteArray &text)
{
    return [lines = text.split('\n'), i = 0]() mutable -> std::optional<QByteArrayView> {
        return i < lines.size() ? std::optional<QByteArrayView>(lines[i++]) : std::nullopt;
    };
}

template <typename Lines> QByteArrayList all(Lines &&lines)
{
    QByteArrayList taken;
    while (const auto line = lines.next())
        taken += line->toByteArray();
    return taken;
}

/// Each in the target, in the referrer and as the user agent.
const QByteArrayList kTexts { "", "plain", "-", " ", "a b", "  ", "\"", "\\", "\\\"", "\"\\",
    "\" 200 1 \"evil", "bad \" 500 9 \"x\\\" agent", "\\\" 200 1 \\\"", "\\n", "\\x22", "\\u0022",
    "x\" 1 \"web@docker\" \"http://a\" 5ms", "\" 7", "5ms", "'", "[", "]", "{", "\"}", "#", "+",
    "%", "%%", "%2", "%22", "%00", "%0A", "\t", "\x1b[7m", "\x7f", "\r", QByteArray(1, '\0'), "\n",
    "\r\n", "%\n", "%2\n2", "\x01%41\x02", "\n::1 - - [03/Mar/2026:12:20:30 +0200] \"GET /\" 200",
    "\u65e5\u672c", "\U0001f600", "\u0085", "\u2028", "\ufffd", "\xff", "\xc3", "\xe2\x82",
    "\xed\xa0\x80", "\xff\"\xe9\\", "\\\xff", "?utm_source=a%20b&utm_campaign=\"c",
    "?utm_source=\n&x", "\ufeffx", QByteArray(3000, '"') };

/// A format, a part of a line, by what it is replaced, each alone, and what that changes in the
/// translation. Without a change there is no translation.
constexpr auto kMembers = R"(
C|1772533230.987|"2026-03-03T10:20:30Z";"2026-03-03T12:20:30.999999+02:00";1772533230.9999|x|x
C|1772533230.987|"2026-03-03T04:50:30,9-0530";"1772533230"|x|x
C|1772533230.987|-0.5|03/Mar/2026:10:20:30|31/Dec/1969:23:59:59
C|1772533230.987|253402300799|03/Mar/2026:10:20:30|31/Dec/9999:23:59:59
C|1772533230.987|-62135596800|03/Mar/2026:10:20:30|01/Jan/0001:00:00:00
C|1772533230.987|253402300800;-62135596801;1e300;null;[];"";"nan";"2026-03-03";"2026-03-03T10:20:30"
C|1772533230.987|"2026-02-30T10:20:30Z";"2026-03-03T10:20:61Z";"2026-03-03T10:20:30."
C|404|"404";404.0;4.04e2;200,"status":404|x|x
C|404|0|404 5|0 5
C|404|1000;-1;404.5;"";"4o4";null;true;[404];404};404,,
C|"GET"|"";"GE T";"GET /x";"G\n";null;7
C|"uri":"/a"|"url":"/a"
C|access.log0|errors
C|"logger"|"lager"|x|x
C|0.037|"37ms";-1;null| 37000|
C|0.037|0.0000014| 37000| 1
C|"size":5|"size":-5;"size":null|404 5|404 -
C|["UA"]|["UA","B"];"UA"|x|x
C|["UA"]|[];null;[null];{}|"UA"|"-"
C|client_ip|remote_ip;client_ip":"","remote_addr|x|x
T|ClientHost|ClientAddr|x|x
T|"ClientHost":"192.0.2.7"|"ClientAddr":"[::7]:1";"ClientHost":"::7"|192.0.2.7|::7
T|192.0.2.7|192.0.2.7:4711|x|x
T|192.0.2.7|; ;a b;\n|192.0.2.7|-
T|StartUTC|time|x|x
T|37000999|"1999"| 37000| 1
T|DownstreamStatus|OriginStatus
N|"404"|"009"|404 5|9 5
N|GET /a HTTP/2.0||GET /a HTTP/2.0|-
N|GET /a HTTP|\u0016\u0003 HTTP|GET /a|%16%03
N|http_referrer|http_referer|x|x
N|"0.037"|"0.100, 0.200"| 37000|)";

} // namespace

class TestTranslate : public QObject
{
    Q_OBJECT

private slots:
    void requests()
    {
        for (qsizetype i = 0; i < 18 * kTexts.size(); ++i) {
            const Format format = kServers[i % 6].format;
            QByteArray text = kTexts[i / 18];
            if (text.contains('\n') && !isJson(format))
                continue;
            if (format == Format::TraefikJson || format == Format::CaddyJson)
                text = QString::fromUtf8(text).toUtf8(); // they are written in Go, which does that
            Sent sent { "/caf\u00e9", "https://www.google.com/?q=\u65e5", "" };
            std::array fields { &sent.target, &sent.referrer, &sent.agent };
            fields[size_t(i) / 6 % 3]->append(text);
            const QByteArray line = written(format, sent);
            const auto entry = translate(format, line);
            QVERIFY2(entry && !entry->line.contains('\n'), line.constData());
            QCOMPARE(formatOf(line), format);
            QCOMPARE(entry->host.has_value(), namesHosts(format));
            sent.referrer.replace('\n', ' ');
            sent.agent.replace('\n', ' ');
            QCOMPARE(described(entry->line), described(written(Format::Combined, sent)));
            QVERIFY2(described(entry->line) != "no row", line.constData());
        }
    }

    void members()
    {
        const QHash<char, Format> formats { { 'C', Format::CaddyJson },
            { 'T', Format::TraefikJson }, { 'N', Format::NginxJson } };
        for (const QByteArray &row : QByteArray(kMembers).sliced(1).split('\n')) {
            const QByteArrayList parts = row.split('|');
            const Format format = formats[row[0]];
            const QByteArray line = written(format, {});
            const auto before = translate(format, line);
            QVERIFY2(before && line.contains(parts[1]), row.constData());
            QVERIFY2(before->line.contains(parts.value(3)), row.constData());
            QByteArray expected;
            if (parts.size() == 5)
                expected = QByteArray(before->line).replace(parts[3], parts[4]);
            for (const QByteArray &to : parts[2].split(';')) {
                const auto after = translate(format, QByteArray(line).replace(parts[1], to));
                QVERIFY2((after ? after->line : "") == expected, (row + "\n" + to).constData());
            }
        }
    }

    void hosts()
    {
        const SiteHosts hosts("Example.org", " more.example  b\u00fc.example [2001:db8::7] ");
        const QByteArray own = "example.org EXAMPLE.org:443 www.example.org. [2001:DB8::7]:443"
                               " WWW.Example.Org.:8080 more.example [2001:db8::7]"
                               " xn--b-eha.example b\u00fc.example B\u00dc.example:1";
        for (const QByteArray &host : own.split(' '))
            QVERIFY2(hosts.contains(host), host.constData());
        const QByteArray others = " . :443 shop.example.org www.more.example example.org.."
                                  " example.org:x notexample.org example.org.evil [2001:db8::7"
                                  " a\xff.example";
        for (const QByteArray &host : others.split(' '))
            QVERIFY2(!hosts.contains(host), host.constData());
        QVERIFY(!hosts.contains("example.org" + QByteArray(2000, '\xc3')));
        QVERIFY(!SiteHosts("").contains(""));
    }

    /// Several formats in one log, others' lines, and what is no entry.
    void logs()
    {
        const QByteArray plain = written(Format::Combined, {});
        const QByteArray own = written(Format::CaddyJson, {});
        const QByteArray others = QByteArray(own).replace("example.org", "b.example");
        const QByteArrayList raw { "", "noise", "host - John Doe " + plain.sliced(14), plain, " ",
            "{}", own, others, plain, written(Format::VhostCombined, {}), others,
            "b.example " + plain, "example.org:80 x",
            "example.org " + plain + QByteArray(vesk::kMaxLineBytes, ' ') };
        TranslatedLog log(linesOf(raw.join('\n')), SiteHosts("example.org"));
        const QByteArrayList expected { raw[0], raw[1], raw[2], plain, raw[4], raw[5],
            translate(Format::CaddyJson, own)->line,
            QByteArray(plain).replace('[', '(').replace(']', ')'), plain, raw[12], raw[13] };
        QCOMPARE(all(log), expected);
        const QList formats { Format::Combined, Format::CaddyJson, Format::VhostCombined };
        QCOMPARE(log.formats(), formats);
        QCOMPARE(QList({ log.lines(), log.othersLines(), log.strangeLines() }),
            QList<qint64>({ raw.size(), 3, 6 }));
        QCOMPARE(all(TranslatedLog(linesOf(raw.join('\n')))).size(), raw.size());
    }

    void merge()
    {
        const auto log = [](const QByteArray &text) { // "NAME@TIME" is a line with a time
            return QByteArray(text)
                .replace(' ', '\n')
                .replace('@', " - - [03/Mar/2026:")
                .replace("00;", "00] \"GET /\" 200 5")
                .replace('~', ' ');
        };
        const QByteArray a = log("a1@10:00:00~+0000; after-a1 a2@10:05:00~+0000;"
                                 " a3@10:01:00~+0000; a4@10:09:00~+0000;");
        const QByteArray b = log("before-b1 b1@12:00:00~+0200; b2@09:06:00~-0100;");
        const auto names = [](const std::vector<LineSource> &logs) {
            QByteArray found;
            for (const QByteArray &text : all(MergedLines(logs)))
                found += text.split(' ')[0] + ' ';
            return found;
        };
        QCOMPARE(
            names({ linesOf(a), linesOf(b) }), QByteArray("before-b1 a1 after-a1 b1 a2 a3 b2 a4 "));
        QCOMPARE(names({ linesOf(b), linesOf("x"), linesOf(a) }),
            QByteArray("before-b1 x b1 a1 after-a1 a2 a3 b2 a4 "));
        QCOMPARE(names({ linesOf(a) }), QByteArray("a1 after-a1 a2 a3 a4 "));
        QCOMPARE(names({}), QByteArray());

        constexpr qint64 kTen = 1772532000; // 10:00
        const auto span = timeSpan(linesOf("noise\n" + a + QByteArray("\n\nnoise").repeated(9)));
        const auto other = timeSpan(linesOf(log("b2@09:06:00~-0100; b1@12:00:00~+0200;")));
        QVERIFY(span && other);
        QCOMPARE(QList({ span->first, span->last, other->first, other->last }),
            QList<qint64>({ kTen, kTen + 540, kTen, kTen + 360 }));
        QVERIFY(!timeSpan(linesOf("\nnoise\n")));
    }
};

QTEST_GUILESS_MAIN(TestTranslate)
#include "tst_translate.moc"
