#include "common/HostName.h"
#include "common/Text.h"
#include "support/Table.h"

using namespace vesk;

class TestText : public QObject
{
    Q_OBJECT

private slots:
    void fitting_data()
    {
        const Table row; // into eight columns: the beginning, and the end
        row("/a", "/a|/a");
        row("12345678", "12345678|12345678");
        row("123456789", "1234567…|…3456789");
        row("日本語の", "日本語の|日本語の");
        row("日本語の本", "日本語…|…語の本");
        row("/\x1b[2J\xc2\x9b\t", "/�[2J��|/�[2J��");
        row("a\u202eb\u2066\u200b\ufeff", "a�b���|a�b���");
        row("a\u2028b\n\ue000", "a�b��|a�b��");
        const QString marks(100, QChar(0x301));
        row(("e" + marks).toUtf8(), "e" + marks.left(15) + "…|e" + marks);
        row(("1234567e" + marks + "9").toUtf8(), "1234567…|…34567e" + marks + "9");
    }
    void fitting()
    {
        QFETCH(QByteArray, text);
        const QString whole = QString::fromUtf8(text);
        QTEST(fit(whole, 8) + '|' + fitEnd(whole, 8), "expected");
        QVERIFY(columnsOf(fitEnd(whole, 8)) <= 8);
    }

    void cleaningOfManyLines()
    {
        QCOMPARE(clean(QStringLiteral("a\n\tb\r\x7f"), Lines::Many), QStringLiteral("a\n\tb��"));
    }

    void numbers()
    {
        QCOMPARE(grouped(1234567) + ' ' + grouped(-1234.56, 1), "1,234,567 -1,234.6");
        QCOMPARE(minutes(59.5) + ' ' + minutes(3725), "1:00 62:05");
    }

    void hosts_data()
    {
        const Table row; // the ASCII forms are RFC 3492's
        row("Example.ORG", "example.org");
        row("1.2", "1.2");
        row("a..b", "a..b");
        row("x y", "x y");
        row("B\u00dcCHER.de", "b\u00fccher.de");
        row("xn--bcher-kva.de", "b\u00fccher.de");
        row("b\u00fccher.eu", "xn--bcher-kva.eu");
        row("XN--BCHER-KVA.eu", "xn--bcher-kva.eu");
    }
    void hosts()
    {
        QFETCH(QByteArray, text);
        QTEST(comparableHost(QString::fromUtf8(text)), "expected");
    }
};

QTEST_GUILESS_MAIN(TestText)
#include "tst_text.moc"
