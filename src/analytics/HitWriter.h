#pragma once

#include "analytics/RowBuilder.h"
#include "common/StatementStream.h"

#include <QByteArray>
#include <QList>

namespace vesk::analytics {

/// Adds what vesk.hits stores of a row, in the order of the insert statement's columns.
void addRow(db::Values &values, int siteId, const Row &row);

/// Writes rows into vesk.hits, many in one statement, without waiting for the database.
class HitWriter
{
public:
    /// Sends \a rows for site \a siteId, in statements of kBatchRows rows and a last one of the
    /// rest. Until finish() nothing else may use the connection. \a reports says which failures
    /// are reported.
    void send(int siteId, const QList<Row> &rows, db::StatementStream::Reports reports);

    /// To be called now and then until finish(), so that the database gets what was sent.
    void poll() { m_stream.poll(); }

    /// Waits until all is written; the number of rows whose statement succeeded.
    int finish();

private:
    void insertBatch(int siteId, QList<Row>::const_iterator begin, QList<Row>::const_iterator end);

    db::StatementStream m_stream;
    db::Values m_values;
    QList<int> m_batchRows; ///< of each statement sent
};

} // namespace vesk::analytics
