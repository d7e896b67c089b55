#include "admin/Progress.h"

#include <QTest>

class TestProgressLine : public QObject
{
    Q_OBJECT

private slots:
    void text_data()
    {
        QTest::addColumn<ProgressState>("state");
        QTest::addColumn<int>("columns");
        QTest::addColumn<QString>("expected");
        const auto row = [](const ProgressState &state, int columns, const char *expected) {
            QTest::newRow(expected) << state << columns << QString::fromUtf8(expected);
        };
        // 1,234,567 in 30 s are 41,152 each second; the 3/4 left take 90 s.
        const ProgressState half { "a.log", "lines", 1234567, 25, 100, 30000 };
        row({ "a.log", "lines", 7, 5, 0, 2000 }, 79, "a.log  7 lines  3 lines/s");
        row({ "a", "", 0, 1, 3, 4000 }, 79, "a  33 %  0:08 left");
        row({ "a", "lines", 0, 0, 100, 2000 }, 79, "a  0 %  0 lines  0 lines/s");
        row({ "a", "lines", 5, 1, 2, 0 }, 79, "a  50 %  5 lines  0:00 left");
        row({ "a", "", 0, 3, 2, 9000 }, 79, "a  100 %  0:00 left");
        // The time left, 16,666,666:40, does not fit.
        row({ "a", "bytes", 5000000000000, 1, 1000000000001, 1 }, 79,
            "a  0 %  5,000,000,000,000 bytes  5,000,000,000,000,000 bytes/s");
        row(half, 55, "a.log  25 %  1,234,567 lines  41,152 lines/s  1:30 left");
        row(half, 54, "a.log  25 %  1,234,567 lines  41,152 lines/s");
        row(half, 10, "a.log");
        row(half, 4, "…log");
        row(half, 1, "…");

        const auto named = [&row](const QString &name, int columns, const char *expected) {
            row({ name, "", 0, 1, 2, 1000 }, columns, expected); // 17 columns of fields
        };
        named("/var/log/nginx/example.org.log", 41, "…g/nginx/example.org.log  50 %  0:01 left");
        named("123456789012345678901234", 41, "123456789012345678901234  50 %  0:01 left");
        named("a\x1b[2J\r\n\x7f\u0085b", 79, "a�[2J����b  50 %  0:01 left");
        named(u"\u202ea\u2066\u2028b"_qs, 79, "�a��b  50 %  0:01 left");
        named("日本語日本語日本語日本語", 41, "日本語日本語日本語日本語  50 %  0:01 left");
        named("日本語日本語日本語日本語", 40, "…本語日本語日本語日本語  50 %  0:01 left");
        named("😀123456789012345678901234", 41, "…23456789012345678901234  50 %  0:01 left");
        named(u"日\u0301b123456789012345678901234"_qs, 43,
            "…b123456789012345678901234  50 %  0:01 left");
    }

    void text()
    {
        QFETCH(ProgressState, state);
        QFETCH(int, columns);
        QTEST(progressLine(state, columns), "expected");
    }
};

QTEST_GUILESS_MAIN(TestProgressLine)
#include "tst_progressline.moc"
