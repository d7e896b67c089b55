#pragma once

#include <QDate>
#include <QList>
#include <QStringList>

#include <optional>

namespace vesk::nightly {

/// A day of a site with requests that are stored. Beacons are stored like requests, but a report
/// does not count them as such.
struct OldDay
{
    QDate day;
    qint64 rows = 0; ///< requests and beacons
    qint64 requests = 0;
    std::optional<qint64> reported; ///< requests that the report counts
    bool isQueued = false; ///< to be rolled up
    bool isBegun = false; ///< requests of it were deleted by this program
    bool hasFigures = false; ///< of all requests that the report counts

    /// Whether the report counts all that are stored.
    bool isCounted() const { return reported && *reported >= requests; }
};

struct Days
{
    QDate first;
    QDate last;
};

/// What is stored of a site from before the day \a border. All functions report failed statements
/// as db::exec() does, unless they say otherwise, and then return false or nothing.
class OldRequests
{
public:
    OldRequests(int siteId, QDate border)
        : m_siteId(siteId)
        , m_border(border)
    {
    }

    /// The days that have something stored, in order.
    std::optional<QList<OldDay>> days() { return days({ QDate(1, 1, 1), m_border.addDays(-1) }); }
    /// Those among \a days.
    std::optional<QList<OldDay>> days(const Days &days);

    /// Notes that requests of a day are deleted, so that it is not rolled up any more.
    bool begin(QDate day);
    /// Deletes what is stored of a day, and gives how much that was: nothing at all when it is not
    /// as much as \a day says.
    std::optional<qint64> remove(const OldDay &day);

    /// The partitions of the table of requests that lie before the border, by their quoted names,
    /// as far as they may be dropped.
    std::optional<QStringList> partitions();
    /// Keeps a partition from being written to until the end of the transaction. False, without a
    /// report, when it is being written to.
    bool lock(const QString &partition);

    struct Share
    {
        bool isAll = false; ///< other sites have nothing there
        qint64 rows = 0;
        std::optional<Days> days; ///< of the first and the last row
    };
    /// What the site has in a partition.
    std::optional<Share> share(const QString &partition);
    /// False, without a report, when the table of requests is in use.
    bool drop(const QString &partition);

private:
    int m_siteId;
    QDate m_border;
};

/// The first day that is not older than the setting raw_hit_days says. Nothing, after a message,
/// when that is no number of days.
std::optional<QDate> firstKeptDay();

} // namespace vesk::nightly
