#pragma once

#include <QString>

#include <array>

namespace vesk::figures {

/// How long the answers to a path took, as requests of each bucket. sql/durations.sql makes the
/// buckets and writes them as text.
class Histogram
{
public:
    /// The sum of the histograms whose texts are joined by commas.
    explicit Histogram(const QString &texts);

    /// The microseconds that \a percent of the requests did not exceed: the middle of a bucket, by
    /// ratio, and so at most 2.5 % off. 0 without requests.
    double percentile(unsigned percent) const;

private:
    static constexpr std::size_t kBuckets = 512;

    std::array<quint64, kBuckets> m_requests {};
    quint64 m_total = 0;
};

} // namespace vesk::figures
