// Writes a made-up access log in the combined format, with the duration in microseconds as last
// field. The same arguments give the same bytes on every machine: the generator is our own, and
// all arithmetic is done in integers.

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Seconds = std::int64_t; // since 1970, UTC
using std::string_view;

constexpr Seconds kDay = 86400;

struct Options
{
    std::int64_t lines = 100000;
    std::uint64_t seed = 1;
    int days = 3;
    Seconds start = 0;
    std::string host = "example.org";
};

// --- chance ---

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
std::int64_t fixedFor(string_view text, std::int64_t low, std::int64_t high)
{
    std::uint64_t hash = 14695981039346656037U;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return low + static_cast<std::int64_t>(hash % static_cast<std::uint64_t>(high - low + 1));
}

// --- texts ---

void append(std::string &text, std::int64_t number, int width = 1)
{
    std::array<char, 24> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    for (auto length = end - digits.data(); length < width; ++length)
        text += '0';
    text.append(digits.data(), end);
}

void appendHex(std::string &text, std::int64_t number)
{
    std::array<char, 24> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr;
    text.append(digits.data(), end);
}

/// The path of a page as a beacon's parameter: percent-escapes stay, slashes become escapes.
std::string asParameter(string_view path)
{
    std::string escaped;
    for (const char c : path)
        escaped += c == '/' ? "%2F" : std::string(1, c);
    return escaped;
}

struct Text
{
    int weight;
    string_view text;
};

// Words in braces are replaced when a client comes into being, see expand().
constexpr std::array kBrowsers = std::to_array<Text>({
    { 150,
        "Mozilla/5.0 (Linux; Android 10; K) AppleWebKit/537.36 (KHTML, like Gecko) "
        "Chrome/{chrome}.0.0.0 Mobile Safari/537.36" },
    { 60,
        "Mozilla/5.0 (Linux; Android {phone}) AppleWebKit/537.36 (KHTML, like Gecko) "
        "Chrome/{chrome}.0.0.0 Mobile Safari/537.36" },
    { 40,
        "Mozilla/5.0 (Linux; Android 10; K) AppleWebKit/537.36 (KHTML, like Gecko) "
        "SamsungBrowser/{samsung}.0 Chrome/{chrome}.0.0.0 Mobile Safari/537.36" },
    { 12,
        "Mozilla/5.0 (Android {android}; Mobile; rv:{firefox}.0) Gecko/{firefox}.0 "
        "Firefox/{firefox}.0" },
    { 10,
        "Mozilla/5.0 (Linux; Android 10; K) AppleWebKit/537.36 (KHTML, like Gecko) "
        "Chrome/{chrome}.0.0.0 Mobile Safari/537.36 EdgA/{chrome}.0.0.0" },
    { 12,
        "Mozilla/5.0 (Linux; Android {tablet}) AppleWebKit/537.36 (KHTML, like Gecko) "
        "Chrome/{chrome}.0.0.0 Safari/537.36" },
    { 210,
        "Mozilla/5.0 (iPhone; CPU iPhone OS {ios} like Mac OS X) AppleWebKit/605.1.15 (KHTML, "
        "like Gecko) Version/{safari} Mobile/15E148 Safari/604.1" },
    { 22,
        "Mozilla/5.0 (iPhone; CPU iPhone OS 18_6 like Mac OS X) AppleWebKit/605.1.15 (KHTML, "
        "like Gecko) CriOS/{chrome}.0.0.0 Mobile/15E148 Safari/604.1" },
    { 14,
        "Mozilla/5.0 (iPhone; CPU iPhone OS 18_1 like Mac OS X) AppleWebKit/605.1.15 (KHTML, "
        "like Gecko) Mobile/22B83 [FBAN/FBIOS;FBDV/iPhone15,2;FBSN/iOS]" },
    { 20,
        "Mozilla/5.0 (iPad; CPU OS {ios} like Mac OS X) AppleWebKit/605.1.15 (KHTML, like Gecko) "
        "Version/{safari} Mobile/15E148 Safari/604.1" },
    { 165,
        "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 (KHTML, like Gecko) "
        "Chrome/{chrome}.0.0.0 Safari/537.36" },
    { 75,
        "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 (KHTML, like Gecko) "
        "Chrome/{chrome}.0.0.0 Safari/537.36 Edg/{chrome}.0.0.0" },
    { 50,
        "Mozilla/5.0 (Windows NT 10.0; Win64; x64; rv:{firefox}.0) Gecko/20100101 "
        "Firefox/{firefox}.0" },
    { 14,
        "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 (KHTML, like Gecko) "
        "Chrome/{chrome}.0.0.0 Safari/537.36 OPR/{opera}.0.0.0" },
    { 50,
        "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 (KHTML, like "
        "Gecko) Version/{safari} Safari/605.1.15" },
    { 45,
        "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/537.36 (KHTML, like Gecko) "
        "Chrome/{chrome}.0.0.0 Safari/537.36" },
    { 12,
        "Mozilla/5.0 (Macintosh; Intel Mac OS X 10.15; rv:{firefox}.0) Gecko/20100101 "
        "Firefox/{firefox}.0" },
    { 18, "Mozilla/5.0 (X11; Linux x86_64; rv:{firefox}.0) Gecko/20100101 Firefox/{firefox}.0" },
    { 12,
        "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) "
        "Chrome/{chrome}.0.0.0 Safari/537.36" },
    { 7,
        "Mozilla/5.0 (X11; CrOS x86_64 14541.0.0) AppleWebKit/537.36 (KHTML, like Gecko) "
        "Chrome/{chrome}.0.0.0 Safari/537.36" },
    { 2,
        "Mozilla/5.0 (X11; Linux x86_64) \\\"Lighthouse keeper\\\" Gecko/20100101 "
        "Firefox/{firefox}.0" },
});

