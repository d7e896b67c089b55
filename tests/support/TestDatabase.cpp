#include "support/TestDatabase.h"

#include "common/Db.h"
#include "support/Program.h"

#include <QFile>
#include <QSettings>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTest>

namespace {

/// Executes a statement on the server's own database, from outside the database under test.
void executeOutside(const QString &statement)
{
    const QString connection = "outside";
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QPSQL", connection);
        db.setHostName(qEnvironmentVariable("PGHOST"));
        db.setUserName(qEnvironmentVariable("PGUSER"));
        db.setDatabaseName("postgres");
        if (!db.open())
            qFatal("no server to test with, run: scripts/with-postgres PROGRAM");
        QSqlQuery q(db);
        if (!q.exec(statement))
            qFatal("%s", qPrintable(q.lastError().text()));
    }
    QSqlDatabase::removeDatabase(connection);
}

} // namespace

TestDatabase::TestDatabase(Schema schema)
{
    static int number = 0;
    static bool haveTemplate = false;
    const QString migrated = "migrated"; // each test program migrates once
    if (schema == Migrated && !haveTemplate) {
        executeOutside(QStringLiteral("CREATE DATABASE %1").arg(migrated));
        writeConfig(migrated);
        const Run run = runAdmin({ "-c", config(), "migrate" });
        if (run.status != 0)
            qFatal("migrate: %s", run.err.constData());
        haveTemplate = true;
    }
    m_name = QStringLiteral("test%1").arg(++number);
    executeOutside(QStringLiteral("CREATE DATABASE %1 TEMPLATE %2")
                       .arg(m_name, schema == Migrated ? migrated : QStringLiteral("template1")));
    writeConfig(m_name);
    if (!vesk::db::open(QSettings(config(), QSettings::IniFormat), "vesk-admin-test"))
        qFatal("cannot connect");
}

void TestDatabase::writeConfig(const QString &database) const
{
    QSettings cfg(config(), QSettings::IniFormat);
    cfg.setValue("database/host", qEnvironmentVariable("PGHOST"));
    cfg.setValue("database/user", qEnvironmentVariable("PGUSER"));
    cfg.setValue("database/name", database);
    cfg.setValue("database/timezone", "UTC");
}

TestDatabase::~TestDatabase()
{
    QSqlDatabase::removeDatabase(QLatin1String(QSqlDatabase::defaultConnection));
    executeOutside(QStringLiteral("DROP DATABASE %1 WITH (FORCE)").arg(m_name));
}

QString TestDatabase::config() const
{
    return m_folder.filePath("vesk.ini");
}

QString TestDatabase::file(const QString &name, const QByteArray &content) const
{
    QFile f(m_folder.filePath(name));
    if (!f.open(QIODevice::WriteOnly) || f.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(f.fileName()));
    return f.fileName();
}

QStringList rows(const QString &statement)
{
    QSqlQuery q;
    if (!q.exec(statement))
        QTest::qFail(qPrintable(q.lastError().text()), __FILE__, __LINE__);
    QStringList result;
    while (q.next()) {
        QStringList columns;
        for (int i = 0; i < q.record().count(); ++i)
            columns += q.isNull(i) ? QStringLiteral("-") : q.value(i).toString();
        result += columns.join(u'|');
    }
    return result;
}

QString value(const QString &statement)
{
    return rows(statement).value(0);
}

void execute(const QString &statement)
{
    QString error;
    if (!vesk::db::execScript(statement, &error))
        QTest::qFail(qPrintable(error), __FILE__, __LINE__);
}
