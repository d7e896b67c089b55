#include "common/Db.h"
#include "common/StatementStream.h"
#include "support/Table.h"
#include "support/TestDatabase.h"

#include <QFile>

using vesk::db::StatementStream;
using vesk::db::Values;

namespace {

const QByteArray kInsert = "INSERT INTO t VALUES (?)";

Values number(int value)
{
    Values values;
    values.addInt4(value);
    return values;
}

} // namespace

class TestStatementStream : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        execute(
            "DEALLOCATE ALL; DROP TABLE IF EXISTS t; CREATE TABLE t (i int PRIMARY KEY, a text)");
    }

    void valuesArriveAsTheyAre()
    {
        execute("CREATE TABLE v (a bool, b int2, c int4, d int8, e real, f timestamptz, g bytea, h "
                "text, i inet, j text, k char(2))");
        Values values;
        values.addBool(true);
        values.addInt2(-2);
        values.addInt4(-70000);
        values.addInt8(-5000000000);
        values.addFloat4(12.5F);
        values.addTimestamp(-1500);
        values.addBytes(QByteArrayView("\0\xff'", 3));
        values.addText(QString::fromUtf8("a\0ü'\\😀", 10));
        values.addText(u"2001:DB8::1");
        values.addText(QString()); // a null string is a text too
        values.addNull();
        StatementStream stream;
        stream.send("INSERT INTO v VALUES (?, ?, ?, ?, ?, ?, ?, ?, CAST(? AS inet), ?, ?)", values);
        QCOMPARE(stream.finish(), std::vector<bool> { true });
        QCOMPARE(rows("SELECT a, b, c, d, e, f::text, encode(g, 'hex'), h, i, j, k FROM v"),
            QStringList("true|-2|-70000|-5000000000|12.5|1969-12-31 "
                        "23:59:58.5+00|00ff27|a\uFFFDü'\\😀|2001:db8::1||-"));
    }

    void eachStatementStandsAlone()
    {
        StatementStream stream;
        for (const int i : { 1, 2, 1, 3 })
            stream.send(kInsert, number(i));
        stream.send("INSERT INTO t VALUES (NULL, 'secret')", {});
        ignoreWarning("^sql: .*duplicate key");
        ignoreWarning("^sql: .*null value in column [^\n]*$");
        QCOMPARE(stream.finish(), (std::vector<bool> { true, true, false, true, false }));
        QVERIFY(stream.failed());
        QCOMPARE(rows("SELECT i FROM t ORDER BY i").join(u','), "1,2,3");
        QCOMPARE(stream.finish(), std::vector<bool> {});
    }

    void aLostTransactionIsReportedAsAsked()
    {
        for (const auto reports : { StatementStream::ReportEach, StatementStream::ReportFirst }) {
            execute("BEGIN");
            StatementStream stream(reports);
            for (const int i : { 1, 1, 2, 3 })
                stream.send(kInsert, number(i));
            ignoreWarning("^sql: .*duplicate key");
            ignoreWarning(
                "^sql: .*transaction is aborted", reports == StatementStream::ReportEach ? 2 : 0);
            QCOMPARE(stream.finish(), (std::vector<bool> { true, false, false, false }));
            execute("ROLLBACK");
        }
    }

    void preparesAnew()
    {
        execute("ALTER TABLE t RENAME TO u");
        StatementStream stream;
        ignoreWarning("^sql: .*\"t\" does not exist");
        stream.send(kInsert, number(1));
        QCOMPARE(stream.finish(), std::vector<bool> { false });
        execute("ALTER TABLE u RENAME TO t");
        for (const int i : { 1, 2 }) { // the second time on another connection
            stream.send(kInsert, number(i));
            QCOMPARE(stream.finish(), std::vector<bool> { true });
            QTest::ignoreMessage(QtInfoMsg, "database: reconnected");
            QVERIFY(vesk::db::ensure(true));
        }
    }

    /// As behind a pooler that gave the connection to another client before.
    void aStatementPreparedByAnotherIsExplainedOnce()
    {
        for (int i = 1; i <= 200; ++i)
            execute(QStringLiteral("PREPARE vesk_%1 AS SELECT 1").arg(i));
        StatementStream stream;
        ignoreWarning("^sql: .*already exists.*pooler must be in session mode");
        for (int i = 0; i < 2; ++i) {
            stream.send(kInsert, number(1));
            QCOMPARE(stream.finish(), std::vector<bool> { false });
        }
    }

    void takesMoreThanFitsAnyBuffer()
    {
        StatementStream stream;
        for (int i = 0; i < 100; ++i) { // of twenty texts, more than are kept prepared
            Values values = number(i);
            values.addText(QString(100000, u'x'));
            stream.send("INSERT INTO t VALUES (?, ?) -- " + QByteArray::number(i % 20), values);
            if (i % 7 == 0)
                stream.poll();
        }
        QCOMPARE(stream.finish(), std::vector<bool>(100, true));
        QCOMPARE(rows("SELECT count(i), sum(length(a)), (SELECT count(*) <= 10 FROM "
                      "pg_prepared_statements) FROM t"),
            QStringList("100|10000000|true"));
    }

    /// The loss shows when sending or when receiving, as it happens; when sending once the server's
    /// process is gone.
    void survivesTheLossOfTheConnection()
    {
        for (const bool gone : { false, true }) {
            const QString server = "/proc/" + value("SELECT pg_backend_pid()");
            StatementStream stream(StatementStream::ReportFirst);
            ignoreWarning("^sql: (FATAL:  terminating connection|server closed the connection)");
            stream.send("SELECT pg_terminate_backend(pg_backend_pid())", {});
            while (gone && QFile::exists(server))
                QTest::qSleep(1);
            for (int i = 0; i < 100; ++i)
                stream.send(kInsert, number(1));
            QCOMPARE(stream.finish(), std::vector<bool>(101, false));
            QVERIFY(stream.failed());
            QTest::ignoreMessage(QtInfoMsg, "database: reconnected");
            QVERIFY(vesk::db::ensure(true));
            stream.send(kInsert, number(gone));
            QCOMPARE(stream.finish(), std::vector<bool> { true });
        }
        QCOMPARE(rows("SELECT i FROM t ORDER BY i").join(u','), "0,1");
    }

private:
    const TestDatabase m_database { TestDatabase::Empty };
};

QTEST_GUILESS_MAIN(TestStatementStream)
#include "tst_statementstream.moc"
