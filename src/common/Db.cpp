#include "common/Db.h"

#include "common/Text.h"

#include <QLatin1String>
#include <QSettings>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QStringList>
#include <QTimeZone>

#include <algorithm>
#include <array>
#include <utility>

#include <libpq-fe.h>

namespace vesk::db {

namespace {

QString g_timeZone; // destroyed at exit

/// The errors whose details hold the refused row: a NULL, a check constraint or a partition, the
/// condition of a view.
constexpr std::array kQuoteRows { QLatin1String("23502"), QLatin1String("23514"),
    QLatin1String("44000") };

const QLatin1String kPreparedTwice("42P05");
const QLatin1String kNeverPrepared("26000");
bool g_explainedPooler = false;

bool g_ignoresNotices = false;

void setTimeZone()
{
    if (run(QStringLiteral("SELECT set_config('TimeZone', ?, false)"), { g_timeZone }))
        qputenv("PGTZ", g_timeZone.toUtf8()); // libpq's, should the driver connect anew by itself
}

/// The state of the connection as libpq sees it; CONNECTION_OK when it cannot be asked.
int connectionStatus(const QSqlDatabase &db)
{
    const PGconn *connection = nativeConnection(db);
    return connection ? PQstatus(connection) : CONNECTION_OK;
}

QSqlDatabase defaultConnection()
{
    return QSqlDatabase::database(QLatin1String(QSqlDatabase::defaultConnection), false);
}

void setNotices()
{
    PGconn *connection = nativeConnection(defaultConnection());
    if (connection && g_ignoresNotices)
        PQsetNoticeReceiver(
            connection, [](void *, const PGresult *) {}, nullptr);
}

/// QSettings reads a value with an unquoted comma as a list: puts it together again.
QString text(const QSettings &cfg, const QString &key, const QString &fallback = {})
{
    const QVariant value = cfg.value(key, fallback);
    if (value.typeId() == QMetaType::QStringList)
        return value.toStringList().join(u',');
    return value.toString();
}

} // namespace

PGconn *nativeConnection(const QSqlDatabase &db)
{
    const QVariant handle = db.driver() ? db.driver()->handle() : QVariant();
    // Named by libpq's typedef or by the struct behind it, depending on the Qt version.
    const QByteArrayView type(handle.typeName());
    if (type != "PGconn*" && type != "pg_conn*")
        return nullptr;
    return *static_cast<PGconn *const *>(handle.constData());
}

bool open(const QSettings &cfg, const QString &appName)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"));
    db.setHostName(
        text(cfg, QStringLiteral("database/host"), QStringLiteral("/var/run/postgresql")));
    db.setPort(cfg.value(QStringLiteral("database/port"), 5432).toInt());
    db.setDatabaseName(text(cfg, QStringLiteral("database/name"), QStringLiteral("hollowquarry")));
    db.setUserName(text(cfg, QStringLiteral("database/user")));
    db.setPassword(text(cfg, QStringLiteral("database/password")));
    db.setConnectOptions(QLatin1String("application_name=") + appName
        + QLatin1String(";options='-c client_min_messages=warning'"));
    if (!db.open()) {
        qCritical("database: %s", qPrintable(presentable(db.lastError())));
        return false;
    }
    g_timeZone = text(cfg, QStringLiteral("database/timezone"),
        QString::fromLatin1(QTimeZone::systemTimeZoneId()));
    setTimeZone();
    return true;
}

bool exec(QSqlQuery &q)
{
    // Executing a statement that the server refused to prepare would fail with a syntax error of
    // its own and hide the cause.
    const bool prepared = !q.lastError().isValid();
    if (prepared && q.exec())
        return true;
    reportFailure(presentable(q.lastError()), q.lastError().nativeErrorCode());
    return false;
}

std::optional<QSqlQuery> run(const QString &sql, const QVariantList &values)
{
    QSqlQuery q;
    q.prepare(sql);
    for (const QVariant &value : values)
        q.addBindValue(value);
    if (!exec(q))
        return {};
    return q;
}

std::optional<QSqlQuery> runNamed(const QString &sql, const QVariantMap &values)
{
    QSqlQuery q;
    q.setForwardOnly(true);
    q.prepare(sql);
    for (auto value = values.begin(); value != values.end(); ++value)
        q.bindValue(value.key(), value.value());
    if (!exec(q))
        return {};
    return q;
}

