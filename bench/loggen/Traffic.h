#pragma once

#include <cstdint>
#include <ctime>
#include <string>

using Seconds = std::time_t; ///< since 1970, UTC

inline constexpr Seconds kDay = 86400;

struct Options
{
    std::int64_t lines = 100000;
    std::uint64_t seed = 1;
    int days = 3;
    Seconds start = 0;
    std::string host = "example.org";
};

/// Writes the log to standard output, which the caller checks for errors.
void writeTraffic(const Options &options);
