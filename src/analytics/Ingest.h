#pragma once

#include "analytics/Countries.h"
#include "analytics/HitWriter.h"
#include "analytics/RowBuilder.h"
#include "analytics/Visits.h"
#include "common/ProgressCallback.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QDate>
#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>

#include <functional>
#include <optional>

namespace vesk::db {
class Transaction;
}

namespace vesk::analytics {

/// Imports access logs into vesk.hits. One object serves all files of a run: visits go on from file
/// to file.
class Ingest
{
public:
    /// Lines whose rows the database did not keep, although statements may have succeeded.
    struct LostSlice
    {
        qint64 firstLine; ///< counted from 1, blank lines too
        qint64 lastLine;
        QString cause; ///< empty when it was reported as that of a failed statement
    };

    /// What became of the lines.
    struct Result
    {
        int lines = 0; ///< that are not blank
        int stored = 0; ///< rows whose statement succeeded
        int skipped = 0; ///< lines that are no access-log entries
        QSet<QDate> days; ///< with requests, in the local time zone
        QList<LostSlice> lost;
    };

    /// Gives one line after the other, without line feeds, then nothing. A line need only be valid
    /// until the next call.
    using LineSource = std::function<std::optional<QByteArrayView>()>;

    /// Told what became of the line handed out last, with its row when there is one.
    using LineObserver = std::function<void(RowBuilder::Outcome outcome, const Row &row)>;

    /// Reads from the database what the import needs. False when it has no visitor secret.
    bool init();

    /// The hash that stands for a visitor, see analytics::visitorHash().
    QByteArray visitorHash(
        int siteId, const QString &ip, const QByteArray &userAgent, QDate day) const;

    /// The number of the visit that a request at \a at (UTC) belongs to; 0 when a new one begins
    /// and the database gives no number.
    qint64 sessionFor(const QByteArray &visitor, const QDateTime &at);

    /// The two-letter country code of a valid address; empty when there is none, or no address.
    QString country(const QString &ip);

    /// Imports the lines for the site with id \a siteId and the lower-case host name \a siteHost,
    /// one transaction for each slice of 5,000 lines. A slice is prepared while the database stores
    /// the one before.
    /// With \a whole, the caller's transaction, all slices are left in that, to be committed or not
    /// by the caller; the first one that could not be stored is in the result, and ends the work.
    /// Visits then go on from what is stored, and not from the lines before. \a observe, when
    /// given, is called for each line before the next one is asked for.
    Result ingest(int siteId, const QString &siteHost, const LineSource &nextLine,
        db::Transaction *whole = nullptr, const LineObserver &observe = {});

    /// Imports lines that are all there, slice by slice.
    Result ingest(int siteId, const QString &siteHost, const QList<QByteArray> &lines);

    /// The lines of the current or last ingest(), counted from its first one, that are settled:
    /// stored, or lost. Blank lines count.
    qint64 linesDone() const { return m_linesDone; }

    /// Recomputes the report lines of \a days. Before each \a progress is told, in days.
    static void rollup(
        int siteId, const QSet<QDate> &days, const ProgressCallback &progress = ignoreProgress);

private:
    struct Slice;

    Slice readSlice(RowBuilder &builder, const LineSource &nextLine, const LineObserver &observe);
    void takeUpVisits(int siteId, const QDateTime &from);
    void complete(QList<Row> &rows, const db::Transaction &transaction, QString *cause);

    QByteArray m_secret;
    Visits m_visits;
    Countries m_countries;
    qint64 m_linesDone = 0;
    HitWriter m_writer;
};

} // namespace vesk::analytics
