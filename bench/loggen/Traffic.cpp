#include "Traffic.h"

#include "Chance.h"
#include "Clients.h"
#include "Log.h"
#include "Words.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace {

using std::string_view;

/// The path of a page as a beacon's parameter: percent-escapes stay, slashes become escapes.
std::string asParameter(string_view path)
{
    std::string escaped;
    for (const char c : path)
        escaped += c == '/' ? "%2F" : std::string(1, c);
    return escaped;
}

std::vector<std::string> makePages()
{
    std::vector<std::string> pages(kFixedPages.begin(), kFixedPages.end());
    for (const string_view angle : kAngles) {
        for (const string_view subject : kSubjects) {
            const bool guide = fixedFor(subject, 0, 2) == 0;
            pages.push_back((guide ? "/guides/" : "/blog/") + std::string(subject) + '-'
                + std::string(angle) + (guide ? "" : "/"));
        }
    }
    for (int product = 101; product <= 160; ++product)
        pages.push_back("/shop/item.php?id=" + std::to_string(product));
    return pages;
}

/// Lets people and machines come to the site. Each function below is one arrival; it adds all of
/// its lines at once, also those of later seconds.
class Traffic
{
public:
    explicit Traffic(const Options &options)
        : m_options(options)
        , m_end(options.start + options.days * kDay)
        , m_random(options.seed)
        , m_clients(m_random)
        , m_pages(makePages())
        , m_popularity(m_pages.size())
        , m_log(options.lines)
    {
    }

    void run();

private:
    using Arrival = void (Traffic::*)(Seconds);

    struct Kind
    {
        Arrival arrival;
        int share; ///< of all lines, in permille
        bool sleeps; ///< comes by day more often than by night
        std::int64_t credit = 0; ///< lines that are due, see run()
    };

    std::int64_t weight(Seconds at, bool sleeps) const;
    Seconds later(Seconds at, Seconds by);
    const std::string &page();
    std::int64_t pageMicros();

    void person(Seconds at);
    void unverified(Seconds at);
    void crawler(Seconds at);
    void feedReader(Seconds at);
    void apiClient(Seconds at);
    void scanner(Seconds at);
    void broken(Seconds at);

    Client visitor();
    std::string origin(std::string &target);
    Seconds reach(
        Seconds at, const Client &client, const std::string &target, string_view referrer);
    void view(Seconds at, const Client &client, const std::string &target, string_view referrer);
    void assets(Seconds at, const Client &client, const std::string &page, bool firstPage);

    const Options &m_options;
    Seconds m_end;
    Random m_random;
    Clients m_clients;
    std::vector<std::string> m_pages;
    Zipf m_popularity;
    std::vector<Client> m_known; ///< people who may come back, the latest at the end
    Log m_log;
};

/// The share of the day's traffic that falls on this second, in no particular unit.
std::int64_t Traffic::weight(Seconds at, bool sleeps) const
{
    static constexpr std::array<int, 24> kHours { 30, 20, 14, 11, 11, 15, 27, 48, 68, 82, 89, 92,
        90, 89, 90, 91, 90, 92, 96, 100, 98, 88, 68, 46 };
    if (!sleeps)
        return 64;
    const auto hour = static_cast<std::size_t>(at % kDay / 3600);
    const auto slope = kHours[(hour + 1) % kHours.size()] - kHours[hour];
    const std::int64_t level = kHours[hour] * 60 + slope * (at % 3600 / 60);
    const auto weekday = (at / kDay + 4) % 7; // 0 is Sunday
    const bool weekend = weekday == 0 || weekday == 6;
    return level * (weekend ? 82 : 100) / 6000;
}

/// The time \a by seconds on. What would lie beyond the last day is drawn into what is left of it.
Seconds Traffic::later(Seconds at, Seconds by)
{
    return at + by < m_end ? at + by : at + m_random.below(m_end - at);
}

