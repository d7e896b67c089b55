#pragma once

// What the lines of the log are made of.

#include <array>
#include <string_view>

struct Text
{
    int weight;
    std::string_view text;
};

/// What many user agents have in common. The parenthesis stays open.
struct Phrase
{
    std::string_view word;
    std::string_view text;
};

inline constexpr std::array kPhrases = std::to_array<Phrase>({
    { "blink", "AppleWebKit/537.36 (KHTML, like Gecko" },
    { "webkit", "AppleWebKit/605.1.15 (KHTML, like Gecko" },
    { "bot", "Mozilla/5.0 (compatible; " },
    { "windows", "Mozilla/5.0 (Windows NT 10.0; Win64; x64" },
    { "mac", "Mozilla/5.0 (Macintosh; Intel Mac OS X 10" },
    { "android", "Mozilla/5.0 (Linux; Android " },
    { "iphone", "Mozilla/5.0 (iPhone; CPU iPhone OS " },
    { "x11", "Mozilla/5.0 (X11; Linux x86_64" },
});

// Words in braces are replaced when a client comes into being, see Clients::expand().
inline constexpr std::array kBrowsers = std::to_array<Text>({
    { 150, "{android}10; K) {blink}) Chrome/{chrome}.0.0.0 Mobile Safari/537.36" },
    { 60, "{android}{model}) {blink}) Chrome/{chrome}.0.0.0 Mobile Safari/537.36" },
    { 40,
        "{android}10; K) {blink}) SamsungBrowser/{samsung}.0 Chrome/{chrome}.0.0.0 Mobile "
        "Safari/537.36" },
    { 12,
        "Mozilla/5.0 (Android {release}; Mobile; rv:{firefox}.0) Gecko/{firefox}.0 "
        "Firefox/{firefox}.0" },
    { 10,
        "{android}10; K) {blink}) Chrome/{chrome}.0.0.0 Mobile Safari/537.36 EdgA/{chrome}.0.0.0" },
    { 12, "{android}{tablet}) {blink}) Chrome/{chrome}.0.0.0 Safari/537.36" },
    { 210, "{iphone}{ios} like Mac OS X) {webkit}) Version/{safari} Mobile/15E148 Safari/604.1" },
    { 22, "{iphone}18_6 like Mac OS X) {webkit}) CriOS/{chrome}.0.0.0 Mobile/15E148 Safari/604.1" },
    { 14,
        "{iphone}18_1 like Mac OS X) {webkit}) Mobile/22B83 "
        "[FBAN/FBIOS;FBDV/iPhone15,2;FBSN/iOS]" },
    { 20,
        "Mozilla/5.0 (iPad; CPU OS {ios} like Mac OS X) {webkit}) Version/{safari} Mobile/15E148 "
        "Safari/604.1" },
    { 165, "{windows}) {blink}) Chrome/{chrome}.0.0.0 Safari/537.36" },
    { 75, "{windows}) {blink}) Chrome/{chrome}.0.0.0 Safari/537.36 Edg/{chrome}.0.0.0" },
    { 50, "{windows}; rv:{firefox}.0) Gecko/20100101 Firefox/{firefox}.0" },
    { 14, "{windows}) {blink}) Chrome/{chrome}.0.0.0 Safari/537.36 OPR/{opera}.0.0.0" },
    { 50, "{mac}_15_7) {webkit}) Version/{safari} Safari/605.1.15" },
    { 45, "{mac}_15_7) {blink}) Chrome/{chrome}.0.0.0 Safari/537.36" },
    { 12, "{mac}.15; rv:{firefox}.0) Gecko/20100101 Firefox/{firefox}.0" },
    { 18, "{x11}; rv:{firefox}.0) Gecko/20100101 Firefox/{firefox}.0" },
    { 12, "{x11}) {blink}) Chrome/{chrome}.0.0.0 Safari/537.36" },
    { 7, "Mozilla/5.0 (X11; CrOS x86_64 14541.0.0) {blink}) Chrome/{chrome}.0.0.0 Safari/537.36" },
    { 2, "{x11}) \\\"Lighthouse keeper\\\" Gecko/20100101 Firefox/{firefox}.0" },
});

/// What browsers and systems have a version of: the newest one, and how many are in use.
struct Program
{
    std::string_view word;
    int newest;
    int versions;
};

inline constexpr std::array kPrograms = std::to_array<Program>({
    { "chrome", 145, 14 },
    { "firefox", 147, 12 },
    { "samsung", 29, 5 },
    { "opera", 126, 6 },
    { "release", 16, 6 },
});

inline constexpr std::array<std::string_view, 8> kPhones { "14; SM-S918B", "14; SM-A546B",
    "13; SM-G991B", "15; Pixel 8", "16; Pixel 7a", "12; M2101K6G", "13; CPH2449",
    "14; 23021RAA2Y" };
