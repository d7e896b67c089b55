#include "report/Judgement.h"

#include "common/Text.h"
#include "report/Format.h"
#include "report/Period.h"

#include <QLocale>

#include <algorithm>

namespace vesk::report {

namespace {

constexpr int kWeeks = 8; ///< whose weekdays tell what is usual
constexpr qsizetype kLeastWeeks = 3;
constexpr double kLeastRequests = 100; ///< a day with fewer is not compared with another such day
constexpr double kLeastErrors = 10;

void add(QList<Finding> &findings, const char *kind, Level level, const QString &text)
{
    if (level != Level::Fine)
        findings += Finding { QLatin1String(kind), level, text };
}

/// The most whole days without a request between two with some, but for the longest such pause,
/// which may have been the last thing that was wrong.
qint64 usualPause(const QMap<QDate, double> &requests)
{
    QList<qint64> pauses { 0, 0 };
    QDate before;
    for (auto day = requests.keyBegin(); day != requests.keyEnd(); ++day) {
        if (before.isValid())
            pauses += before.daysTo(*day) - 1;
        before = *day;
    }
    std::sort(pauses.begin(), pauses.end());
    return pauses[pauses.size() - 2];
}

void judgeSilence(const Facts &facts, const Limits &limits, QList<Finding> &findings)
{
    const bool isNew = facts.newest.isNull();
    const QDate last = isNew ? facts.added : facts.newest;
    const auto days = double(last.daysTo(facts.today) - 1); // of today nothing is known yet
    const QString since = isNew ? QStringLiteral("it was added on ") : QString();
    add(findings, "silent", limits.silentDays.levelOf(days - double(usualPause(facts.requests))),
        QStringLiteral("no requests for %1, since %2%3")
            .arg(counted(qint64(days), QStringLiteral("day")), since, dayName(last)));
}

void judgeErrors(const Facts &facts, const Limits &limits, QList<Finding> &findings)
{
    const double requests = facts.requests.value(facts.complete);
    const double errors = facts.errors.value_or(0);
    if (errors < kLeastErrors || requests <= 0)
        return;
    add(findings, "errors", limits.errorShare.levelOf(errors / requests),
        QStringLiteral("%1 of %2 requests on %3 were server errors")
            .arg(grouped(errors), grouped(requests), dayName(facts.complete)));
}

/// The median of the requests on the weekdays of \a day in the weeks before it. Nothing when too
/// few are known.
std::optional<double> usualRequests(const QMap<QDate, double> &requests, QDate day)
{
    QList<double> known;
    for (int week = 1; week <= kWeeks; ++week) {
        const QDate earlier = day.addDays(-7LL * week);
        if (earlier >= requests.firstKey())
            known += requests.value(earlier);
    }
    if (known.size() < kLeastWeeks)
        return {};
    std::sort(known.begin(), known.end());
    const qsizetype middle = known.size() / 2;
    return known.size() % 2 == 1 ? known[middle] : (known[middle - 1] + known[middle]) / 2;
}

/// Judges the day before the newest one, also when it had no request at all.
void judgeRequests(const Facts &facts, const Limits &limits, QList<Finding> &findings)
{
    if (facts.newest.isNull() || facts.complete == facts.newest)
        return;
    const QDate day = facts.newest.addDays(-1);
    const auto usual = usualRequests(facts.requests, day);
    const double now = facts.requests.value(day);
    if (!usual || std::max(now, *usual) < kLeastRequests)
        return;
    const auto [few, many] = std::minmax({ std::max(now, 1.0), std::max(*usual, 1.0) });
    add(findings, "requests", limits.factor.levelOf(many / few),
        QStringLiteral("%1 on %2, and usually %3 on a %4")
            .arg(counted(qint64(now), QStringLiteral("request")), dayName(day), grouped(*usual),
                QLocale::c().dayName(day.dayOfWeek())));
}

void judgeNights(const Facts &facts, const Limits &limits, QList<Finding> &findings)
{
    if (!facts.night) // the site is imported otherwise, or its first night is to come
        return;
    const Night &night = *facts.night;
    const qint64 missed = night.day.daysTo(facts.today) - 1; // today's may be to come
    if (missed > 0)
        add(findings, "night", limits.nights.levelOf(double(missed)),
            QStringLiteral("no import by vesk-nightly since %1").arg(dayName(night.day)));
    if (night.failingSince.isNull())
        return;
    const qint64 failed = night.failingSince.daysTo(night.day) + 1;
    QString text = failed > 1
        ? QStringLiteral("the imports since %1 failed").arg(dayName(night.failingSince))
        : QStringLiteral("the import of %1 failed").arg(dayName(night.day));
    if (!night.complaint.isEmpty())
        text += QLatin1String(": ") + night.complaint;
    add(findings, "night", limits.nights.levelOf(double(failed)), text);
}

/// Days wait while a run goes on, too, so they only count next to a night in which something was
/// wrong, or where nothing is known of nights.
void judgeWaiting(const Facts &facts, QList<Finding> &findings)
{
    const bool isFine = facts.night
        && std::none_of(findings.begin(), findings.end(),
            [](const Finding &finding) { return finding.kind == QLatin1String("night"); });
    if (!facts.waiting.isEmpty() && !isFine)
        add(findings, "waiting", Level::Warning,
            QStringLiteral("to be rolled up: ") + daysName(facts.waiting));
}

} // namespace

Level Limit::levelOf(double value) const
{
    return value >= critical ? Level::Critical : value >= warning ? Level::Warning : Level::Fine;
}

QList<Finding> judge(const Facts &facts, const Limits &limits)
{
    QList<Finding> findings;
    judgeSilence(facts, limits, findings);
    judgeNights(facts, limits, findings);
    judgeErrors(facts, limits, findings);
    judgeRequests(facts, limits, findings);
    judgeWaiting(facts, findings);
    std::stable_sort(findings.begin(), findings.end(),
        [](const Finding &a, const Finding &b) { return a.level > b.level; });
    return findings;
}

Level worst(const QList<Finding> &findings)
{
    Level level = Level::Fine;
    for (const Finding &finding : findings)
        level = std::max(level, finding.level);
    return level;
}

} // namespace vesk::report
