#include "common/Db.h"
#include "support/Table.h"
#include "support/TestDatabase.h"

#include <QSettings>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlQuery>

namespace db = vesk::db;

namespace {

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

const QString kDivide = "SELECT 1/(random()*0)::int"; // fails when it is executed

} // namespace

class TestDb : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        m_database = std::make_unique<TestDatabase>(TestDatabase::Empty);
    }
    void cleanup() { m_database.reset(); }

    void opensWhatTheFileNames()
    {
        execute("CREATE DATABASE \"comma,name\"");
        const QByteArray settings = "[database]\ntimezone=Asia/Tokyo\nuser=" + qgetenv("PGUSER")
            + "\nhost=" + qgetenv("PGHOST") + "\nname=";
        QVERIFY(reopen(m_database->file("comma.ini", settings + "comma,name")));
        QCOMPARE(rows("SELECT current_database(), current_setting('TimeZone'), "
                      "current_setting('application_name'), "
                      "current_setting('client_min_messages')"),
            QStringList("comma,name|Asia/Tokyo|some-name|warning"));
        QVERIFY(reopen(m_database->config()));
        execute("DROP DATABASE \"comma,name\"");

        QSettings(m_database->config(), QSettings::IniFormat)
            .setValue("database/timezone", "Mars/Phobos");
        ignoreWarning("^sql: .*Mars/Phobos");
        QVERIFY(reopen(m_database->config()));
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^database: .*nowhere"));
        QVERIFY(!reopen(m_database->file("no.ini", settings + "nowhere")));
    }

    void execReportsTheCause_data()
    {
        const Table row;
        row("SELEC 1", "near \"SELEC\"");
        row("SELECT 1 FROM nothing",
            "\"nothing\" does not exist"); // the server refuses to prepare it
        row(kDivide.toUtf8(), "division by zero");
        row("INSERT INTO t VALUES (1)", "\\nDETAIL: .*=\\(1\\)");
        // Details that would show the refused row are left out.
        row("INSERT INTO t VALUES (NULL)", "null value in column [^\n]*$");
        row("INSERT INTO t VALUES (9)", "check constraint [^\n]*$");
        row("INSERT INTO v VALUES (8)", "check option [^\n]*$");
    }

    void execReportsTheCause()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, expected);
        execute("CREATE TABLE t (i int NOT NULL UNIQUE CHECK (i < 9)); INSERT INTO t VALUES (1); "
                "CREATE VIEW v AS SELECT * FROM t WHERE i < 5 WITH CHECK OPTION");
        ignoreWarning("^sql: .*" + expected);
        QVERIFY(!run(text));
        QVERIFY(run("SELECT 1"));
    }

    void scriptsFailAtAnyStatement()
    {
        QString error;
        QVERIFY(db::execScript("CREATE TABLE t (i int); INSERT INTO t VALUES (1);", &error));
        QCOMPARE(value("SELECT count(*) FROM t") + error, "1");
        for (const char *script :
            { "SELECT 1; SELECT 1/0; SELECT 2", "SELECT 1; SELECT 1/0", "SELECT 1/0" }) {
            error.clear();
            QVERIFY2(!db::execScript(script, &error) && error.contains("division by zero"), script);
        }
    }

    void quotesIdentifiers()
    {
        QCOMPARE(db::ident(QString::fromLatin1("a\"b\0c", 5)), QString("\"a\"\"bc\""));
        QCOMPARE(db::ident({}), QString("\"\""));
    }

    void readsTheSchemaLevel()
    {
        QCOMPARE(db::schemaVersion(), 0);
        execute("CREATE SCHEMA vesk; CREATE TABLE vesk.schema_migrations (version int)");
        QCOMPARE(db::schemaVersion(), 0);
        execute("INSERT INTO vesk.schema_migrations VALUES (3), (7), (5)");
        QCOMPARE(db::schemaVersion(), 7);
    }

    void reconnects()
    {
        const auto session
            = [] { return value("SELECT pg_backend_pid() || current_setting('TimeZone')"); };
        QSettings(m_database->config(), QSettings::IniFormat)
            .setValue("database/timezone", "Asia/Tokyo");
        QVERIFY(reopen(m_database->config()));
        const QString first = session();
        QVERIFY(db::ensure(false));
        QCOMPARE(session(), first);

        QSqlDriver *driver = QSqlDatabase::database().driver();
        QVERIFY(driver->subscribeToNotification("channel"));
        QTest::ignoreMessage(QtInfoMsg, "database: reconnected");
        QVERIFY(db::ensure(true));
        QVERIFY(session() != first && session().endsWith("Asia/Tokyo"));
        const QSignalSpy spy(driver, &QSqlDriver::notification);
        execute("NOTIFY channel");
        QTRY_COMPARE(spy.count(), 1);

        for (const auto &again : { +[] { return db::ensure(false); }, &db::reopenIfLost }) {
            ignoreWarning("^sql: ");
            ignoreWarning("^Unable to free statement"); // the driver's own
            QVERIFY(!run("SELECT pg_terminate_backend(pg_backend_pid())"));
            if (again != &db::reopenIfLost)
                QTest::ignoreMessage(QtInfoMsg, "database: reconnected");
            QVERIFY(again());
            QVERIFY(session().endsWith("Asia/Tokyo"));
        }
    }

    void commitTellsWhatWasKept()
    {
        execute("CREATE TABLE t (i int UNIQUE DEFERRABLE INITIALLY DEFERRED)");
        {
            const db::Transaction transaction; // never committed
            execute("INSERT INTO t VALUES (1)");
        }
        {
            db::Transaction transaction;
            ignoreWarning("^sql: .*division by zero");
            ignoreWarning("^Unable to free statement"); // the driver's own
            QVERIFY(!run(kDivide));
            QVERIFY(!transaction.commit()); // the server would have answered with a silent rollback
        }
        {
            db::Transaction transaction;
            execute("INSERT INTO t VALUES (1), (1)");
            ignoreWarning("^sql: .*duplicate key");
            QVERIFY(!transaction.commit());
        }
        {
            db::Transaction transaction;
            execute("INSERT INTO t VALUES (2)");
            QVERIFY(transaction.commit());
        }
        QVERIFY(run("INSERT INTO t VALUES (3)"));
        QCOMPARE(rows("SELECT i FROM t"), (QStringList { "2", "3" }));
    }

private:
    std::unique_ptr<TestDatabase> m_database;
};

QTEST_GUILESS_MAIN(TestDb)
#include "tst_db.moc"