inline constexpr std::array<std::string_view, 3> kTablets { "14; SM-X710", "13; SM-T220",
    "10; Lenovo TB-X606F" };

/// What a crawler does when it comes by.
enum class Habit {
    Crawl, ///< robots.txt, then a run of pages
    Preview, ///< one page, because somebody shared its address
    Check, ///< HEAD of the home page
};

using enum Habit;

struct Crawler
{
    int weight;
    Habit habit;
    std::string_view userAgent;
};

inline constexpr std::array kCrawlers = std::to_array<Crawler>({
    { 150, Crawl, "{bot}Googlebot/2.1; +http://www.google.com/bot.html)" },
    { 60, Crawl,
        "{android}6.0.1; Nexus 5X Build/MMB29P) {blink}) Chrome/131.0.6778.139 Mobile "
        "Safari/537.36 (compatible; Googlebot/2.1; +http://www.google.com/bot.html)" },
    { 8, Preview, "{bot}Google-InspectionTool/1.0;)" },
    { 14, Crawl, "GoogleOther" },
    { 110, Crawl,
        "Mozilla/5.0 {blink}; compatible; bingbot/2.0; +http://www.bing.com/bingbot.htm) "
        "Chrome/116.0.1938.76 Safari/537.36" },
    { 40, Crawl,
        "{mac}_15_5) {webkit}) Version/13.1.1 Safari/605.1.15 (Applebot/0.1; "
        "+http://www.apple.com/go/applebot)" },
    { 12, Crawl, "DuckDuckBot/1.1; (+http://duckduckgo.com/duckduckbot.html)" },
    { 45, Crawl, "{bot}YandexBot/3.0; +http://yandex.com/bots)" },
    { 20, Crawl, "{bot}Baiduspider/2.0; +http://www.baidu.com/search/spider.html)" },
    { 40, Crawl,
        "{android}7.0;) {blink}) Mobile Safari/537.36 (compatible; "
        "PetalBot;+https://webmaster.petalsearch.com/site/petalbot)" },
    { 14, Crawl, "{bot}SeznamBot/4.0; +https://o-seznam.cz/napoveda/vyhledavani/)" },
    { 70, Crawl, "Mozilla/5.0 {blink}; compatible; GPTBot/1.2; +https://openai.com/gptbot)" },
    { 18, Crawl,
        "Mozilla/5.0 {blink}); compatible; OAI-SearchBot/1.0; +https://openai.com/searchbot" },
    { 16, Preview, "Mozilla/5.0 {blink}); compatible; ChatGPT-User/1.0; +https://openai.com/bot" },
    { 60, Crawl, "Mozilla/5.0 {blink}; compatible; ClaudeBot/1.0; +claudebot@anthropic.com)" },
    { 8, Preview, "Mozilla/5.0 {blink}; compatible; Claude-User/1.0; +Claude-User@anthropic.com)" },
    { 14, Crawl,
        "Mozilla/5.0 {blink}; compatible; PerplexityBot/1.0; "
        "+https://perplexity.ai/perplexitybot)" },
    { 20, Crawl, "CCBot/2.0 (https://commoncrawl.org/faq/)" },
    { 40, Crawl,
        "{android}5.0) {blink}) Mobile Safari/537.36 (compatible; Bytespider; "
        "spider-feedback@bytedance.com)" },
    { 40, Crawl,
        "Mozilla/5.0 {blink}; compatible; Amazonbot/0.1; "
        "+https://developer.amazon.com/support/amazonbot) Chrome/119.0.6045.214 Safari/537.36" },
    { 35, Crawl,
        "meta-externalagent/1.1 "
        "(+https://developers.facebook.com/docs/sharing/webmasters/crawler)" },
    { 14, Preview, "facebookexternalhit/1.1 (+http://www.facebook.com/externalhit_uatext.php)" },
    { 65, Crawl, "{bot}AhrefsBot/7.0; +http://ahrefs.com/robot/)" },
    { 65, Crawl, "{bot}SemrushBot/7~bl; +http://www.semrush.com/bot.html)" },
    { 30, Crawl, "{bot}MJ12bot/v1.4.8; http://mj12bot.com/)" },
    { 25, Crawl, "{bot}DotBot/1.2; +https://opensiteexplorer.org/dotbot; help@moz.com)" },
    { 20, Crawl, "{bot}DataForSeoBot/1.0; +https://dataforseo.com/dataforseo-bot)" },
    { 14, Crawl, "{bot}Barkrowler/0.9; +https://babbar.tech/crawler)" },
    { 10, Crawl, "{bot}BLEXBot/1.0; +http://webmeup-crawler.com/)" },
    { 6, Preview, "Twitterbot/1.0" },
    { 6, Preview, "LinkedInBot/1.0 (compatible; Mozilla/5.0; +http://www.linkedin.com)" },
    { 6, Preview, "Slackbot-LinkExpanding 1.0 (+https://api.slack.com/robots)" },
    { 6, Preview, "{bot}Discordbot/2.0; +https://discordapp.com)" },
    { 10, Preview, "WhatsApp/2.23.20.0 A" },
    { 6, Preview, "TelegramBot (like TwitterBot)" },
    { 60, Check, "Mozilla/5.0+(compatible; UptimeRobot/2.0; http://www.uptimerobot.com/)" },
    { 20, Check, "Pingdom.com_bot_version_1.4_(http://www.pingdom.com/)" },
    { 6, Preview, "WordPress/6.7.1; https://blog.example.net" },
    { 14, Preview, "curl/8.5.0" },
    { 5, Preview, "Wget/1.21.4" },
    { 10, Preview, "python-requests/2.32.3" },
    { 4, Preview, "Python-urllib/3.12" },
    { 8, Preview, "Python/3.12 aiohttp/3.11.10" },
    { 16, Preview, "Go-http-client/2.0" },
    { 4, Preview, "Java/17.0.13" },
    { 3, Preview, "libwww-perl/6.77" },
    { 6, Crawl, "{x11}) {blink}) HeadlessChrome/131.0.0.0 Safari/537.36" },
    { 10, Crawl, "ExampleSearch-Crawler/3.1 (+https://search.example.com/about)" },
    { 6, Preview, "-" },
});

