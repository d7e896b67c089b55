#include "analytics/Ingest.h"

#include "analytics/RollUp.h"
#include "common/Db.h"

#include <QSqlError>

#include <algorithm>
#include <limits>
#include <utility>

namespace vesk::analytics {

namespace {

constexpr int kSliceLines = 5000;

/// Ends a slice of long lines early, so that memory stays bounded whatever a log holds.
constexpr qsizetype kSliceBytes = qsizetype { 8 } * 1024 * 1024;

constexpr int kPollLines = 100;

/// Collects the local calendar days of request times, which mostly come in order, and the earliest
/// time.
class RequestTimes
{
public:
    void add(const QDateTime &at)
    {
        const qint64 msecs = at.toMSecsSinceEpoch();
        m_first = std::min(m_first, msecs);
        if (msecs >= m_from && msecs < m_to)
            return;
        const QDate day = at.toLocalTime().date();
        m_from = day.startOfDay().toMSecsSinceEpoch();
        m_to = day.addDays(1).startOfDay().toMSecsSinceEpoch();
        m_days.insert(day);
    }

    const QSet<QDate> &days() const { return m_days; }
    QDateTime first() const { return QDateTime::fromMSecsSinceEpoch(m_first, Qt::UTC); }

private:
    QSet<QDate> m_days;
    qint64 m_first = std::numeric_limits<qint64>::max(); ///< milliseconds since 1970
    qint64 m_from = 0; ///< milliseconds since 1970 where the last day begins
    qint64 m_to = 0; ///< and where it ends
};

/// Draws numbers for \a count visits; none, and the reason in \a error, when that fails.
QList<qint64> drawSessions(qsizetype count, QString *error)
{
    QSqlQuery q;
    if (!q.exec(QStringLiteral("SELECT nextval('vesk.session_seq') FROM generate_series(1, %1)")
                    .arg(count)))
        *error = db::presentable(q.lastError());
    QList<qint64> numbers;
    while (q.next())
        numbers.append(q.value(0).toLongLong());
    return numbers;
}

void notify(int siteId)
{
    db::run(QStringLiteral("SELECT pg_notify('vesk_hits', ?)"), { QString::number(siteId) });
}

} // namespace

/// The rows and counts of up to kSliceLines lines.
struct Ingest::Slice
{
    QList<Row> rows;
    Result counts; ///< all but the stored rows
    QDateTime first; ///< the earliest request of the rows; meaningless when there are none
    int size = 0; ///< lines, blank ones too; 0 after the end
    int lastUsed = 0; ///< number of the last line that is not blank
};

bool Ingest::init()
{
    QSqlQuery q;
    q.exec(QStringLiteral("SELECT value FROM vesk.settings WHERE key = 'visitor_secret'"));
    if (!q.next())
        return false;
    m_secret = q.value(0).toString().toLatin1();
    m_countries.init();
    return true;
}

QByteArray Ingest::visitorHash(
    int siteId, const QString &ip, const QByteArray &userAgent, QDate day) const
{
    return analytics::visitorHash(m_secret, siteId, ip, userAgent, day);
}

qint64 Ingest::sessionFor(const QByteArray &visitor, const QDateTime &at)
{
    QString error; // not reported
    const auto draw = [&error](qsizetype count) { return drawSessions(count, &error); };
    return m_visits.numbers({ { visitor, at } }, draw).first();
}

QString Ingest::country(const QString &ip)
{
    return m_countries.of(ip);
}

Ingest::Result Ingest::ingest(int siteId, const QString &siteHost, const QList<QByteArray> &lines)
{
    return ingest(siteId, siteHost, [&lines, i = qsizetype { 0 }]() mutable {
        return i < lines.size() ? std::optional<QByteArrayView>(lines[i++]) : std::nullopt;
    });
}

Ingest::Result Ingest::ingest(int siteId, const QString &siteHost, const LineSource &nextLine,
    db::Transaction *whole, const LineObserver &observe)
{
    RowBuilder builder(m_secret, siteId, siteHost);
    Result total;
    m_linesDone = 0;
    bool hasVisits = !whole;
    Slice slice = readSlice(builder, nextLine, observe);
    while (slice.size > 0) {
        const qsizetype rows = slice.rows.size();
        if (rows > 0 && !std::exchange(hasVisits, true))
            takeUpVisits(siteId, slice.first);
        std::optional<db::Transaction> own;
        db::Transaction &transaction = whole ? *whole : own.emplace(db::Transaction::Keep);
        QString cause = transaction.error();
        complete(slice.rows, transaction, &cause);
        if (transaction.isOpen())
            m_writer.send(siteId, slice.rows,
                whole ? db::StatementStream::ReportFirst : db::StatementStream::ReportEach);
        slice.rows.clear();
        m_visits.prune(QDateTime::currentDateTimeUtc());
        Slice next = readSlice(builder, nextLine, observe);
        const int stored = m_writer.finish();
        const bool kept = whole ? transaction.isOpen() && stored == rows : transaction.commit();
        if (!kept && rows > 0)
            total.lost.append({ m_linesDone + 1, m_linesDone + slice.lastUsed, cause });
        m_linesDone += slice.size;
        if (stored > 0 && (kept || !whole))
            notify(siteId);

        total.lines += slice.counts.lines;
        total.stored += stored;
        total.skipped += slice.counts.skipped;
        total.days.unite(slice.counts.days);
        if (whole && !total.lost.isEmpty())
            break; // nothing of it will be kept
        slice = std::move(next);
    }
    return total;
}

/// Prepares the rows of the next slice, and lets the writer go on with what it has.
Ingest::Slice Ingest::readSlice(
    RowBuilder &builder, const LineSource &nextLine, const LineObserver &observe)
{
    Slice slice;
    RequestTimes times;
    slice.rows.reserve(kSliceLines);
    qsizetype bytes = 0;
    while (slice.size < kSliceLines && bytes < kSliceBytes) {
        const std::optional<QByteArrayView> line = nextLine();
        if (!line)
            break;
        ++slice.size;
        bytes += line->size();
        Row row;
        const RowBuilder::Outcome outcome = builder.build(*line, row);
        if (observe)
            observe(outcome, row);
        if (outcome != RowBuilder::Outcome::Blank) {
            ++slice.counts.lines;
            slice.lastUsed = slice.size;
        }
        slice.counts.skipped += outcome == RowBuilder::Outcome::NotAnEntry;
        if (outcome == RowBuilder::Outcome::Row) {
            times.add(row.log.at);
            slice.rows.append(std::move(row));
        }
        if (slice.size % kPollLines == 0)
            m_writer.poll();
    }
    slice.counts.days = times.days();
    slice.first = times.first();
    return slice;
}

/// Starts from the visits that are stored: the one of a visitor ends within the UTC day that its
/// hash is of.
void Ingest::takeUpVisits(int siteId, const QDateTime &from)
{
    m_visits = {};
    auto q = db::run(
        QStringLiteral("SELECT visitor, session_id, (extract(epoch FROM min(at)) * 1000)::bigint,"
                       " (extract(epoch FROM max(at)) * 1000)::bigint FROM vesk.hits"
                       " WHERE site_id = ? AND at >= ? AND at < ? AND session_id > 0"
                       " GROUP BY visitor, session_id"),
        { siteId, from.addSecs(-Visits::kSessionGapSeconds), from.addDays(1) });
    while (q && q->next())
        m_visits.takeUp(q->value(0).toByteArray(),
            { q->value(1).toLongLong(),
                QDateTime::fromMSecsSinceEpoch(q->value(2).toLongLong(), Qt::UTC),
                QDateTime::fromMSecsSinceEpoch(q->value(3).toLongLong(), Qt::UTC) });
}

/// Gives the rows what only the database knows: the numbers of their visits, with the reason in
/// \a cause when none could be drawn, and their countries.
void Ingest::complete(QList<Row> &rows, const db::Transaction &transaction, QString *cause)
{
    QList<Visits::Request> requests;
    requests.reserve(rows.size());
    QSet<QString> addresses;
    for (const Row &row : rows) {
        requests.append({ row.visitor, row.log.at });
        addresses.insert(row.ip);
    }
    const QList<qint64> sessions = m_visits.numbers(requests, [&](qsizetype count) {
        return transaction.isOpen() ? drawSessions(count, cause) : QList<qint64>();
    });
    if (!transaction.isOpen())
        return;
    m_countries.lookUp(addresses);
    for (qsizetype i = 0; i < rows.size(); ++i) {
        rows[i].session = sessions[i];
        rows[i].country = country(rows[i].ip);
    }
}

void Ingest::rollup(int siteId, const QSet<QDate> &days, const ProgressCallback &progress)
{
    qint64 done = 0;
    for (const QDate day : days) {
        progress(QLatin1String("days"), done++, days.size());
        if (!rollUpDay(siteId, day) && db::reopenIfLost())
            rollUpDay(siteId, day);
    }
}

} // namespace vesk::analytics
