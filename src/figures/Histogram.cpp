#include "figures/Histogram.h"

#include <cmath>

namespace vesk::figures {

Histogram::Histogram(const QString &texts)
{
    quint64 number = 0;
    const auto add = [&] {
        m_requests[number % kBuckets] += number / kBuckets;
        m_total += number / kBuckets;
        number = 0;
    };
    for (const QChar letter : texts) {
        if (letter == u',')
            add();
        else
            number = 10 * number + letter.unicode() - u'0';
    }
    add();
}

double Histogram::percentile(unsigned percent) const
{
    quint64 done = 0;
    for (std::size_t bucket = 0; bucket < kBuckets && m_total > 0; ++bucket) {
        done += m_requests[bucket];
        if (100 * done >= percent * m_total)
            return bucket > 0 ? std::round(std::pow(1.05, double(bucket) - 0.5)) : 0;
    }
    return 0;
}

} // namespace vesk::figures
