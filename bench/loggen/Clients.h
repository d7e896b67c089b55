#pragma once

#include "Chance.h"
#include "Words.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct Client
{
    std::string ip;
    std::string userAgent;
    std::string_view protocol = "HTTP/2.0";
};

inline bool isPublic(std::int64_t first, std::int64_t second)
{
    return first > 0 && first < 224 && first != 10 && first != 127 && first != 192 && first != 198
        && first != 203 && !(first == 100 && second >= 64 && second < 128)
        && !(first == 169 && second == 254) && !(first == 172 && second >= 16 && second < 32);
}

/// In lower case.
inline std::string hex(std::int64_t number)
{
    std::array<char, 16> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr;
    return { digits.data(), end };
}

/// Hands out clients. Addresses come from networks all over the public address space, some of
/// them far larger than others, so that a report by country has its usual long tail.
class Clients
{
public:
    explicit Clients(Random &random)
        : m_random(random)
        , m_rank(kNetworks)
    {
        while (m_networks.size() < kNetworks)
            m_networks.push_back(network());
    }

    /// A new address.
    std::string address() { return host(m_networks[m_rank.draw(m_random)]); }

    /// An address that lies in the same network whenever \a owner is the same.
    std::string addressOf(std::string_view owner)
    {
        const auto last = static_cast<std::int64_t>(kNetworks) - 1;
        return host(m_networks[static_cast<std::size_t>(fixedFor(owner, 0, last))]);
    }

    Client browser()
    {
        return { address(), expand(m_random.weighted(kBrowsers).text),
            m_random.chance(850) ? "HTTP/2.0" : "HTTP/1.1" };
    }

    /// \a pattern with its words in braces replaced. A version that is named twice stays the same.
    std::string expand(std::string_view pattern)
    {
        std::string text;
        std::string current;
        std::string_view last;
        while (true) {
            const std::size_t open = pattern.find('{');
            text += pattern.substr(0, open);
            if (open == std::string_view::npos)
                return text;
            const std::size_t close = pattern.find('}', open);
            const std::string_view word = pattern.substr(open + 1, close - open - 1);
            pattern.remove_prefix(close + 1);
            const auto phrase = std::ranges::find(kPhrases, word, &Phrase::word);
            if (phrase != kPhrases.end()) {
                text += phrase->text;
                continue;
            }
            if (last == "ios" && word == "safari")
                std::ranges::replace(current, '_', '.');
            else if (word != last)
                current = value(word);
            last = word;
            text += current;
        }
    }

private:
    static constexpr std::size_t kNetworks = 700;

    /// How all addresses of a new network begin.
    std::string network()
    {
        if (m_random.chance(220)) {
            // First parts of the ranges that the five registries hand out.
            static constexpr std::array<std::string_view, 12> kBlocks { "2001:4", "2003:", "2400:",
                "2401:", "2409:", "2600:", "2601:", "2607:", "2804:", "2a00:", "2a02:", "2c0f:" };
            const std::string block(m_random.oneOf(kBlocks));
            return block + hex(m_random.between(0x100, 0xfff)) + ':';
        }
        std::int64_t first = 0;
        std::int64_t second = 0;
        while (!isPublic(first, second)) {
            first = m_random.between(1, 223);
            second = m_random.below(256);
        }
        return std::to_string(first) + '.' + std::to_string(second) + '.';
    }

    std::string host(const std::string &network)
    {
        const bool isV4 = network.back() == '.';
        const std::int64_t middle = m_random.below(isV4 ? 256 : 0x10000);
        const std::int64_t last = m_random.between(1, isV4 ? 254 : 0xffff);
        return network
            + (isV4 ? std::to_string(middle) + '.' + std::to_string(last)
                    : hex(middle) + "::" + hex(last));
    }

    /// What a word that is no phrase stands for, drawn anew.
    std::string value(std::string_view word)
    {
        const auto recent = [this](std::int64_t newest, std::int64_t versions) {
            return std::to_string(newest - m_random.skewed(0, versions - 1));
        };
        for (const Program &program : kPrograms)
            if (word == program.word)
                return recent(program.newest, program.versions);
        if (word == "ios" || word == "safari") {
            const std::string major = recent(18, 3);
            return major + (word == "ios" ? '_' : '.') + std::to_string(m_random.below(7));
        }
        if (word == "model")
            return std::string(m_random.oneOf(kPhones));
        if (word == "tablet")
            return std::string(m_random.oneOf(kTablets));
        return std::string(m_random.weighted(kTerms).text);
    }

    Random &m_random;
    Zipf m_rank;
    std::vector<std::string> m_networks;
};