constexpr std::array<string_view, 8> kPhones { "14; SM-S918B", "14; SM-A546B", "13; SM-G991B",
    "15; Pixel 8", "16; Pixel 7a", "12; M2101K6G", "13; CPH2449", "14; 23021RAA2Y" };
constexpr std::array<string_view, 3> kTablets { "14; SM-X710", "13; SM-T220",
    "10; Lenovo TB-X606F" };

/// What a crawler does when it comes by.
enum class Habit {
    Crawl, ///< robots.txt, then a run of pages
    Preview, ///< one page, because somebody shared its address
    Check, ///< HEAD of the home page
};

struct Crawler
{
    int weight;
    Habit habit;
    string_view userAgent;
};

constexpr std::array kCrawlers = std::to_array<Crawler>({
    { 150, Habit::Crawl,
        "Mozilla/5.0 (compatible; Googlebot/2.1; +http://www.google.com/bot.html)" },
    { 60, Habit::Crawl,
        "Mozilla/5.0 (Linux; Android 6.0.1; Nexus 5X Build/MMB29P) AppleWebKit/537.36 (KHTML, like "
        "Gecko) Chrome/131.0.6778.139 Mobile Safari/537.36 (compatible; Googlebot/2.1; "
        "+http://www.google.com/bot.html)" },
    { 8, Habit::Preview, "Mozilla/5.0 (compatible; Google-InspectionTool/1.0;)" },
    { 14, Habit::Crawl, "GoogleOther" },
    { 110, Habit::Crawl,
        "Mozilla/5.0 AppleWebKit/537.36 (KHTML, like Gecko; compatible; bingbot/2.0; "
        "+http://www.bing.com/bingbot.htm) Chrome/116.0.1938.76 Safari/537.36" },
    { 40, Habit::Crawl,
        "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_5) AppleWebKit/605.1.15 (KHTML, like Gecko) "
        "Version/13.1.1 Safari/605.1.15 (Applebot/0.1; +http://www.apple.com/go/applebot)" },
    { 12, Habit::Crawl, "DuckDuckBot/1.1; (+http://duckduckgo.com/duckduckbot.html)" },
    { 45, Habit::Crawl, "Mozilla/5.0 (compatible; YandexBot/3.0; +http://yandex.com/bots)" },
    { 20, Habit::Crawl,
        "Mozilla/5.0 (compatible; Baiduspider/2.0; +http://www.baidu.com/search/spider.html)" },
    { 40, Habit::Crawl,
        "Mozilla/5.0 (Linux; Android 7.0;) AppleWebKit/537.36 (KHTML, like Gecko) Mobile "
        "Safari/537.36 (compatible; PetalBot;+https://webmaster.petalsearch.com/site/petalbot)" },
    { 14, Habit::Crawl,
        "Mozilla/5.0 (compatible; SeznamBot/4.0; +https://o-seznam.cz/napoveda/vyhledavani/)" },
    { 70, Habit::Crawl,
        "Mozilla/5.0 AppleWebKit/537.36 (KHTML, like Gecko; compatible; GPTBot/1.2; "
        "+https://openai.com/gptbot)" },
    { 18, Habit::Crawl,
        "Mozilla/5.0 AppleWebKit/537.36 (KHTML, like Gecko); compatible; OAI-SearchBot/1.0; "
        "+https://openai.com/searchbot" },
    { 16, Habit::Preview,
        "Mozilla/5.0 AppleWebKit/537.36 (KHTML, like Gecko); compatible; ChatGPT-User/1.0; "
        "+https://openai.com/bot" },
    { 60, Habit::Crawl,
        "Mozilla/5.0 AppleWebKit/537.36 (KHTML, like Gecko; compatible; ClaudeBot/1.0; "
        "+claudebot@anthropic.com)" },
    { 8, Habit::Preview,
        "Mozilla/5.0 AppleWebKit/537.36 (KHTML, like Gecko; compatible; Claude-User/1.0; "
        "+Claude-User@anthropic.com)" },
    { 14, Habit::Crawl,
        "Mozilla/5.0 AppleWebKit/537.36 (KHTML, like Gecko; compatible; PerplexityBot/1.0; "
        "+https://perplexity.ai/perplexitybot)" },
    { 20, Habit::Crawl, "CCBot/2.0 (https://commoncrawl.org/faq/)" },
    { 40, Habit::Crawl,
        "Mozilla/5.0 (Linux; Android 5.0) AppleWebKit/537.36 (KHTML, like Gecko) Mobile "
        "Safari/537.36 (compatible; Bytespider; spider-feedback@bytedance.com)" },
    { 40, Habit::Crawl,
        "Mozilla/5.0 AppleWebKit/537.36 (KHTML, like Gecko; compatible; Amazonbot/0.1; "
        "+https://developer.amazon.com/support/amazonbot) Chrome/119.0.6045.214 Safari/537.36" },
    { 35, Habit::Crawl,
        "meta-externalagent/1.1 "
        "(+https://developers.facebook.com/docs/sharing/webmasters/crawler)" },
    { 14, Habit::Preview,
        "facebookexternalhit/1.1 (+http://www.facebook.com/externalhit_uatext.php)" },
    { 65, Habit::Crawl, "Mozilla/5.0 (compatible; AhrefsBot/7.0; +http://ahrefs.com/robot/)" },
    { 65, Habit::Crawl,
        "Mozilla/5.0 (compatible; SemrushBot/7~bl; +http://www.semrush.com/bot.html)" },
    { 30, Habit::Crawl, "Mozilla/5.0 (compatible; MJ12bot/v1.4.8; http://mj12bot.com/)" },
    { 25, Habit::Crawl,
        "Mozilla/5.0 (compatible; DotBot/1.2; +https://opensiteexplorer.org/dotbot; "
        "help@moz.com)" },
    { 20, Habit::Crawl,
        "Mozilla/5.0 (compatible; DataForSeoBot/1.0; +https://dataforseo.com/dataforseo-bot)" },
    { 14, Habit::Crawl, "Mozilla/5.0 (compatible; Barkrowler/0.9; +https://babbar.tech/crawler)" },
    { 10, Habit::Crawl, "Mozilla/5.0 (compatible; BLEXBot/1.0; +http://webmeup-crawler.com/)" },
    { 6, Habit::Preview, "Twitterbot/1.0" },
    { 6, Habit::Preview, "LinkedInBot/1.0 (compatible; Mozilla/5.0; +http://www.linkedin.com)" },
    { 6, Habit::Preview, "Slackbot-LinkExpanding 1.0 (+https://api.slack.com/robots)" },
    { 6, Habit::Preview, "Mozilla/5.0 (compatible; Discordbot/2.0; +https://discordapp.com)" },
    { 10, Habit::Preview, "WhatsApp/2.23.20.0 A" },
    { 6, Habit::Preview, "TelegramBot (like TwitterBot)" },
    { 60, Habit::Check, "Mozilla/5.0+(compatible; UptimeRobot/2.0; http://www.uptimerobot.com/)" },
    { 20, Habit::Check, "Pingdom.com_bot_version_1.4_(http://www.pingdom.com/)" },
    { 6, Habit::Preview, "WordPress/6.7.1; https://blog.example.net" },
    { 14, Habit::Preview, "curl/8.5.0" },
    { 5, Habit::Preview, "Wget/1.21.4" },
    { 10, Habit::Preview, "python-requests/2.32.3" },
    { 4, Habit::Preview, "Python-urllib/3.12" },
    { 8, Habit::Preview, "Python/3.12 aiohttp/3.11.10" },
    { 16, Habit::Preview, "Go-http-client/2.0" },
    { 4, Habit::Preview, "Java/17.0.13" },
    { 3, Habit::Preview, "libwww-perl/6.77" },
    { 6, Habit::Crawl,
        "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) "
        "HeadlessChrome/131.0.0.0 Safari/537.36" },
    { 10, Habit::Crawl, "ExampleSearch-Crawler/3.1 (+https://search.example.com/about)" },
    { 6, Habit::Preview, "-" },
});

