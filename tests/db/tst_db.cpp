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
    return db::open(QSettings(file, QSettings::IniFormat), QStringLiteral("some-name"));
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
    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral(".*"))); }
    void opensWhatTheFileNames();
    void refusesWithTheReason();
    void unknownZoneIsOnlyReported();
    void execReportsTheCause_data();
    void execReportsTheCause();
    void scriptsFailAtAnyStatement();
    void quotesIdentifiers_data();
    void quotesIdentifiers();
    void readsTheSchemaLevel();
    void reconnects();
    void transactionsRollBack();
    void commitTellsWhatWasKept();
};

void TestDb::opensWhatTheFileNames()
{
    const TestDatabase database;
    execute(QStringLiteral("CREATE DATABASE \"comma,name\""));
    const QString file = database.file(QStringLiteral("comma.ini"),
        "[database]\nname=comma,name\ntimezone=Asia/Tokyo\nuser=" + qgetenv("PGUSER")
            + "\nhost=" + qgetenv("PGHOST") + "\n");
    QVERIFY(reopen(file));
    QCOMPARE(rows(QStringLiteral("SELECT current_database(), current_setting('TimeZone'), "
                                 "current_setting('application_name'), "
                                 "current_setting('client_min_messages')")),
        QStringList(QStringLiteral("comma,name|Asia/Tokyo|some-name|warning")));
    QVERIFY(reopen(database.config()));
    execute(QStringLiteral("DROP DATABASE \"comma,name\""));
}

void TestDb::refusesWithTheReason()
{
    const TestDatabase database(TestDatabase::Empty);
    const QString file = database.file(QStringLiteral("no.ini"),
        "[database]\nname=nowhere\nuser=" + qgetenv("PGUSER") + "\nhost=" + qgetenv("PGHOST"));
    QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(QStringLiteral("^database: .*nowhere")));
    QVERIFY(!reopen(file));
}

void TestDb::unknownZoneIsOnlyReported()
{
    const TestDatabase database(TestDatabase::Empty);
    QSettings(database.config(), QSettings::IniFormat)
        .setValue(QStringLiteral("database/timezone"), QStringLiteral("Mars/Phobos"));
    ignoreWarning("^sql: .*Mars/Phobos");
    QVERIFY(reopen(database.config()));
}

void TestDb::execReportsTheCause_data()
{
    QTest::addColumn<QString>("statement");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("syntax") << QStringLiteral("SELEC 1") << QByteArray("^sql: .*near \"SELEC\"");
    QTest::newRow("prepare refused") << QStringLiteral("SELECT 1 FROM nothing")
                                     << QByteArray("^sql: .*\"nothing\" does not exist");
    QTest::newRow("execution fails")
        << QStringLiteral("SELECT 1/(random()*0)::int") << QByteArray("^sql: .*division by zero");
}

void TestDb::execReportsTheCause()
{
    const TestDatabase database(TestDatabase::Empty);
    QFETCH(QString, statement);
    QFETCH(QByteArray, message);
    ignoreWarning(message.constData());
    QVERIFY(!run(statement));
    QVERIFY(run(QStringLiteral("SELECT 1")));
}

void TestDb::scriptsFailAtAnyStatement()
{
    const TestDatabase database(TestDatabase::Empty);
    QString error;
    QVERIFY(db::execScript(
        QStringLiteral("CREATE TABLE t (i int); INSERT INTO t VALUES (1);"), &error));
    QCOMPARE(error, QString());
    for (const char *script :
        { "SELECT 1; SELECT 1/0; SELECT 2", "SELECT 1; SELECT 1/0", "SELECT 1/0" }) {
        error.clear();
        QVERIFY(!db::execScript(QString::fromLatin1(script), &error));
        QVERIFY2(error.contains(QLatin1String("division by zero")), script);
    }
    QCOMPARE(value(QStringLiteral("SELECT count(*) FROM t")), QStringLiteral("1"));
}

