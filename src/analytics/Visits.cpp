#include "analytics/Visits.h"

namespace vesk::analytics {

namespace {

constexpr qsizetype kMaxSessions = 50000;

} // namespace

QList<qint64> Visits::numbers(const QList<Request> &requests, const DrawNumbers &draw)
{
    QList<qint64> numbers;
    numbers.reserve(requests.size());
    QList<QByteArray> newVisitors; // whose visits go by -1, -2, ... until their numbers are drawn
    for (const auto &[visitor, at] : requests) {
        Session &session = m_sessions[visitor];
        if (!session.last.isValid())
            m_idle.emplace(at.toMSecsSinceEpoch(), visitor);
        if (session.id == 0 || session.last.secsTo(at) > kSessionGapSeconds)
            resume(session, { visitor, at });
        if (session.id == 0 || session.last.secsTo(at) > kSessionGapSeconds) {
            newVisitors.append(visitor);
            session.id = -newVisitors.size();
        }
        if (!session.last.isValid() || at > session.last)
            session.last = at;
        numbers.append(session.id);
    }
    if (newVisitors.isEmpty())
        return numbers;

    QList<qint64> drawn = draw(newVisitors.size());
    drawn.resize(newVisitors.size());
    for (qsizetype i = 0; i < drawn.size(); ++i)
        m_sessions[newVisitors[i]].id = drawn[i];
    for (qint64 &number : numbers) {
        if (number < 0)
            number = drawn[-number - 1];
    }
    return numbers;
}

/// Makes the latest stored visit that the request belongs to the visitor's current one.
void Visits::resume(Session &session, const Request &request) const
{
    for (auto it = m_stored.constFind(request.visitor);
         it != m_stored.cend() && it.key() == request.visitor; ++it) {
        const bool reaches = it->last.secsTo(request.at) <= kSessionGapSeconds
            && request.at.secsTo(it->first) <= kSessionGapSeconds;
        if (reaches && (!session.last.isValid() || session.last < it->last))
            session = { it->id, it->last };
    }
}

/// Visitors that came back since they were queued are queued anew, so the table is never searched
/// as a whole.
void Visits::prune(const QDateTime &now)
{
    if (m_sessions.size() <= kMaxSessions)
        return;
    const qint64 cutoff = now.addSecs(-kSessionGapSeconds).toMSecsSinceEpoch();
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

} // namespace vesk::analytics