constexpr std::array kSearches = std::to_array<Text>({
    { 700, "https://www.google.com/" },
    { 70, "https://www.google.de/" },
    { 40, "https://www.google.co.uk/" },
    { 15, "https://www.google.fr/search?q={terms}" },
    { 20, "android-app://com.google.android.googlequicksearchbox/" },
    { 30, "https://www.bing.com/" },
    { 45, "https://www.bing.com/search?q={terms}" },
    { 40, "https://duckduckgo.com/" },
    { 15, "https://yandex.ru/search/?text={terms}&lr=213" },
    { 12, "https://search.yahoo.com/search?p={terms}" },
    { 10, "https://search.brave.com/" },
    { 18, "https://www.ecosia.org/search?q={terms}" },
    { 6, "https://www.startpage.com/" },
    { 6, "https://www.qwant.com/?q={terms}" },
    { 5, "https://search.seznam.cz/?q={terms}" },
    { 3, "https://www.baidu.com/s?wd={terms}" },
});

constexpr std::array kOutside = std::to_array<Text>({
    { 60, "https://www.facebook.com/" },
    { 50, "https://m.facebook.com/" },
    { 30, "https://l.facebook.com/" },
    { 45, "https://www.instagram.com/" },
    { 40, "https://t.co/Xy7Kq2" },
    { 25, "https://www.linkedin.com/feed/" },
    { 35, "https://www.reddit.com/" },
    { 20, "https://www.pinterest.com/" },
    { 30, "https://www.youtube.com/watch?v=dQ" },
    { 10, "https://bsky.app/" },
    { 10, "https://www.threads.net/" },
    { 70, "https://chatgpt.com/" },
    { 18, "https://www.perplexity.ai/" },
    { 14, "https://claude.ai/" },
    { 14, "https://gemini.google.com/" },
    { 10, "https://copilot.microsoft.com/" },
    { 30, "https://mail.google.com/" },
    { 12, "android-app://com.google.android.gm/" },
    { 14, "https://outlook.live.com/" },
    { 8, "https://mail.yahoo.com/" },
    { 60, "https://forum.example.net/thread/4711" },
    { 30, "https://www.example.com/links.html" },
    { 25, "https://blog.example.net/weekly-reading" },
    { 15, "https://wiki.example.edu/index.php?title=Gardening" },
    { 10, "android-app://org.example.reader/" },
});

