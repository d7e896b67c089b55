#include "analytics/Ingest.h"

#include "common/Db.h"

#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

#include <utility>

namespace vesk::analytics {

namespace {

constexpr int kSliceLines = 5000;

/// Ends a slice of long lines early, so that memory stays bounded whatever a log holds.
constexpr qsizetype kSliceBytes = qsizetype { 8 } * 1024 * 1024;

constexpr int kPollLines = 100;

constexpr qint64 kSessionGapSeconds = 1800; // the longest gap that continues a visit
constexpr qint64 kMsecsPerSecond = 1000;
constexpr qsizetype kMaxSessions = 50000;
constexpr qsizetype kMaxCountries = 200000;

/// Collects the local calendar days of request times, which mostly come in order.
class LocalDays
{
public:
    void add(const QDateTime &at)
    {
        const qint64 msecs = at.toMSecsSinceEpoch();
        if (msecs >= m_from && msecs < m_to)
            return;
        const QDate day = at.toLocalTime().date();
        m_from = day.startOfDay().toMSecsSinceEpoch();
        m_to = day.addDays(1).startOfDay().toMSecsSinceEpoch();
        m_days.insert(day);
    }

    const QSet<QDate> &days() const { return m_days; }

private:
    QSet<QDate> m_days;
    qint64 m_from = 0; ///< milliseconds since 1970 where the last day begins
    qint64 m_to = 0; ///< and where it ends
};

void notify(int siteId)
{
    QSqlQuery q;
    q.prepare(QStringLiteral("SELECT pg_notify('vesk_hits', ?)"));
    q.addBindValue(QString::number(siteId));
    db::exec(q);
}

bool rollUp(int siteId, QDate day)
{
    QSqlQuery q;
    q.prepare(QStringLiteral("SELECT vesk.rollup_day(?, ?)"));
    q.addBindValue(siteId);
    q.addBindValue(day);
    return db::exec(q);
}

} // namespace

/// The rows and counts of up to kSliceLines lines.
struct Ingest::Slice
{
    QList<Row> rows;
    Result counts; ///< all but the stored rows
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
    q.exec(QStringLiteral("SELECT EXISTS (SELECT 1 FROM vesk.geo_country)"));
    m_haveGeo = q.next() && q.value(0).toBool();
    return true;
}

Ingest::Result Ingest::ingest(int siteId, const QString &siteHost, const LineSource &nextLine)
{
    RowBuilder builder(m_secret, siteId, siteHost);
    Result total;
    m_linesDone = 0;
    Slice slice = readSlice(builder, nextLine);
    while (slice.size > 0) {
        const bool hasRows = !slice.rows.isEmpty();
        db::Transaction transaction;
        QString cause = transaction.error();
        numberSessions(slice.rows, transaction.isOpen(), &cause);
        if (transaction.isOpen())
            assignCountries(slice.rows);
        if (transaction.isOpen())
            m_writer.send(siteId, slice.rows);
        slice.rows.clear();
        pruneSessions();
        Slice next = readSlice(builder, nextLine);
        const int stored = m_writer.finish();
        if (!transaction.commit() && hasRows)
            total.lost.append({ m_linesDone + 1, m_linesDone + slice.lastUsed, cause });
        m_linesDone += slice.size;
        if (stored > 0)
            notify(siteId);

        total.lines += slice.counts.lines;
        total.stored += stored;
        total.skipped += slice.counts.skipped;
        total.days.unite(slice.counts.days);
        slice = std::move(next);
    }
    return total;
}

/// Prepares the rows of the next slice, and lets the writer go on with what it has.
Ingest::Slice Ingest::readSlice(RowBuilder &builder, const LineSource &nextLine)
{
    Slice slice;
    LocalDays days;
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
        if (outcome != RowBuilder::Outcome::Blank) {
            ++slice.counts.lines;
            slice.lastUsed = slice.size;
        }
        slice.counts.skipped += outcome == RowBuilder::Outcome::NotAnEntry;
        if (outcome == RowBuilder::Outcome::Row) {
            days.add(row.log.at);
            row.session = sessionFor(row.visitor, row.log.at);
            slice.rows.append(std::move(row));
        }
        if (slice.size % kPollLines == 0)
            m_writer.poll();
    }
    slice.counts.days = days.days();
    return slice;
}

