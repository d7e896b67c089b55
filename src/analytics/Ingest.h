#pragma once

#include "analytics/HitWriter.h"
#include "analytics/RowBuilder.h"
#include "common/ProgressCallback.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QDate>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>

#include <functional>
#include <optional>
#include <queue>
#include <utility>
#include <vector>

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

    /// Reads from the database what the import needs. False when it has no visitor secret.
    bool init();

    /// Imports the lines for the site with id \a siteId and the lower-case host name \a siteHost,
    /// one transaction for each slice of 5,000 lines. A slice is prepared while the database stores
    /// the one before.
    Result ingest(int siteId, const QString &siteHost, const LineSource &nextLine);

    /// The lines of the current or last ingest(), counted from its first one, that are settled:
    /// stored, or lost. Blank lines count.
    qint64 linesDone() const { return m_linesDone; }

    /// Recomputes the report lines of \a days. Before each \a progress is told, in days.
    static void rollup(
        int siteId, const QSet<QDate> &days, const ProgressCallback &progress = ignoreProgress);

private:
    struct Session
    {
        qint64 id = 0; ///< 0 none yet, negative a placeholder
        QDateTime last; ///< UTC, the latest request seen
    };
    using IdleSince = std::pair<qint64, QByteArray>; ///< milliseconds since 1970, visitor hash
    struct Slice;

    Slice readSlice(RowBuilder &builder, const LineSource &nextLine);
    /// The visit of a request by \a visitor: its number, or a negative placeholder when a new visit
    /// begins, whose number drawSessions() will draw.
    qint64 sessionFor(const QByteArray &visitor, const QDateTime &at);
    void numberSessions(QList<Row> &rows, bool connected, QString *error);
    void assignCountries(QList<Row> &rows);
    QList<qint64> drawSessions(bool connected, QString *error);
    void pruneSessions();

    QByteArray m_secret;
    QHash<QByteArray, Session> m_sessions; ///< by visitor hash
    /// Each visitor once, by a time of its session that may be outdated: the earliest is on top.
    std::priority_queue<IdleSince, std::vector<IdleSince>, std::greater<>> m_idle;
    QList<QByteArray> m_newVisits; ///< visitors whose session is the placeholder -1, -2, ...
    QHash<QString, QString> m_countries; ///< by address as logged; empty where none is known
    bool m_haveGeo = false;
    qint64 m_linesDone = 0;
    HitWriter m_writer;
};

} // namespace vesk::analytics