constexpr std::array kCampaigns = std::to_array<Text>({
    { 60, "utm_source=newsletter&utm_medium=email&utm_campaign=spring-2026" },
    { 25, "utm_source=newsletter&utm_medium=email&utm_campaign=seed-swap" },
    { 20, "utm_source=partner&utm_medium=banner&utm_campaign=compost%20week" },
    { 10, "utm_source=flyer&utm_medium=qr&utm_campaign=market-day" },
});

constexpr std::array kTerms = std::to_array<Text>({
    { 40, "raised%20bed%20plans" },
    { 30, "when%20to%20sow%20tomatoes" },
    { 25, "compost%20smells" },
    { 20, "slug%20control%20without%20poison" },
    { 20, "prune%20apple%20tree" },
    { 15, "hochbeet%20bauen" },
    { 12, "kr%C3%A4utergarten%20anlegen" },
    { 10, "garden%20calendar%20march" },
    { 8, "hedge%20for%20birds" },
    { 6, "rain%20barrel%20size" },
    { 5, "%D0%BA%D0%BE%D0%BC%D0%BF%D0%BE%D1%81%D1%82" },
    { 4, "best%20soil%20for%20blueberries" },
});

constexpr std::array<string_view, 24> kSubjects { "raised-beds", "compost", "tomatoes", "slugs",
    "apple-trees", "hedges", "rain-barrels", "blueberries", "herbs", "lawns", "roses", "bees",
    "greenhouses", "garlic", "pumpkins", "meadows", "ponds", "tools", "seeds", "soil", "potatoes",
    "beans", "paths", "fences" };