void TestDb::quotesIdentifiers_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("quoted");
    QTest::newRow("plain") << QStringLiteral("abc") << QStringLiteral("\"abc\"");
    QTest::newRow("quote") << QStringLiteral("a\"b") << QStringLiteral("\"a\"\"b\"");
    QTest::newRow("NUL") << QString::fromLatin1("a\0b", 3) << QStringLiteral("\"ab\"");
    QTest::newRow("empty") << QString() << QStringLiteral("\"\"");
}

void TestDb::quotesIdentifiers()
{
    QFETCH(QString, name);
    QTEST(db::ident(name), "quoted");
}

void TestDb::readsTheSchemaLevel()
{
    const TestDatabase empty(TestDatabase::Empty);
    QCOMPARE(db::schemaVersion(), 0);
    execute(
        QStringLiteral("CREATE SCHEMA vesk; CREATE TABLE vesk.schema_migrations (version int)"));
    QCOMPARE(db::schemaVersion(), 0);
    execute(QStringLiteral("INSERT INTO vesk.schema_migrations VALUES (3), (7), (5)"));
    QCOMPARE(db::schemaVersion(), 7);
}

void TestDb::reconnects()
{
    const TestDatabase database(TestDatabase::Empty);
    const auto session = [] {
        return value(QStringLiteral("SELECT pg_backend_pid() || current_setting('TimeZone')"));
    };
    const QString first = session();
    QVERIFY(db::ensure(false));
    QCOMPARE(session(), first);

    QSqlDriver *driver = QSqlDatabase::database().driver();
    QVERIFY(driver->subscribeToNotification(QStringLiteral("channel")));
    QTest::ignoreMessage(QtInfoMsg, "database: reconnected");
    QVERIFY(db::ensure(true));
    QVERIFY(session() != first);
    QVERIFY(session().endsWith(QLatin1String("UTC")));
    const QSignalSpy spy(driver, &QSqlDriver::notification);
    execute(QStringLiteral("NOTIFY channel"));
    QTRY_COMPARE(spy.count(), 1);

    ignoreWarning("^sql: ");
    ignoreWarning("^Unable to free statement"); // the driver's own
    QVERIFY(!run(QStringLiteral("SELECT pg_terminate_backend(pg_backend_pid())")));
    QTest::ignoreMessage(QtInfoMsg, "database: reconnected");
    QVERIFY(db::ensure(false));
    QVERIFY(run(QStringLiteral("SELECT 1")));
}

void TestDb::transactionsRollBack()
{
    const TestDatabase database(TestDatabase::Empty);
    execute(QStringLiteral("CREATE TABLE t (i int)"));
    {
        const db::Transaction transaction;
        execute(QStringLiteral("INSERT INTO t VALUES (1)"));
    }
    QCOMPARE(value(QStringLiteral("SELECT count(*) FROM t")), QStringLiteral("0"));
    db::Transaction transaction;
    execute(QStringLiteral("INSERT INTO t VALUES (1)"));
    QVERIFY(transaction.commit());
    QCOMPARE(value(QStringLiteral("SELECT count(*) FROM t")), QStringLiteral("1"));
}

void TestDb::commitTellsWhatWasKept()
{
    const TestDatabase database(TestDatabase::Empty);
    execute(QStringLiteral("CREATE TABLE t (i int UNIQUE DEFERRABLE INITIALLY DEFERRED)"));
    {
        db::Transaction transaction;
        ignoreWarning("^sql: .*division by zero");
        ignoreWarning("^Unable to free statement"); // the driver's own
        QVERIFY(!run(QStringLiteral("SELECT 1/(random()*0)::int")));
        QVERIFY(!transaction.commit()); // the server would have answered with a silent rollback
    }
    {
        db::Transaction transaction;
        execute(QStringLiteral("INSERT INTO t VALUES (1), (1)"));
        ignoreWarning("^sql: .*duplicate key");
        QVERIFY(!transaction.commit());
    }
    QVERIFY(run(QStringLiteral("INSERT INTO t VALUES (2)")));
    QCOMPARE(rows(QStringLiteral("SELECT i FROM t")), QStringList(QStringLiteral("2")));
}

QTEST_GUILESS_MAIN(TestDb)
#include "tst_db.moc"
