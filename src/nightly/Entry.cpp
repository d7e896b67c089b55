#include "nightly/Entry.h"

#include <algorithm>

namespace vesk::nightly {

void Span::add(qint64 at)
{
    first = std::min(first.value_or(at), at);
    last = std::max(last.value_or(at), at);
}

void Span::unite(const Span &other)
{
    for (const auto &at : { other.first, other.last }) {
        if (at)
            add(*at);
    }
}

} // namespace vesk::nightly
