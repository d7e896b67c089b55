#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>

#include <functional>
#include <queue>
#include <utility>
#include <vector>

namespace vesk::analytics {

/// Tells visits apart. A visit is a run of requests of one visitor with no gap of more than half an
/// hour since the latest of them, whatever the order in which they come.
class Visits
{
public:
    struct Request
    {
        QByteArray visitor; ///< visitor hash
        QDateTime at; ///< UTC
    };

    /// The longest gap that continues a visit.
    static constexpr qint64 kSessionGapSeconds = 1800;

    /// A visit that is stored already. Times are UTC.
    struct Stored
    {
        qint64 id;
        QDateTime first;
        QDateTime last;
    };

    /// Has a request of \a visitor that would begin a visit continue \a stored, when that is within
    /// half an hour.
    void takeUp(const QByteArray &visitor, const Stored &stored)
    {
        m_stored.insert(visitor, stored);
    }

    /// Draws numbers for that many new visits, or fewer when it cannot.
    using DrawNumbers = std::function<QList<qint64>(qsizetype count)>;

    /// The number of the visit of each request, in the order of \a requests. Numbers of new visits
    /// are drawn at once, in the order in which the visits begin. Those that could not be drawn are
    /// 0, and the next call draws again for such a visitor.
    QList<qint64> numbers(const QList<Request> &requests, const DrawNumbers &draw);

    /// Once there are many visitors, forgets those whose latest request is older than half an hour
    /// before \a now.
    void prune(const QDateTime &now);

private:
    struct Session
    {
        qint64 id = 0; ///< 0 none yet
        QDateTime last; ///< UTC, the latest request seen
    };
    void resume(Session &session, const Request &request) const;

    using IdleSince = std::pair<qint64, QByteArray>; ///< milliseconds since 1970, visitor hash

    QHash<QByteArray, Session> m_sessions; ///< by visitor hash
    QMultiHash<QByteArray, Stored> m_stored; ///< likewise
    /// Each visitor once, by a time of its session that may be outdated: the earliest is on top.
    std::priority_queue<IdleSince, std::vector<IdleSince>, std::greater<>> m_idle;
};

} // namespace vesk::analytics