constexpr std::array<string_view, 12> kAngles { "guide", "for-beginners", "in-march", "mistakes",
    "on-a-balcony", "in-clay-soil", "calendar", "questions", "plans", "without-poison", "in-winter",
    "costs" };
constexpr std::array<string_view, 14> kFixedPages { "/", "/blog/", "/about", "/guides/", "/contact",
    "/shop/", "/newsletter", "/search?q=compost", "/impressum.html", "/caf%C3%A9/",
    "/de/kr%C3%A4utergarten", "/de/über-uns", "/ru/%D1%81%D0%B0%D0%B4/",
    "/events/2026/seed-swap.html" };

constexpr std::array<string_view, 10> kGonePages { "/old-shop.html", "/blog/2019/frost", "/wiki",
    "/about-us", "/guides/compst", "/de/kontakt", "/shop/trowel", "/index.htm",
    // What a visitor types arrives decoded in the reports, terminal controls included.
    "/guides/%1B%5B31mred%1B%5B0m%07", "/guides/%E2%80%AEgnp.exe" };

constexpr std::array<string_view, 44> kProbes { "/.env", "/.git/config", "/.git/HEAD",
    "/wp-login.php", "/xmlrpc.php", "/wp-admin/setup-config.php", "/.env.production",
    "/.aws/config", "/phpinfo.php", "/vendor/phpunit/phpunit/src/Util/PHP/eval-stdin.php",
    "/actuator/health", "/.vscode/sftp.json", "/cgi-bin/luci/;stok=/locale", "/config.json",
    "/admin", "/admin.php", "/administrator/", "/backup.zip", "/db.sql", "/dump.sql",
    "/phpmyadmin/", "/pma/", "/shell.php", "/wp-content/plugins/hellopress/wp_filemanager.php",
    "/wp-includes/wlwmanifest.xml", "/blog/wp-includes/wlwmanifest.xml",
    "/cms/wp-includes/wlwmanifest.xml", "/server-status", "/solr/admin/info/system", "/HNAP1",
    "/boaform/admin/formLogin", "/.DS_Store", "/api/.env", "/login.action", "/owa/auth/logon.aspx",
    "/autodiscover/autodiscover.xml", "/telescope/requests", "/_profiler/phpinfo",
    "/debug/default/view?panel=config", "/@fs/etc/passwd?raw??",
    "/%c0%ae%c0%ae/%c0%ae%c0%ae/etc/passwd", "/console/", "/Dockerfile", "/info.php" };

