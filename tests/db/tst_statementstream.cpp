#include "common/StatementStream.h"
#include "support/TestDatabase.h"

#include <QRegularExpression>
#include <QTest>

using vesk::db::StatementStream;
using vesk::db::Values;

namespace {

void ignoreWarning(const char *pattern)
{
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QString::fromLatin1(pattern)));
}

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
    void init() { QTest::failOnWarning(QRegularExpression(".*")); }
    void valuesArriveAsTheyAre();
    void eachStatementStandsAlone();
    void aLostTransactionIsReportedAsAsked_data();
    void aLostTransactionIsReportedAsAsked();
    void preparesAnewAfterAFailure();
    void takesMoreThanFitsAnyBuffer();
    void survivesTheLossOfTheConnection();
};

void TestStatementStream::valuesArriveAsTheyAre()
{
    const TestDatabase database(TestDatabase::Empty);
    execute(
        "CREATE TABLE t (a boolean, b smallint, c integer, d bigint, e real, f timestamptz, g bytea, h text, i inet, j text, k char(2))");
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
    stream.send("INSERT INTO t VALUES (?, ?, ?, ?, ?, ?, ?, ?, CAST(? AS inet), ?, ?)", values);
    QCOMPARE(stream.finish(), std::vector<bool> { true });
    QCOMPARE(rows("SELECT a, b, c, d, e, f::text, encode(g, 'hex'), h, i, j, k FROM t"),
        QStringList("true|-2|-70000|-5000000000|12.5|1969-12-31 23:59:58.5+00|00ff27|a\uFFFDü'\\😀|2001:db8::1||-"));
}

void TestStatementStream::eachStatementStandsAlone()
{
    const TestDatabase database(TestDatabase::Empty);
    execute("CREATE TABLE t (i int PRIMARY KEY)");
    StatementStream stream;
    for (const int i : { 1, 2, 1, 3 })
        stream.send("INSERT INTO t VALUES (?)", number(i));
    ignoreWarning("^sql: .*duplicate key");
    QCOMPARE(stream.finish(), (std::vector<bool> { true, true, false, true }));
    QVERIFY(stream.failed());
    QCOMPARE(rows("SELECT i FROM t ORDER BY i").join(u','), "1,2,3");
    QCOMPARE(stream.finish(), std::vector<bool> {});
}

void TestStatementStream::aLostTransactionIsReportedAsAsked_data()
{
    QTest::addColumn<bool>("each");
    QTest::newRow("each failure") << true;
    QTest::newRow("the first") << false;
}

void TestStatementStream::aLostTransactionIsReportedAsAsked()
{
    QFETCH(bool, each);
    const TestDatabase database(TestDatabase::Empty);
    execute("CREATE TABLE t (i int PRIMARY KEY); BEGIN");
    StatementStream stream(each ? StatementStream::ReportEach : StatementStream::ReportFirst);
    for (const int i : { 1, 1, 2, 3 })
        stream.send("INSERT INTO t VALUES (?)", number(i));
    ignoreWarning("^sql: .*duplicate key");
    if (each) {
        ignoreWarning("^sql: .*transaction is aborted");
        ignoreWarning("^sql: .*transaction is aborted");
    }
    QCOMPARE(stream.finish(), (std::vector<bool> { true, false, false, false }));
}

void TestStatementStream::preparesAnewAfterAFailure()
{
    const TestDatabase database(TestDatabase::Empty);
    StatementStream stream;
    ignoreWarning("^sql: .*\"t\" does not exist");
    stream.send("INSERT INTO t VALUES (?)", number(1));
    QCOMPARE(stream.finish(), std::vector<bool> { false });
    execute("CREATE TABLE t (i int)");
    stream.send("INSERT INTO t VALUES (?)", number(1));
    QCOMPARE(stream.finish(), std::vector<bool> { true });
}

void TestStatementStream::takesMoreThanFitsAnyBuffer()
{
    const TestDatabase database(TestDatabase::Empty);
    execute("CREATE TABLE t (i int, a text)");
    const QString text(100000, u'x');
    StatementStream stream;
    for (int i = 0; i < 100; ++i) { // of twenty texts, more than are kept prepared
        Values values = number(i);
        values.addText(text);
        stream.send("INSERT INTO t VALUES (?, ?) -- " + QByteArray::number(i % 20), values);
        if (i % 7 == 0)
            stream.poll();
    }
    QCOMPARE(stream.finish(), std::vector<bool>(100, true));
    QCOMPARE(value("SELECT count(DISTINCT i) || ' ' || sum(length(a)) FROM t"), "100 10000000");
    QCOMPARE(value("SELECT count(*) <= 10 FROM pg_prepared_statements"), "true");
}

void TestStatementStream::survivesTheLossOfTheConnection()
{
    const TestDatabase database(TestDatabase::Empty);
    execute("CREATE TABLE t (i int)");
    StatementStream stream(StatementStream::ReportFirst);
    stream.send("INSERT INTO t VALUES (?)", number(1));
    ignoreWarning("^sql: .*terminating connection");
    stream.send("SELECT pg_terminate_backend(pg_backend_pid())", {});
    for (int i = 0; i < 100; ++i)
        stream.send("INSERT INTO t VALUES (?)", number(2));
    const std::vector<bool> succeeded = stream.finish();
    QCOMPARE(succeeded.size(), size_t(102));
    QCOMPARE(std::count(succeeded.begin(), succeeded.end(), true), 1);
    QVERIFY(stream.failed());
}

QTEST_GUILESS_MAIN(TestStatementStream)
#include "tst_statementstream.moc"