const std::string &Traffic::page()
{
    return m_pages[m_popularity.draw(m_random)];
}

std::int64_t Traffic::pageMicros()
{
    return m_random.skewed(9000, m_random.chance(30) ? 2500000 : 280000);
}

void Traffic::run()
{
    std::array kinds = std::to_array<Kind>({
        { &Traffic::person, 713, true },
        { &Traffic::unverified, 45, true },
        { &Traffic::crawler, 145, false },
        { &Traffic::feedReader, 25, false },
        { &Traffic::apiClient, 20, true },
        { &Traffic::scanner, 49, false },
        { &Traffic::broken, 3, false },
    });
    std::array<std::int64_t, 2> whole {};
    for (Seconds at = m_options.start; at < m_end; ++at) {
        whole[0] += weight(at, false);
        whole[1] += weight(at, true);
    }

    // Each second earns every kind its part of the lines; whoever has one to its credit comes.
    for (Seconds at = m_options.start; at < m_end; ++at) {
        for (Kind &kind : kinds) {
            const std::int64_t line = whole[kind.sleeps ? 1 : 0] * 1000;
            kind.credit += m_options.lines * kind.share * weight(at, kind.sleeps);
            while (kind.credit >= line && !m_log.full()) {
                const std::int64_t before = m_log.count();
                (this->*kind.arrival)(at);
                kind.credit -= (m_log.count() - before) * line;
            }
        }
        m_log.writeUntil(at);
    }
    while (!m_log.full())
        person(m_end - 1);
    m_log.writeUntil(m_end);
    m_log.flush();
}

/// Somebody new, or one of those who came in the last hours.
Client Traffic::visitor()
{
    const auto known = static_cast<std::int64_t>(m_known.size());
    const std::int64_t recent = std::min(known, 20 + m_options.lines / m_options.days / 100);
    if (known > 0 && m_random.chance(150))
        return m_known[static_cast<std::size_t>(known - 1 - m_random.below(recent))];
    m_known.push_back(m_clients.browser());
    return m_known.back();
}

void Traffic::view(
    Seconds at, const Client &client, const std::string &target, string_view referrer)
{
    Request request { .target = target,
        .bytes = fixedFor(target, 4000, 48000),
        .micros = pageMicros(),
        .referrer = referrer };
    if (m_random.chance(15)) {
        request.status = 304;
        request.bytes = 0;
    } else if (m_random.chance(2)) {
        request.status = 500;
        request.bytes = 561;
    }
    m_log.add(at, client, request);
}

void Traffic::assets(Seconds at, const Client &client, const std::string &page, bool firstPage)
{
    struct Asset
    {
        string_view target;
        std::int64_t bytes;
        bool everyPage;
        int permille;
    };
    static constexpr std::array<Asset, 7> kAssets { {
        { "/static/site.css?v=41", 18230, false, 850 },
        { "/static/site.js?v=41", 33871, false, 800 },
        { "/static/fonts/inter.woff2", 48256, false, 450 },
        { "/static/logo.svg", 2107, false, 300 },
        { "/favicon.ico", 4286, false, 200 },
        { "/images/garden-{n}.jpg", 96000, true, 300 },
        { "/images/thumb-{n}.webp", 14000, true, 200 },
    } };
    const std::string referrer = "https://" + m_options.host + page;
    for (const Asset &asset : kAssets) {
        if (!(firstPage || asset.everyPage) || !m_random.chance(asset.permille))
            continue;
        std::string target(asset.target);
        if (const std::size_t mark = target.find("{n}"); mark != std::string::npos)
            target.replace(mark, 3, std::to_string(fixedFor(page, 1, 90)));
        Request request { .target = target,
            .bytes = fixedFor(target, asset.bytes, asset.bytes + 500),
            .micros = m_random.skewed(180, 9000),
            .referrer = referrer };
        if (m_random.chance(60)) {
            request.status = 304;
            request.bytes = 0;
        }
        m_log.add(later(at, m_random.below(2)), client, request);
    }
}