constexpr std::array<string_view, 6> kScannerAgents { "-", "Mozilla/5.0 zgrab/0.x",
    "python-requests/2.31.0", "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36",
    "Mozilla/5.0 (compatible; CensysInspect/1.1; +https://about.censys.io/)",
    "Go-http-client/1.1" };

constexpr std::array<string_view, 5> kFeedReaders {
    "NetNewsWire (RSS Reader; https://netnewswire.com/)",
    "Tiny Tiny RSS/23.10 (https://tt-rss.org/)", "FreshRSS/1.24.3 (Linux; https://freshrss.org)",
    "Feedly/1.0 (+http://www.feedly.com/fetcher.html; 12 subscribers)", "Miniflux/2.2.3"
};

constexpr std::array<string_view, 4> kApiClients { "okhttp/4.12.0",
    "ExampleGarden/3.4 (Android 14)", "ExampleGarden/3.4 CFNetwork/1568.200.51 Darwin/24.1.0",
    "python-requests/2.32.3" };

// Lines that are no requests, as servers log them when something other than a browser connects.
constexpr std::array<string_view, 4> kHandshakes {
    "\\x16\\x03\\x01\\x01\\x00\\x01\\x00\\x00\\xfc\\x03\\x03", "\\x16\\x03\\x01", "\\x03",
    "SSH-2.0-Go"
};

// --- the site ---

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

// --- clients ---

struct Client
{
    std::string ip;
    std::string userAgent;
    string_view protocol = "HTTP/2.0";
};

bool isPublic(std::int64_t first, std::int64_t second)
{
    return first > 0 && first < 224 && first != 10 && first != 127 && first != 192 && first != 198
        && first != 203 && !(first == 100 && second >= 64 && second < 128)
        && !(first == 169 && second == 254) && !(first == 172 && second >= 16 && second < 32);
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

    std::string address() { return host(m_networks[m_rank.draw(m_random)]); }

    /// An address that lies in the same network whenever \a owner is the same.
    std::string addressOf(string_view owner)
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
    std::string expand(string_view pattern)
    {
        std::string text;
        std::string current;
        string_view last;
        while (true) {
            const std::size_t open = pattern.find('{');
            text += pattern.substr(0, open);
            if (open == string_view::npos)
                return text;
            const std::size_t close = pattern.find('}', open);
            const string_view word = pattern.substr(open + 1, close - open - 1);
            if (last == "ios" && word == "safari")
                std::replace(current.begin(), current.end(), '_', '.');
            else if (word != last)
                current = value(word);
            last = word;
            text += current;
            pattern.remove_prefix(close + 1);
        }
    }

private:
    static constexpr std::size_t kNetworks = 700;

    std::string network()
    {
        std::string prefix;
        if (m_random.chance(220)) {
            // First parts of the ranges that the five registries hand out.
            static constexpr std::array<string_view, 12> kBlocks { "2001:4", "2003:", "2400:",
                "2401:", "2409:", "2600:", "2601:", "2607:", "2804:", "2a00:", "2a02:", "2c0f:" };
            prefix = m_random.oneOf(kBlocks);
            appendHex(prefix, m_random.between(0x100, 0xfff));
            return prefix + ':';
        }
        std::int64_t first = 0;
        std::int64_t second = 0;
        while (!isPublic(first, second)) {
            first = m_random.between(1, 223);
            second = m_random.below(256);
        }
        append(prefix, first);
        prefix += '.';
        append(prefix, second);
        return prefix + '.';
    }

    std::string host(const std::string &network)
    {
        std::string text = network;
        if (network.back() == '.') {
            append(text, m_random.below(256));
            text += '.';
            append(text, m_random.between(1, 254));
            return text;
        }
        appendHex(text, m_random.below(0x10000));
        text += "::";
        appendHex(text, m_random.between(1, 0xffff));
        return text;
    }

    std::string value(string_view word)
    {
        const auto recent = [this](std::int64_t newest, std::int64_t versions) {
            return std::to_string(newest - m_random.skewed(0, versions - 1));
        };
        if (word == "chrome")
            return recent(145, 14);
        if (word == "firefox")
            return recent(147, 12);
        if (word == "samsung")
            return recent(29, 5);
        if (word == "opera")
            return recent(126, 6);
        if (word == "android")
            return recent(16, 6);
        if (word == "ios")
            return recent(18, 3).append("_").append(std::to_string(m_random.below(7)));
        if (word == "safari")
            return recent(18, 3).append(".").append(std::to_string(m_random.below(7)));
        if (word == "phone")
            return std::string(m_random.oneOf(kPhones));
        if (word == "tablet")
            return std::string(m_random.oneOf(kTablets));
        return std::string(m_random.weighted(kTerms).text);
    }

    Random &m_random;
    Zipf m_rank;
    std::vector<std::string> m_networks;
};

