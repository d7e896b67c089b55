#pragma once

// Chance that falls the same way on every machine: the generator is our own, and all arithmetic is
// done in integers.

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

/// Splitmix64. The distributions of the standard library differ between its makers.
class Random
{
public:
    explicit Random(std::uint64_t seed)
        : m_state(seed)
    {
    }

    std::uint64_t next()
    {
        std::uint64_t z = (m_state += 0x9e3779b97f4a7c15U);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9U;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebU;
        return z ^ (z >> 31);
    }

    /// A number from 0 to \a limit - 1; 0 when there is no choice.
    std::int64_t below(std::int64_t limit)
    {
        return limit < 2 ? 0
                         : static_cast<std::int64_t>(next() % static_cast<std::uint64_t>(limit));
    }

    std::int64_t between(std::int64_t low, std::int64_t high)
    {
        return low + below(high - low + 1);
    }

    /// A number from \a low to \a high, small ones far more often than large ones.
    std::int64_t skewed(std::int64_t low, std::int64_t high)
    {
        return low + below(below(high - low + 1) + 1);
    }

    bool chance(int permille) { return below(1000) < permille; }

    template <typename T, std::size_t N> const T &oneOf(const std::array<T, N> &list)
    {
        return list[static_cast<std::size_t>(below(static_cast<std::int64_t>(N)))];
    }

    template <typename T> const T &oneOf(const std::vector<T> &list)
    {
        return list[static_cast<std::size_t>(below(static_cast<std::int64_t>(list.size())))];
    }

    /// Picks an entry by its member `weight`.
    template <typename T, std::size_t N> const T &weighted(const std::array<T, N> &list)
    {
        std::int64_t sum = 0;
        for (const T &entry : list)
            sum += entry.weight;
        std::int64_t rest = below(sum);
        for (const T &entry : list) {
            rest -= entry.weight;
            if (rest < 0)
                return entry;
        }
        return list.back();
    }

private:
    std::uint64_t m_state;
};

/// Draws indexes whose frequency falls with their rank, as the popularity of pages does.
class Zipf
{
public:
    explicit Zipf(std::size_t size)
    {
        std::int64_t sum = 0;
        for (std::size_t rank = 0; rank < size; ++rank) {
            sum += 1000000 / static_cast<std::int64_t>(rank + 3);
            m_sums.push_back(sum);
        }
    }

    std::size_t draw(Random &random) const
    {
        const std::int64_t value = random.below(m_sums.back());
        const auto found = std::upper_bound(m_sums.begin(), m_sums.end(), value);
        return static_cast<std::size_t>(found - m_sums.begin());
    }

private:
    std::vector<std::int64_t> m_sums;
};

/// A number that stays the same for a text, so that a page keeps its size.
inline std::int64_t fixedFor(std::string_view text, std::int64_t low, std::int64_t high)
{
    std::uint64_t hash = 14695981039346656037U;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return low + static_cast<std::int64_t>(hash % static_cast<std::uint64_t>(high - low + 1));
}
