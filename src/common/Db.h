#pragma once

#include <QString>

class QSettings;
class QSqlQuery;

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

/// Reports the text of a failed statement, as exec() does.
void reportFailure(const QString &errorText);

/// Executes a script of any number of statements, without parameters. False at the first one that
/// fails, with its error text in \a error; nothing is reported.
bool execScript(const QString &sql, QString *error);

/// \a name as a quoted SQL identifier.
QString ident(const QString &name);

/// The number of the last migration applied, 0 when there is none.
int schemaVersion();

/// Makes sure that the connection is usable: opens it again when it has dropped, or in any case
/// when \a force is set. Time zone and notification subscriptions are restored, an open transaction
/// is not.
bool ensure(bool force);

/// A transaction that is rolled back unless it was committed.
class Transaction
{
public:
    /// Begins it. When that fails, commit() will.
    Transaction();
    ~Transaction();
    Q_DISABLE_COPY_MOVE(Transaction)

    /// False when the server did not keep the changes, also when it had given the transaction up
    /// after a failed statement. An error of the commit itself is reported as by exec().
    bool commit();

private:
    bool m_open = true;
};

} // namespace vesk::db
