#pragma once

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QVariant>

#include <optional>

struct pg_conn;
class QSettings;
class QSqlError;

/// The one PostgreSQL connection of the process, Qt's default connection. Statement objects are
/// made without naming it. Only this module and StatementStream know libpq.
namespace vesk::db {

/// The migration level that this build is written for, the number of the last script.
inline constexpr int kSchemaVersion = 11;

/// Opens the connection with the database/ keys of \a cfg, under the application name \a appName,
/// and sets the session's time zone, in which the database cuts days. False, after a message, when
/// it cannot be opened.
bool open(const QSettings &cfg, const QString &appName);

/// Executes a statement that was prepared and bound. False, after the warning "sql: ...", when
/// preparing or executing it failed. Prepare a statement anew before executing it after a failure.
bool exec(QSqlQuery &q);

/// Prepares \a sql, binds \a values to its "?" placeholders in their order and executes it. Nothing
/// after a failure, which is reported as by exec().
std::optional<QSqlQuery> run(const QString &sql, const QVariantList &values = {});

/// The same with placeholders like ":site", whose values are found under that name; values that
/// \a sql does not name are left out. The rows can be read only once, and a failure may come while
/// they are.
std::optional<QSqlQuery> runNamed(const QString &sql, const QVariantMap &values);

/// Whether the rows of \a q, of which there is no next one, have been read to their end. The error
/// that ended them before is reported as by exec().
bool allRead(const QSqlQuery &q);

/// Reports the text of a failed statement, as exec() does. That a statement was prepared twice or
/// never, which \a sqlState tells, is explained, and only the first time: it is so again and again
/// behind a pooler that hands the connection to others between transactions.
void reportFailure(const QString &errorText, const QString &sqlState = {});

/// \a text, the message of an error with the code \a sqlState, as it may be shown: without the
/// details in which the server quotes a whole refused row, with secrets of it perhaps, and without
/// control characters, which would reach a terminal. Errors quote what strangers sent.
QString presentable(const QString &text, const QString &sqlState);

/// What the error of a statement or connection may show of itself, by its own text and code.
QString presentable(const QSqlError &error);

/// Executes a script of any number of statements, without parameters. False at the first one that
/// fails, with its error text in \a error; nothing is reported.
bool execScript(const QString &sql, QString *error);

/// The libpq connection behind \a db, for StatementStream; null for another driver.
pg_conn *nativeConnection(const QSqlDatabase &db);

/// \a name as a quoted SQL identifier. For other programs of the suite.
QString ident(const QString &name);

/// The number of the last migration applied, 0 when there is none.
int schemaVersion();

/// Makes sure that the connection is usable: opens it again when it has dropped, or in any case
/// when \a force is set. Time zone and notification subscriptions are restored, an open transaction
/// is not. For other programs of the suite, which run for long.
bool ensure(bool force);

/// Whether the connection is open, and not known to be lost, which only using it tells.
bool isConnected();

/// Opens the connection anew when it is known to be lost. True when it was and is open again.
bool reopenIfLost();

/// Leaves out what the server says unasked, such as why it ends a connection, which libpq prints:
/// the next statement fails and tells it.
void ignoreNotices();

/// A transaction that is rolled back unless it was committed.
class Transaction
{
public:
    /// What becomes of the reason why it does not begin.
    enum Reason {
        Report, ///< it is reported as by exec()
        Keep, ///< only error() tells it
    };

    /// Begins it, on a new connection if the old one is lost. When that fails, commit() will.
    explicit Transaction(Reason reason = Report);
    ~Transaction();
    Q_DISABLE_COPY_MOVE(Transaction)

    /// Why it did not begin; empty when it did.
    QString error() const { return m_error; }

    /// Whether the connection is still inside it. Otherwise a statement would be committed by
    /// itself: the driver connects anew when the connection is lost.
    bool isOpen() const;

    /// False when the server did not keep the changes, also when it had given the transaction up
    /// after a failed statement. An error of the commit itself is reported as by exec().
    bool commit();

private:
    QSqlDatabase m_db;
    QString m_error;
};

} // namespace vesk::db