qint64 Ingest::sessionFor(const QByteArray &visitor, const QDateTime &at)
{
    Session &session = m_sessions[visitor];
    if (session.id == 0 || session.last.secsTo(at) > kSessionGapSeconds) {
        m_newVisits.append(visitor);
        session.id = -m_newVisits.size();
    }
    if (!session.last.isValid())
        m_idle.emplace(at.toMSecsSinceEpoch(), visitor);
    if (!session.last.isValid() || at > session.last)
        session.last = at;
    return session.id;
}

/// Puts the numbers of new visits in the place of their placeholders.
void Ingest::numberSessions(QList<Row> &rows, bool connected, QString *error)
{
    const QList<qint64> numbers = drawSessions(connected, error);
    for (Row &row : rows) {
        if (row.session < 0)
            row.session = numbers[-row.session - 1];
    }
}

/// Draws the numbers of all new visits, in their order, in one statement, and enters them into
/// m_sessions. When that fails, with the reason in \a error, they are all 0, and a visitor's next
/// request asks again.
QList<qint64> Ingest::drawSessions(bool connected, QString *error)
{
    const QList<QByteArray> visitors = std::exchange(m_newVisits, {});
    QList<qint64> numbers;
    numbers.reserve(visitors.size());
    if (connected && !visitors.isEmpty()) {
        QSqlQuery q;
        if (!q.exec(QStringLiteral("SELECT nextval('vesk.session_seq') FROM generate_series(1, %1)")
                        .arg(visitors.size())))
            *error = db::presentable(q.lastError());
        while (q.next())
            numbers.append(q.value(0).toLongLong());
    }
    numbers.resize(visitors.size());
    for (qsizetype i = 0; i < visitors.size(); ++i)
        m_sessions[visitors[i]].id = numbers[i];
    return numbers;
}

/// Looks all addresses that are not remembered up in one statement: the range with the greatest
/// start not above the address holds it, unless it ends below.
void Ingest::assignCountries(QList<Row> &rows)
{
    if (!m_haveGeo)
        return;
    QHash<QString, QString> found;
    for (Row &row : rows) {
        const auto known = m_countries.constFind(row.ip);
        if (known != m_countries.constEnd())
            row.country = *known;
        else if (!row.ip.isEmpty())
            found.insert(row.ip, {});
    }
    if (found.isEmpty())
        return;

    QSqlQuery q;
    q.prepare(QStringLiteral(
        "SELECT a.ip, g.country FROM unnest(CAST(? AS text[])) AS a (ip) CROSS JOIN LATERAL ("
        "SELECT country, ip_to FROM vesk.geo_country WHERE ip_from <= CAST(a.ip AS inet) "
        "ORDER BY ip_from DESC LIMIT 1) g WHERE g.ip_to >= CAST(a.ip AS inet)"));
    q.addBindValue(u'{' + found.keys().join(u',') + u'}'); // addresses need no quoting
    if (db::exec(q)) {
        while (q.next())
            found[q.value(0).toString()] = q.value(1).toString();
    }
    for (Row &row : rows) {
        const auto country = found.constFind(row.ip);
        if (country != found.constEnd())
            row.country = *country;
    }
    for (auto it = found.cbegin(); it != found.cend(); ++it) {
        if (m_countries.size() > kMaxCountries)
            m_countries.clear();
        m_countries.insert(it.key(), it.value());
    }
}

/// Forgets the visits that nothing can continue any more, once there are many. Those that went on
/// since they were queued are queued anew, so the table is never searched as a whole.
void Ingest::pruneSessions()
{
    if (m_sessions.size() <= kMaxSessions)
        return;
    const qint64 cutoff
        = QDateTime::currentMSecsSinceEpoch() - kSessionGapSeconds * kMsecsPerSecond;
    while (!m_idle.empty() && m_idle.top().first < cutoff) {
        const QByteArray visitor = m_idle.top().second;
        m_idle.pop();
        const auto session = m_sessions.constFind(visitor);
        const qint64 last = session->last.toMSecsSinceEpoch();
        if (last < cutoff)
            m_sessions.erase(session);
        else
            m_idle.emplace(last, visitor);
    }
}

void Ingest::rollup(int siteId, const QSet<QDate> &days, const ProgressCallback &progress)
{
    qint64 done = 0;
    for (const QDate day : days) {
        progress(QLatin1String("days"), done++, days.size());
        if (!rollUp(siteId, day) && db::reopenIfLost())
            rollUp(siteId, day);
    }
}

} // namespace vesk::analytics
