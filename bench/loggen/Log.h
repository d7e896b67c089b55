#pragma once

#include "Clients.h"
#include "Traffic.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <map>
#include <string>
#include <string_view>

struct Request
{
    std::string_view target;
    std::int64_t bytes = 0; ///< 0 is logged as "-"
    std::int64_t micros = 0;
    std::string_view referrer = "-";
    int status = 200;
    std::string_view method = "GET";
};

/// Collects lines and writes them in the order of their times.
class Log
{
public:
    explicit Log(std::int64_t limit)
        : m_limit(limit)
    {
    }

    std::int64_t count() const { return m_count; }

    /// Lines beyond the limit are dropped.
    bool full() const { return m_count >= m_limit; }

    void add(Seconds at, const Client &client, const Request &request)
    {
        if (full())
            return;
        append(begin(at, client.ip), request.method, " ", request.target, " ", client.protocol,
            "\" ", std::to_string(request.status), " ",
            request.bytes > 0 ? std::to_string(request.bytes) : "-", " \"", request.referrer,
            "\" \"", client.userAgent, "\" ", std::to_string(request.micros), "\n");
    }

    /// Adds a line whose request is \a request and that has no referrer and no user agent.
    void addBare(
        Seconds at, std::string_view ip, std::string_view request, int status, std::int64_t micros)
    {
        if (full())
            return;
        append(begin(at, ip), request, "\" ", std::to_string(status), " 226 \"-\" \"-\" ",
            std::to_string(micros), "\n");
    }

    /// Adds \a line as it is.
    void addRaw(Seconds at, std::string_view line)
    {
        if (full())
            return;
        ++m_count;
        append(m_pending[at], line, "\n");
    }

    /// Writes all lines from before \a now; none may be added for those seconds afterwards.
    void writeUntil(Seconds now)
    {
        const auto end = m_pending.lower_bound(now);
        for (auto second = m_pending.begin(); second != end; ++second)
            m_ready += second->second;
        m_pending.erase(m_pending.begin(), end);
        if (m_ready.size() > kBufferBytes)
            flush();
    }

    void flush()
    {
        std::fwrite(m_ready.data(), 1, m_ready.size(), stdout);
        m_ready.clear();
    }

private:
    static constexpr std::size_t kBufferBytes = 1U << 20;

    template <typename... Part> static void append(std::string &text, const Part &...parts)
    {
        (text.append(parts), ...);
    }

    /// Starts a line up to the opening quote of its request.
    std::string &begin(Seconds at, std::string_view ip)
    {
        ++m_count;
        std::array<char, 32> time;
        std::tm utc;
        std::strftime(time.data(), time.size(), "%d/%b/%Y:%T +0000", ::gmtime_r(&at, &utc));
        std::string &text = m_pending[at];
        append(text, ip, " - - [", time.data(), "] \"");
        return text;
    }

    std::int64_t m_limit;
    std::int64_t m_count = 0;
    std::map<Seconds, std::string> m_pending;
    std::string m_ready;
};