/// The referrer with which a visit begins. A campaign is told by \a target instead.
std::string Traffic::origin(std::string &target)
{
    const std::int64_t kind = m_random.below(100);
    if (kind < 42)
        return m_clients.expand(m_random.weighted(kSearches).text);
    if (kind < 62)
        return m_clients.expand(m_random.weighted(kOutside).text);
    if (kind < 68)
        target.append(target.find('?') == std::string::npos ? "?" : "&")
            .append(m_random.weighted(kCampaigns).text);
    return "-";
}

/// A view with what may go before it: a link that leads nowhere, or one without its slash.
Seconds Traffic::reach(
    Seconds at, const Client &client, const std::string &target, string_view referrer)
{
    if (m_random.chance(12)) {
        m_log.add(at, client,
            { .target = m_random.oneOf(kGonePages),
                .bytes = 1873,
                .micros = pageMicros(),
                .referrer = referrer,
                .status = 404 });
        at = later(at, m_random.between(2, 9));
    }
    if (target == "/blog/" && m_random.chance(100))
        m_log.add(at, client,
            { .target = "/blog",
                .bytes = 241,
                .micros = 210,
                .referrer = referrer,
                .status = 301 });
    view(at, client, target, referrer);
    return at;
}

/// A visit: some pages with what belongs to them, and mostly a beacon for the time on each.
void Traffic::person(Seconds at)
{
    const Client client = visitor();
    std::string target = page();
    std::string referrer = origin(target);
    const bool beacons = m_random.chance(780);
    const std::int64_t pages = m_random.chance(520) ? 1 : 1 + m_random.skewed(1, 9);
    for (std::int64_t number = 0; number < pages; ++number) {
        at = reach(at, client, target, referrer);
        const std::string path = target.substr(0, target.find('?'));
        const std::string address = "https://" + m_options.host + path;
        assets(at, client, path, number == 0);

        const std::int64_t stay = m_random.skewed(2, m_random.chance(60) ? 1500 : 260);
        at = later(at, stay);
        if (beacons) {
            const std::string beacon = "/vesk-b?p=" + asParameter(path)
                + "&t=" + std::to_string(stay) + '.' + std::to_string(m_random.below(10));
            referrer = address;
            m_log.add(at, client,
                { .target = beacon,
                    .micros = m_random.skewed(120, 900),
                    .referrer = referrer,
                    .status = 204 });
        }
        if (path == "/contact" && m_random.chance(150))
            m_log.add(at, client,
                { .target = "/contact",
                    .bytes = 240,
                    .micros = pageMicros(),
                    .referrer = referrer,
                    .status = 303,
                    .method = "POST" });
        referrer = address;
        target = page();
    }
}

/// Says it is a browser, yet loads nothing but pages and comes from nowhere.
void Traffic::unverified(Seconds at)
{
    const Client client = m_clients.browser();
    for (std::int64_t rest = m_random.skewed(1, 5); rest > 0; --rest) {
        view(at, client, page(), "-");
        at = later(at, m_random.between(1, 40));
    }
}

void Traffic::crawler(Seconds at)
{
    const Crawler &crawler = m_random.weighted(kCrawlers);
    const std::string agent = m_clients.expand(crawler.userAgent);
    const Client client { m_clients.addressOf(agent), agent, "HTTP/1.1" };
    if (crawler.habit == Check) {
        m_log.add(at, client, { .target = "/", .micros = pageMicros(), .method = "HEAD" });
        return;
    }
    if (crawler.habit == Preview) {
        view(at, client, page(), "-");
        return;
    }
    m_log.add(at, client, { .target = "/robots.txt", .bytes = 312, .micros = 240 });
    if (m_random.chance(150))
        m_log.add(at, client, { .target = "/sitemap.xml", .bytes = 40211, .micros = 1900 });
    // Crawlers leave no page out, so they do not care for popularity.
    for (std::int64_t rest = m_random.skewed(1, 40); rest > 0; --rest) {
        at = later(at, m_random.between(2, 50));
        if (m_random.chance(40))
            m_log.add(at, client,
                { .target = m_random.oneOf(kGonePages),
                    .bytes = 1873,
                    .micros = pageMicros(),
                    .status = 404 });
        else
            view(at, client, m_random.oneOf(m_pages), "-");
    }
}

