#pragma once

#include <QDate>
#include <QList>
#include <QMap>
#include <QString>

#include <optional>

/// Whether all is well with a site, judged by plain values.
namespace vesk::report {

enum class Level { Fine, Warning, Critical };

/// What is wrong with a site.
struct Finding
{
    QString kind; ///< the name in JSON
    Level level = Level::Warning;
    QString text; ///< as stored: it may quote what a stranger sent
};

/// How the last run of vesk-nightly for a site ended.
struct Night
{
    QDate day; ///< when it ended
    QDate failingSince; ///< when the first of the runs that failed since a good one did; null when
                        ///< none
    QString complaint; ///< the first thing that the last run said was wrong
};

/// What is known of a site, by which it is judged. Days are those of the configured time zone.
struct Facts
{
    QDate today;
    QDate added; ///< when the site was
    QDate newest; ///< the newest day with requests; null when there is none
    QDate complete; ///< the newest one whose log is known to be complete
    QMap<QDate, double> requests; ///< of the days up to the newest one that have some
    std::optional<double> errors; ///< requests of the complete day that got a status from 500 on
    bool nightsKnown = false; ///< whether the next two could be read
    std::optional<Night> night;
    QList<QDate> waiting; ///< days to be rolled up
};

/// From where on something is wrong, and where it is critical.
struct Limit
{
    double warning = 0;
    double critical = 0;

    Level levelOf(double value) const;
};

struct Limits
{
    Limit silentDays { 2, 7 }; ///< whole days without a request, beyond the usual pause
    Limit errorShare { 0.05, 0.25 }; ///< server errors, as a part of the requests of a day
    Limit factor { 10, 100 }; ///< requests of a day against the usual ones of its weekday
    Limit nights { 1, 3 }; ///< nights that failed or did not come, one after the other
};

/// How many days before the newest one of a site judge() looks at.
inline constexpr int kJudgedDays = 64;

/// What is wrong, the worst first.
QList<Finding> judge(const Facts &facts, const Limits &limits);

/// The worst level among \a findings.
Level worst(const QList<Finding> &findings);

} // namespace vesk::report
