#include "report/SlowPaths.h"

#include "figures/Histogram.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <tuple>

namespace vesk::report {

namespace {

struct SlowPath
{
    QByteArray path; ///< UTF-8, by which those are ordered that are equal otherwise
    double percentile95;
    double median;
    double longest;
    double requests;

    friend bool operator<(const SlowPath &one, const SlowPath &other)
    {
        return std::tie(other.percentile95, other.requests, one.path)
            < std::tie(one.percentile95, one.requests, other.path);
    }
};

} // namespace

void readSlowPaths(Task &task, const QString &sql, const Bindings &more, Lines &lines)
{
    if (task.failed)
        return;
    std::set<SlowPath> slowest;
    qint64 total = 0;
    Statement paths(sql, task.bindingsWith(more));
    for (; paths.next(); ++total) {
        const figures::Histogram durations(paths.text("histograms"));
        const double longest = paths.number("longest");
        slowest.insert({ paths.text("path").toUtf8(), std::min(durations.percentile(95), longest),
            std::min(durations.percentile(50), longest), longest, paths.number("requests") });
        if (qint64(slowest.size()) > task.options.rows)
            slowest.erase(std::prev(slowest.end()));
    }
    task.failed |= paths.failed();
    for (const SlowPath &one : slowest)
        lines[ListId::SlowPaths] += Line { QString::fromUtf8(one.path), {},
            { one.percentile95, one.median, one.longest, one.requests }, {}, total };
}

} // namespace vesk::report