void Traffic::feedReader(Seconds at)
{
    const string_view agent = m_random.oneOf(kFeedReaders);
    const Client client { m_clients.address(), std::string(agent), "HTTP/1.1" };
    const bool changed = m_random.chance(250);
    m_log.add(at, client,
        { .target = m_random.chance(800) ? "/feed/" : "/blog/feed/",
            .bytes = changed ? 30277 : 0,
            .micros = m_random.skewed(900, 60000),
            .status = changed ? 200 : 304 });
}

void Traffic::apiClient(Seconds at)
{
    const Client client { m_clients.address(), std::string(m_random.oneOf(kApiClients)),
        "HTTP/2.0" };
    for (std::int64_t rest = m_random.skewed(1, 8); rest > 0; --rest) {
        Request request { .target = "/api/v1/plants?limit=50",
            .bytes = m_random.between(200, 9000),
            .micros = m_random.skewed(2000, 90000) };
        if (m_random.chance(250)) {
            request.target = "/api/v1/notes";
            request.method = m_random.chance(900) ? "POST" : "OPTIONS";
            request.status = m_random.chance(900) ? 201 : 401;
        }
        if (m_random.chance(8)) {
            request.status = 500;
            request.bytes = 88;
        }
        m_log.add(at, client, request);
        at = later(at, m_random.between(1, 20));
    }
}

/// Tries the addresses of what might be left open, one after the other.
void Traffic::scanner(Seconds at)
{
    const Client client { m_clients.address(), std::string(m_random.oneOf(kScannerAgents)),
        "HTTP/1.1" };
    for (std::int64_t rest = m_random.skewed(2, 60); rest > 0; --rest) {
        const string_view probe = m_random.oneOf(kProbes);
        Request request {
            .target = probe, .bytes = 1873, .micros = m_random.skewed(200, 30000), .status = 404
        };
        if (probe.starts_with("/.")) {
            request.status = 403;
            request.bytes = 199;
        } else if (probe == "/wp-login.php" || probe == "/xmlrpc.php") {
            request.method = m_random.chance(700) ? "POST" : "GET";
        }
        m_log.add(at, client, request);
        at = later(at, m_random.below(3));
    }
}

/// One line that is no request, or hardly a line at all.
void Traffic::broken(Seconds at)
{
    const std::string ip = m_clients.address();
    const std::int64_t shape = m_random.below(10);
    if (shape < 4) {
        const string_view handshake = m_random.oneOf(kHandshakes);
        m_log.addBare(at, ip, handshake, 400, m_random.skewed(50, 900));
    } else if (shape < 5) {
        m_log.addBare(at, ip, "-", 408, 20000000);
    } else if (shape < 7) {
        std::string line = ip + " - - [01/Mar/2026:00:00:00 +0000] \"GET /";
        line.resize(static_cast<std::size_t>(m_random.between(3, 60)), ' ');
        m_log.addRaw(at, line);
    } else if (shape < 9) {
        std::string noise;
        for (std::int64_t rest = m_random.between(5, 80); rest > 0; --rest) {
            const auto byte = static_cast<char>(m_random.below(256));
            noise += byte == '\n' ? ' ' : byte;
        }
        m_log.addRaw(at, noise);
    } else {
        m_log.addRaw(at, "");
    }
}

} // namespace

void writeTraffic(const Options &options)
{
    Traffic(options).run();
}
