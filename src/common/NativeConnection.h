#pragma once

#include <libpq-fe.h>

class QSqlDatabase;

namespace vesk::db {

/// The libpq connection behind \a db, for the database module's own use; null for another driver.
PGconn *nativeConnection(const QSqlDatabase &db);

} // namespace vesk::db
