#include "support/TestDatabase.h"

#include "common/Db.h"

#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTest>

namespace {

void run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(-1) || process.exitCode() != 0)
        qFatal("%s: %s", qPrintable(program), process.readAllStandardError().constData());
}

} // namespace

TestDatabase::TestDatabase(Schema schema)
{
    static int number = 0;
    const QString name = QStringLiteral("test%1").arg(++number);
    if (qEnvironmentVariableIsEmpty("PGHOST"))
        qFatal("no server to test with, run: scripts/with-postgres PROGRAM");
    run("createdb", { name });
    QSettings cfg(config(), QSettings::IniFormat);
    cfg.setValue("database/host", qEnvironmentVariable("PGHOST"));
    cfg.setValue("database/user", qEnvironmentVariable("PGUSER"));
    cfg.setValue("database/name", name);
    cfg.setValue("database/timezone", "UTC");
    cfg.sync();
    if (schema == Migrated)
        run(QStringLiteral(VESK_ADMIN), { "-c", config(), "migrate" });
    const QString partition = qEnvironmentVariable("VESK_TEST_PARTITION");
    if (schema == Migrated && !partition.isEmpty())
        run("env", { "PGDATABASE=" + name, partition, "split", "2026-01" });
    if (!vesk::db::open(cfg, "vesk-admin-test"))
        qFatal("cannot connect");
    if (schema == Migrated && vesk::db::schemaVersion() != vesk::db::kSchemaVersion)
        qFatal("kSchemaVersion is not the number of the last script");
}

TestDatabase::~TestDatabase()
{
    QSqlDatabase::removeDatabase(QLatin1String(QSqlDatabase::defaultConnection));
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