// --- the log ---

struct Request
{
    string_view target;
    std::int64_t bytes = 0; ///< 0 is logged as "-"
    std::int64_t micros = 0;
    string_view referrer = "-";
    int status = 200;
    string_view method = "GET";
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
        std::string &text = begin(at, client.ip);
        text += request.method;
        text += ' ';
        text += request.target;
        text += ' ';
        text += client.protocol;
        text += "\" ";
        append(text, request.status);
        text += ' ';
        if (request.bytes > 0)
            append(text, request.bytes);
        else
            text += '-';
        text += " \"";
        text += request.referrer;
        text += "\" \"";
        text += client.userAgent;
        text += "\" ";
        append(text, request.micros);
        text += '\n';
    }

    /// Adds a line whose request is \a request and that has no referrer and no user agent.
    void addBare(Seconds at, string_view ip, string_view request, int status, std::int64_t micros)
    {
        if (full())
            return;
        std::string &text = begin(at, ip);
        text += request;
        text += "\" ";
        append(text, status);
        text += " 226 \"-\" \"-\" ";
        append(text, micros);
        text += '\n';
    }

    /// Adds \a line as it is.
    void addRaw(Seconds at, string_view line)
    {
        if (full())
            return;
        ++m_count;
        std::string &text = m_pending[at];
        text += line;
        text += '\n';
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

    /// Starts a line up to the opening quote of its request.
    std::string &begin(Seconds at, string_view ip)
    {
        ++m_count;
        std::string &text = m_pending[at];
        text += ip;
        text += " - - [";
        appendTime(text, at);
        text += "] \"";
        return text;
    }

    static void appendTime(std::string &text, Seconds at)
    {
        static constexpr std::array<string_view, 12> kMonths { "Jan", "Feb", "Mar", "Apr", "May",
            "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec" };
        const std::chrono::sys_days day { std::chrono::days { at / kDay } };
        const std::chrono::year_month_day date { day };
        const Seconds second = at % kDay;
        append(text, static_cast<unsigned>(date.day()), 2);
        text += '/';
        text += kMonths[static_cast<unsigned>(date.month()) - 1];
        text += '/';
        append(text, static_cast<int>(date.year()), 4);
        text += ':';
        append(text, second / 3600, 2);
        text += ':';
        append(text, second / 60 % 60, 2);
        text += ':';
        append(text, second % 60, 2);
        text += " +0000";
    }

    std::int64_t m_limit;
    std::int64_t m_count = 0;
    std::map<Seconds, std::string> m_pending;
    std::string m_ready;
};

// --- the traffic ---