bool allRead(const QSqlQuery &q)
{
    if (!q.lastError().isValid())
        return true;
    reportFailure(presentable(q.lastError()), q.lastError().nativeErrorCode());
    return false;
}

void reportFailure(const QString &errorText, const QString &sqlState)
{
    if (sqlState != kPreparedTwice && sqlState != kNeverPrepared) {
        qWarning("sql: %s", qPrintable(errorText));
    } else if (!std::exchange(g_explainedPooler, true)) {
        qWarning(
            "sql: %s (a connection pooler must be in session mode: in transaction mode it mixes "
            "up the prepared statements of its clients)",
            qPrintable(errorText));
    }
}

QString presentable(const QString &text, const QString &sqlState)
{
    const bool quotesRow
        = std::find(kQuoteRows.begin(), kQuoteRows.end(), sqlState) != kQuoteRows.end();
    return clean(quotesRow ? text.section(u'\n', 0, 0) : text, Lines::Many).trimmed();
}

QString presentable(const QSqlError &error)
{
    return presentable(error.text(), error.nativeErrorCode());
}

bool execScript(const QString &sql, QString *error)
{
    QSqlQuery q;
    bool ok = q.exec(sql);
    while (ok && q.nextResult())
        ok = !q.lastError().isValid();
    ok = ok && !q.lastError().isValid();
    if (!ok)
        *error = presentable(q.lastError());
    return ok;
}

QString ident(const QString &name)
{
    QString quoted = name;
    quoted.remove(QChar(u'\0'));
    quoted.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

int schemaVersion()
{
    QSqlQuery q;
    if (!q.exec(QStringLiteral("SELECT to_regclass('vesk.schema_migrations') IS NOT NULL"))
        || !q.next() || !q.value(0).toBool())
        return 0;
    if (!q.exec(QStringLiteral("SELECT coalesce(max(version), 0) FROM vesk.schema_migrations"))
        || !q.next())
        return 0;
    return q.value(0).toInt();
}

bool ensure(bool force)
{
    QSqlDatabase db = defaultConnection();
    if (!force && isConnected())
        return true;

    const QStringList channels
        = db.driver() ? db.driver()->subscribedToNotifications() : QStringList();
    db.close();
    if (!db.open()) {
        qWarning("database: reconnect failed: %s", qPrintable(presentable(db.lastError())));
        return false;
    }
    setTimeZone();
    for (const QString &channel : channels)
        db.driver()->subscribeToNotification(channel);
    qInfo("database: reconnected");
    return true;
}

bool isConnected()
{
    const QSqlDatabase db = defaultConnection();
    return db.isOpen() && connectionStatus(db) == CONNECTION_OK;
}

bool reopenIfLost()
{
    QSqlDatabase db = defaultConnection();
    const bool isReopened = !db.isOpen() && db.open();
    setNotices();
    return isReopened;
}

void ignoreNotices()
{
    g_ignoresNotices = true;
    setNotices();
}

Transaction::Transaction(Reason reason)
    : m_db(defaultConnection())
{
    const bool begun = (m_db.isOpen() && m_db.transaction())
        || (reopenIfLost() && m_db.transaction()); // lost, maybe long ago
    if (begun)
        return;
    m_error = presentable(m_db.lastError());
    if (reason == Report)
        reportFailure(m_error);
}

Transaction::~Transaction()
{
    if (isOpen())
        m_db.rollback();
}

bool Transaction::isOpen() const
{
    if (!m_db.isOpen())
        return false;
    const PGconn *connection = nativeConnection(m_db);
    const auto status = connection ? PQtransactionStatus(connection) : PQTRANS_INTRANS;
    return status == PQTRANS_INTRANS || status == PQTRANS_INERROR;
}

bool Transaction::commit()
{
    if (!isOpen())
        return false;
    const PGconn *connection = nativeConnection(m_db);
    if (connection && PQtransactionStatus(connection) == PQTRANS_INERROR) {
        m_db.rollback(); // what the server would make of a commit, without telling
        return false;
    }
    if (m_db.commit())
        return true;
    reportFailure(presentable(m_db.lastError()));
    return false;
}

} // namespace vesk::db