inline constexpr std::array kSearches = std::to_array<Text>({
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

inline constexpr std::array kOutside = std::to_array<Text>({
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

inline constexpr std::array kCampaigns = std::to_array<Text>({
    { 60, "utm_source=newsletter&utm_medium=email&utm_campaign=spring-2026" },
    { 25, "utm_source=newsletter&utm_medium=email&utm_campaign=seed-swap" },
    { 20, "utm_source=partner&utm_medium=banner&utm_campaign=compost%20week" },
    { 10, "utm_source=flyer&utm_medium=qr&utm_campaign=market-day" },
});

inline constexpr std::array kTerms = std::to_array<Text>({
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

inline constexpr std::array<std::string_view, 24> kSubjects { "raised-beds", "compost", "tomatoes",
    "slugs", "apple-trees", "hedges", "rain-barrels", "blueberries", "herbs", "lawns", "roses",
    "bees", "greenhouses", "garlic", "pumpkins", "meadows", "ponds", "tools", "seeds", "soil",
    "potatoes", "beans", "paths", "fences" };
inline constexpr std::array<std::string_view, 12> kAngles { "guide", "for-beginners", "in-march",
    "mistakes", "on-a-balcony", "in-clay-soil", "calendar", "questions", "plans", "without-poison",
    "in-winter", "costs" };
inline constexpr std::array<std::string_view, 14> kFixedPages { "/", "/blog/", "/about", "/guides/",
    "/contact", "/shop/", "/newsletter", "/search?q=compost", "/impressum.html", "/caf%C3%A9/",
    "/de/kr%C3%A4utergarten", "/de/über-uns", "/ru/%D1%81%D0%B0%D0%B4/",
    "/events/2026/seed-swap.html" };

inline constexpr std::array<std::string_view, 10> kGonePages { "/old-shop.html", "/blog/2019/frost",
    "/wiki", "/about-us", "/guides/compst", "/de/kontakt", "/shop/trowel", "/index.htm",
    // What a visitor types arrives decoded in the reports, terminal controls included.
    "/guides/%1B%5B31mred%1B%5B0m%07", "/guides/%E2%80%AEgnp.exe" };

inline constexpr std::array<std::string_view, 44> kProbes { "/.env", "/.git/config", "/.git/HEAD",
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

inline constexpr std::array<std::string_view, 6> kScannerAgents { "-", "Mozilla/5.0 zgrab/0.x",
    "python-requests/2.31.0", "Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36",
    "Mozilla/5.0 (compatible; CensysInspect/1.1; +https://about.censys.io/)",
    "Go-http-client/1.1" };

inline constexpr std::array<std::string_view, 5> kFeedReaders {
    "NetNewsWire (RSS Reader; https://netnewswire.com/)",
    "Tiny Tiny RSS/23.10 (https://tt-rss.org/)", "FreshRSS/1.24.3 (Linux; https://freshrss.org)",
    "Feedly/1.0 (+http://www.feedly.com/fetcher.html; 12 subscribers)", "Miniflux/2.2.3"
};

inline constexpr std::array<std::string_view, 4> kApiClients { "okhttp/4.12.0",
    "ExampleGarden/3.4 (Android 14)", "ExampleGarden/3.4 CFNetwork/1568.200.51 Darwin/24.1.0",
    "python-requests/2.32.3" };

// Lines that are no requests, as servers log them when something other than a browser connects.
inline constexpr std::array<std::string_view, 4> kHandshakes {
    "\\x16\\x03\\x01\\x01\\x00\\x01\\x00\\x00\\xfc\\x03\\x03", "\\x16\\x03\\x01", "\\x03",
    "SSH-2.0-Go"
};
