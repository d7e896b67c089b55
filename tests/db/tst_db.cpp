#include "common/Db.h"
#include "support/TestDatabase.h"

#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlQuery>
#include <QTest>

namespace db = vesk::db;

namespace {

void ignoreWarning(const char *pattern)
{
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QString::fromLatin1(pattern)));
}

/// Opens the default connection in place of the one that is there.
bool reopen(const QString &file)
{
    QSqlDatabase::removeDatabase(QLatin1String(QSqlDatabase::defaultConnection));
    return db::open(QSettings(file, QSettings::IniFormat), "some-name");
}

bool run(const QString &statement)
{
    QSqlQuery q;
    q.prepare(statement);
    return db::exec(q);
}

} // namespace

class TestDb : public QObject
{
    Q_OBJECT

private slots:
    void init() { QTest::failOnWarning(QRegularExpression(".*")); }
    void opensWhatTheFileNames();
    void refusesWithTheReason();
    void unknownZoneIsOnlyReported();
    void execReportsTheCause_data();
    void execReportsTheCause();
    void scriptsFailAtAnyStatement();
    void quotesIdentifiers();
    void readsTheSchemaLevel();
    void reconnects();
    void transactionsRollBack();
    void commitTellsWhatWasKept();
};

void TestDb::opensWhatTheFileNames()
{
    const TestDatabase database;
    execute("CREATE DATABASE \"comma,name\"");
    const QString file = database.file(
        "comma.ini", "[database]\nname=comma,name\ntimezone=Asia/Tokyo\nuser=" + qgetenv("PGUSER") + "\nhost=" + qgetenv("PGHOST") + "\n");
    QVERIFY(reopen(file));
    QCOMPARE(rows("SELECT current_database(), current_setting('TimeZone'), current_setting('application_name'), "
                  "current_setting('client_min_messages')"),
        QStringList("comma,name|Asia/Tokyo|some-name|warning"));
    QVERIFY(reopen(database.config()));
    execute("DROP DATABASE \"comma,name\"");
}

void TestDb::refusesWithTheReason()
{
    const TestDatabase database(TestDatabase::Empty);
    const QString file = database.file("no.ini", "[database]\nname=nowhere\nuser=" + qgetenv("PGUSER") + "\nhost=" + qgetenv("PGHOST"));
    QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^database: .*nowhere"));
    QVERIFY(!reopen(file));
}

void TestDb::unknownZoneIsOnlyReported()
{
    const TestDatabase database(TestDatabase::Empty);
    QSettings(database.config(), QSettings::IniFormat).setValue("database/timezone", "Mars/Phobos");
    ignoreWarning("^sql: .*Mars/Phobos");
    QVERIFY(reopen(database.config()));
}

void TestDb::execReportsTheCause_data()
{
    QTest::addColumn<QString>("statement");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("syntax") << "SELEC 1" << QByteArray("^sql: .*near \"SELEC\"");
    QTest::newRow("prepare refused") << "SELECT 1 FROM nothing" << QByteArray("^sql: .*\"nothing\" does not exist");
    QTest::newRow("execution fails") << "SELECT 1/(random()*0)::int" << QByteArray("^sql: .*division by zero");
}

void TestDb::execReportsTheCause()
{
    const TestDatabase database(TestDatabase::Empty);
    QFETCH(QString, statement);
    QFETCH(QByteArray, message);
    ignoreWarning(message.constData());
    QVERIFY(!run(statement));
    QVERIFY(run("SELECT 1"));
}

void TestDb::scriptsFailAtAnyStatement()
{
    const TestDatabase database(TestDatabase::Empty);
    QString error;
    QVERIFY(db::execScript("CREATE TABLE t (i int); INSERT INTO t VALUES (1);", &error));
    QCOMPARE(error, QString());
    for (const char *script : { "SELECT 1; SELECT 1/0; SELECT 2", "SELECT 1; SELECT 1/0", "SELECT 1/0" }) {
        error.clear();
        QVERIFY(!db::execScript(QString::fromLatin1(script), &error));
        QVERIFY2(error.contains("division by zero"), script);
    }
    QCOMPARE(value("SELECT count(*) FROM t"), "1");
}

void TestDb::quotesIdentifiers()
{
    QCOMPARE(db::ident("a\"b"), QString("\"a\"\"b\""));
    QCOMPARE(db::ident(QString::fromLatin1("a\0b", 3)), QString("\"ab\""));
    QCOMPARE(db::ident({}), QString("\"\""));
}

void TestDb::readsTheSchemaLevel()
{
    const TestDatabase empty(TestDatabase::Empty);
    QCOMPARE(db::schemaVersion(), 0);
    execute("CREATE SCHEMA vesk; CREATE TABLE vesk.schema_migrations (version int)");
    QCOMPARE(db::schemaVersion(), 0);
    execute("INSERT INTO vesk.schema_migrations VALUES (3), (7), (5)");
    QCOMPARE(db::schemaVersion(), 7);
}

void TestDb::reconnects()
{
    const TestDatabase database(TestDatabase::Empty);
    const auto session = [] { return value("SELECT pg_backend_pid() || current_setting('TimeZone')"); };
    const QString first = session();
    QVERIFY(db::ensure(false));
    QCOMPARE(session(), first);

    QSqlDriver *driver = QSqlDatabase::database().driver();
    QVERIFY(driver->subscribeToNotification("channel"));
    QTest::ignoreMessage(QtInfoMsg, "database: reconnected");
    QVERIFY(db::ensure(true));
    QVERIFY(session() != first);
    QVERIFY(session().endsWith("UTC"));
    const QSignalSpy spy(driver, &QSqlDriver::notification);
    execute("NOTIFY channel");
    QTRY_COMPARE(spy.count(), 1);

    ignoreWarning("^sql: ");
    ignoreWarning("^Unable to free statement"); // the driver's own
    QVERIFY(!run("SELECT pg_terminate_backend(pg_backend_pid())"));
    QTest::ignoreMessage(QtInfoMsg, "database: reconnected");
    QVERIFY(db::ensure(false));
    QVERIFY(run("SELECT 1"));
}

void TestDb::transactionsRollBack()
{
    const TestDatabase database(TestDatabase::Empty);
    execute("CREATE TABLE t (i int)");
    {
        const db::Transaction transaction;
        execute("INSERT INTO t VALUES (1)");
    }
    QCOMPARE(value("SELECT count(*) FROM t"), "0");
    db::Transaction transaction;
    execute("INSERT INTO t VALUES (1)");
    QVERIFY(transaction.commit());
    QCOMPARE(value("SELECT count(*) FROM t"), "1");
}

void TestDb::commitTellsWhatWasKept()
{
    const TestDatabase database(TestDatabase::Empty);
    execute("CREATE TABLE t (i int UNIQUE DEFERRABLE INITIALLY DEFERRED)");
    {
        db::Transaction transaction;
        ignoreWarning("^sql: .*division by zero");
        ignoreWarning("^Unable to free statement"); // the driver's own
        QVERIFY(!run("SELECT 1/(random()*0)::int"));
        QVERIFY(!transaction.commit()); // the server would have answered with a silent rollback
    }
    {
        db::Transaction transaction;
        execute("INSERT INTO t VALUES (1), (1)");
        ignoreWarning("^sql: .*duplicate key");
        QVERIFY(!transaction.commit());
    }
    QVERIFY(run("INSERT INTO t VALUES (2)"));
    QCOMPARE(rows("SELECT i FROM t"), QStringList("2"));
}

QTEST_GUILESS_MAIN(TestDb)
#include "tst_db.moc"