/// Lets people and machines come to the site. Each function below is one coming; it adds all of
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
    using Coming = void (Traffic::*)(Seconds);

    struct Kind
    {
        Coming coming;
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
                (this->*kind.coming)(at);
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

/// A visit: some pages with what belongs to them, and mostly a beacon for the time on each.
void Traffic::person(Seconds at)
{
    const Client client = visitor();
    std::string target = page();
    std::string referrer = "-";
    const std::int64_t origin = m_random.below(100);
    if (origin < 42)
        referrer = m_clients.expand(m_random.weighted(kSearches).text);
    else if (origin < 62)
        referrer = m_clients.expand(m_random.weighted(kOutside).text);
    else if (origin < 68)
        target += (target.find('?') == std::string::npos ? '?' : '&')
            + std::string(m_random.weighted(kCampaigns).text);

    const bool beacons = m_random.chance(780);
    const std::int64_t pages = m_random.chance(520) ? 1 : 1 + m_random.skewed(1, 9);
    for (std::int64_t number = 0; number < pages; ++number) {
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
        const std::string path = target.substr(0, target.find('?'));
        assets(at, client, path, number == 0);

        const std::int64_t stay = m_random.skewed(2, m_random.chance(60) ? 1500 : 260);
        const Seconds left = later(at, stay);
        if (beacons) {
            std::string beacon = "/vesk-b?p=" + asParameter(path) + "&t=";
            append(beacon, stay);
            beacon += '.';
            append(beacon, m_random.below(10));
            referrer = "https://" + m_options.host + path;
            m_log.add(left, client,
                { .target = beacon,
                    .micros = m_random.skewed(120, 900),
                    .referrer = referrer,
                    .status = 204 });
        }
        if (path == "/contact" && m_random.chance(150))
            m_log.add(left, client,
                { .target = "/contact",
                    .bytes = 240,
                    .micros = pageMicros(),
                    .referrer = referrer,
                    .status = 303,
                    .method = "POST" });
        at = left;
        referrer = "https://" + m_options.host + path;
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
    const Client client { m_clients.addressOf(crawler.userAgent), std::string(crawler.userAgent),
        "HTTP/1.1" };
    if (crawler.habit == Habit::Check) {
        m_log.add(at, client, { .target = "/", .micros = pageMicros(), .method = "HEAD" });
        return;
    }
    if (crawler.habit == Habit::Preview) {
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

// --- command line ---

template <typename T> bool readNumber(string_view text, T low, T high, T &number)
{
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end && number >= low && number <= high;
}

/// Reads a date written YYYY-MM-DD.
bool readDate(string_view text, Seconds &start)
{
    int year = 0;
    unsigned month = 0;
    unsigned day = 0;
    if (text.size() != 10 || text[4] != '-' || text[7] != '-'
        || !readNumber(text.substr(0, 4), 1970, 9000, year)
        || !readNumber(text.substr(5, 2), 1U, 12U, month)
        || !readNumber(text.substr(8, 2), 1U, 31U, day))
        return false;
    const std::chrono::year_month_day date { std::chrono::year(year), std::chrono::month(month),
        std::chrono::day(day) };
    start = std::chrono::sys_days(date).time_since_epoch().count() * kDay;
    return date.ok();
}

std::optional<Options> readOptions(std::span<char *const> arguments)
{
    Options options;
    readDate("2026-03-01", options.start);
    for (std::size_t i = 0; i + 1 < arguments.size(); i += 2) {
        const string_view name = arguments[i];
        const string_view value = arguments[i + 1];
        bool ok = false;
        if (name == "--lines")
            ok = readNumber<std::int64_t>(value, 0, 1000000000, options.lines);
        else if (name == "--seed")
            ok = readNumber<std::uint64_t>(value, 0, UINT64_MAX, options.seed);
        else if (name == "--days")
            ok = readNumber(value, 1, 366, options.days);
        else if (name == "--start")
            ok = readDate(value, options.start);
        else if (name == "--host")
            ok = !(options.host = value).empty();
        if (!ok)
            return std::nullopt;
    }
    if (arguments.size() % 2 != 0)
        return std::nullopt;
    return options;
}

} // namespace

int main(int argc, char **argv)
{
    const auto options = readOptions(std::span(argv, static_cast<std::size_t>(argc)).subspan(1));
    if (!options) {
        std::fputs("usage: loggen [--lines N] [--seed N] [--days N] [--start YYYY-MM-DD] "
                   "[--host HOST]\n",
            stderr);
        return 2;
    }
    Traffic(*options).run();
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        std::perror("loggen");
        return 1;
    }
    return 0;
}
