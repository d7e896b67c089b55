#include "analytics/Classifier.h"

#include "common/HostName.h"

#include <QRegularExpression>
#include <QUrl>
#include <QUrlQuery>

#include <algorithm>
#include <array>
#include <string_view>

namespace vesk::analytics {

namespace {

// ---- Client ----

/// A part of a lower-cased user agent and the crawler name that it stands for.
struct Bot
{
    const char *token;
    const char *name;
};

constexpr Bot kBots[] = {
    { "googlebot", "Googlebot" },
    { "google-inspectiontool", "Google Inspection Tool" },
    { "storebot-google", "Google StoreBot" },
    { "googleother", "GoogleOther" },
    { "adsbot-google", "Google AdsBot" },
    { "google-read-aloud", "Google Read Aloud" },
    { "bingbot", "Bingbot" },
    { "bingpreview", "Bing Preview" },
    { "applebot", "Applebot" },
    { "duckduckbot", "DuckDuckBot" },
    { "yandex", "YandexBot" },
    { "baiduspider", "Baiduspider" },
    { "petalbot", "PetalBot" },
    { "seznambot", "SeznamBot" },
    { "gptbot", "GPTBot (OpenAI)" },
    { "oai-searchbot", "OAI-SearchBot (OpenAI)" },
    { "chatgpt-user", "ChatGPT-User" },
    { "claudebot", "ClaudeBot" },
    { "claude-user", "Claude-User" },
    { "perplexitybot", "PerplexityBot" },
    { "ccbot", "CCBot (Common Crawl)" },
    { "bytespider", "Bytespider (ByteDance)" },
    { "amazonbot", "Amazonbot" },
    { "meta-externalagent", "Meta crawler" },
    { "facebookexternalhit", "Facebook link preview" },
    { "ahrefsbot", "AhrefsBot" },
    { "semrushbot", "SemrushBot" },
    { "mj12bot", "MJ12bot" },
    { "dotbot", "DotBot" },
    { "dataforseobot", "DataForSeoBot" },
    { "barkrowler", "Barkrowler" },
    { "blexbot", "BLEXBot" },
    { "twitterbot", "Twitterbot" },
    { "linkedinbot", "LinkedInBot" },
    { "slackbot", "Slackbot" },
    { "discordbot", "Discordbot" },
    { "whatsapp", "WhatsApp preview" },
    { "telegrambot", "TelegramBot" },
    { "uptimerobot", "UptimeRobot" },
    { "pingdom", "Pingdom" },
    { "wordpress", "WordPress" },
    { "curl/", "curl" },
    { "wget/", "Wget" },
    { "python-requests", "Python" },
    { "python-urllib", "Python" },
    { "aiohttp", "Python" },
    { "go-http-client", "Go client" },
    { "okhttp", "OkHttp" },
    { "java/", "Java client" },
    { "libwww-perl", "Perl" },
    { "headlesschrome", "Headless Chrome" },
};

QString crawlerName(const QString &ua)
{
    if (ua.isEmpty())
        return QStringLiteral("No user agent");
    // U+0130 would become two characters, and a text of many would be moved once for each. No token
    // has them, so another one will do.
    QString text = ua;
    text.replace(u'\u0130', u'\ufffd');
    const QByteArray lower = text.toLower().toUtf8(); // the tokens are ASCII, so bytes will do
    const std::string_view searched(lower.constData(), static_cast<size_t>(lower.size()));
    for (const Bot &bot : kBots) {
        if (searched.find(bot.token) != std::string_view::npos)
            return QString::fromLatin1(bot.name);
    }
    static const QRegularExpression generic(
        QStringLiteral(R"(bot\b|crawl|spider|slurp|scrapy|scanner|fetcher|preview)"),
        QRegularExpression::CaseInsensitiveOption);
    return generic.match(ua).hasMatch() ? QStringLiteral("Other crawler") : QString();
}

QString deviceClass(const QByteArray &ua)
{
    if (ua.contains("iPad") || ua.contains("Tablet"))
        return QStringLiteral("tablet");
    if (ua.contains("Android") && !ua.contains("Mobile"))
        return QStringLiteral("tablet");
    if (ua.contains("Mobi") || ua.contains("iPhone"))
        return QStringLiteral("mobile");
    return QStringLiteral("desktop");
}

/// Browsers that also announce Chrome and Safari come before those.
QString browserFamily(const QByteArray &ua)
{
    if (ua.contains("Edg/") || ua.contains("EdgA/") || ua.contains("EdgiOS/"))
        return QStringLiteral("Edge");
    if (ua.contains("OPR/") || ua.contains("Opera"))
        return QStringLiteral("Opera");
    if (ua.contains("SamsungBrowser"))
        return QStringLiteral("Samsung Internet");
    if (ua.contains("Firefox/") || ua.contains("FxiOS/"))
        return QStringLiteral("Firefox");
    if (ua.contains("Chrome/") || ua.contains("CriOS/"))
        return QStringLiteral("Chrome");
    if (ua.contains("Safari/") && ua.contains("Version/"))
        return QStringLiteral("Safari");
    return QStringLiteral("Other");
}

/// iPhones also announce Mac OS X, and Android announces Linux.
QString osFamily(const QByteArray &ua)
{
    if (ua.contains("Windows"))
        return QStringLiteral("Windows");
    if (ua.contains("iPhone") || ua.contains("iPad") || ua.contains("iPod"))
        return QStringLiteral("iOS");
    if (ua.contains("Mac OS X") || ua.contains("Macintosh"))
        return QStringLiteral("macOS");
    if (ua.contains("Android"))
        return QStringLiteral("Android");
    if (ua.contains("CrOS"))
        return QStringLiteral("ChromeOS");
    if (ua.contains("Linux"))
        return QStringLiteral("Linux");
    return QStringLiteral("Other");
}

// ---- Source ----

constexpr qsizetype kMaxCampaignSource = 100; // UTF-16 code units
constexpr qsizetype kMaxTerms = 200;
constexpr qsizetype kMaxForeignHost = 512; // no domain name has more than 253 characters

/// A service that refers visitors: its domain, which covers all subdomains, and for a search engine
/// the parameter with the search terms.
struct Known
{
    const char *domain;
    const char *kind;
    const char *name;
    const char *queryParam;
};

constexpr Known kKnown[] = {
    { "gemini.google.com", "ai", "Gemini", nullptr },
    { "mail.google.com", "email", "Gmail", nullptr },
    { "chatgpt.com", "ai", "ChatGPT", nullptr },
    { "chat.openai.com", "ai", "ChatGPT", nullptr },
    { "perplexity.ai", "ai", "Perplexity", nullptr },
    { "claude.ai", "ai", "Claude", nullptr },
    { "copilot.microsoft.com", "ai", "Copilot", nullptr },
    { "bing.com", "search", "Bing", "q" },
    { "duckduckgo.com", "search", "DuckDuckGo", "q" },
    { "search.yahoo.com", "search", "Yahoo", "p" },
    { "search.brave.com", "search", "Brave", "q" },
    { "ecosia.org", "search", "Ecosia", "q" },
    { "startpage.com", "search", "Startpage", "query" },
    { "qwant.com", "search", "Qwant", "q" },
    { "baidu.com", "search", "Baidu", "wd" },
    { "naver.com", "search", "Naver", "query" },
    { "seznam.cz", "search", "Seznam", "q" },
    { "ask.com", "search", "Ask", "q" },
    { "search.aol.com", "search", "AOL", "q" },
    { "facebook.com", "social", "Facebook", nullptr },
    { "fb.com", "social", "Facebook", nullptr },
    { "instagram.com", "social", "Instagram", nullptr },
    { "t.co", "social", "X (Twitter)", nullptr },
    { "twitter.com", "social", "X (Twitter)", nullptr },
    { "x.com", "social", "X (Twitter)", nullptr },
    { "linkedin.com", "social", "LinkedIn", nullptr },
    { "lnkd.in", "social", "LinkedIn", nullptr },
    { "reddit.com", "social", "Reddit", nullptr },
    { "pinterest.com", "social", "Pinterest", nullptr },
    { "youtube.com", "social", "YouTube", nullptr },
    { "tiktok.com", "social", "TikTok", nullptr },
    { "threads.net", "social", "Threads", nullptr },
    { "bsky.app", "social", "Bluesky", nullptr },
    { "outlook.live.com", "email", "Outlook", nullptr },
    { "mail.yahoo.com", "email", "Yahoo Mail", nullptr },
};

QString stripWww(const QString &host)
{
    return host.startsWith(QLatin1String("www.")) ? host.sliced(4) : host;
}

/// Whether \a host is \a domain or one of its subdomains.
bool isWithin(const QString &host, QLatin1String domain)
{
    return host.endsWith(domain)
        && (host.size() == domain.size() || host[host.size() - domain.size() - 1] == u'.');
}

/// Whether a referring host belongs to the site: the host itself, a subdomain, or a longer name
/// that starts with it.
bool isInternal(const QString &host, const QString &siteHost)
{
    const QString site = stripWww(comparableHost(siteHost));
    const QString referring = stripWww(host);
    return referring == site || referring.endsWith(u'.' + site)
        || referring.startsWith(site + u'.');
}

/// The host in \a authority, without user and port, its escapes decoded (RFC 3986, section 3.2).
QString hostOf(QStringView authority)
{
    QStringView host = authority.sliced(authority.lastIndexOf(u'@') + 1);
    const qsizetype colon = host.lastIndexOf(u':');
    const auto isDigit = [](QChar c) { return c >= u'0' && c <= u'9'; };
    if (colon >= 0 && std::all_of(host.begin() + colon + 1, host.end(), isDigit))
        host = host.first(colon);
    return QUrl::fromPercentEncoding(host.toUtf8());
}

/// Whether QUrl would take a time quadratic in its length to normalise the host in \a authority.
bool isOddHost(QStringView authority)
{
    if (authority.size() <= kMaxForeignHost)
        return false;
    const QString host = hostOf(authority);
    const auto isAscii = [](QChar c) { return c.unicode() < 0x80; };
    return host.size() > kMaxForeignHost && !std::all_of(host.begin(), host.end(), isAscii);
}

/// A referrer as a URL, which has no host where that is not plain ASCII and beyond
/// kMaxForeignHost.
QUrl referrerUrl(const QByteArray &referrer)
{
    QString text = QString::fromUtf8(referrer);
    const qsizetype begin = text.indexOf(QLatin1String("//")) + 2;
    if (begin >= 2) {
        const auto endsAuthority = [](QChar c) { return c == u'/' || c == u'?' || c == u'#'; };
        const auto end = std::find_if(text.cbegin() + begin, text.cend(), endsAuthority);
        const QStringView authority(text.cbegin() + begin, end);
        if (isOddHost(authority))
            text.remove(begin, authority.size());
    }
    return QUrl(text, QUrl::TolerantMode);
}

/// The decoded value of a query parameter; the first one counts, and a plus sign stays one.
QString parameter(const QUrlQuery &query, const char *key)
{
    return query.queryItemValue(QLatin1String(key), QUrl::FullyDecoded);
}

/// A referring Android app, by its package id.
Source classifyApp(const QString &package)
{
    if (package == QLatin1String("com.google.android.googlequicksearchbox"))
        return { QStringLiteral("search"), QStringLiteral("Google"), {} };
    if (package == QLatin1String("com.google.android.gm"))
        return { QStringLiteral("email"), QStringLiteral("Gmail"), {} };
    if (package.startsWith(QLatin1String("com.facebook.")))
        return { QStringLiteral("social"), QStringLiteral("Facebook"), {} };
    if (package == QLatin1String("com.linkedin.android"))
        return { QStringLiteral("social"), QStringLiteral("LinkedIn"), {} };
    return { QStringLiteral("referral"), package, {} };
}

/// Whether \a query may hold \a word, of lower-case letters and "_", some of them escaped perhaps.
bool mayHold(const QByteArray &query, const char *word)
{
    if (query.contains(word))
        return true;
    // Their codes are 5F to 7A.
    return query.contains('%')
        && (query.contains("%5") || query.contains("%6") || query.contains("%7"));
}

/// The campaign that a request target names; a null kind when it names none.
Source campaign(const QByteArray &target)
{
    const qsizetype mark = target.indexOf('?');
    if (mark < 0)
        return {};
    const QByteArray text = target.sliced(mark + 1);
    if (!mayHold(text, "utm_source"))
        return {};
    const QUrlQuery query(QString::fromUtf8(text));
    const QString source = parameter(query, "utm_source");
    if (source.isEmpty())
        return {};
    return { QStringLiteral("campaign"), source.left(kMaxCampaignSource),
        parameter(query, "utm_campaign").left(kMaxTerms) };
}

Source classifyReferrer(const QByteArray &referrer, const QString &siteHost)
{
    if (referrer.isEmpty())
        return { QStringLiteral("direct"), {}, {} };
    const QUrl url = referrerUrl(referrer);
    if (url.scheme() == QLatin1String("android-app"))
        return classifyApp(url.host());
    const QString host = url.host(QUrl::FullyDecoded).toLower();
    if (host.isEmpty())
        return { QStringLiteral("direct"), {}, {} };
    if (isInternal(host, siteHost))
        return { QStringLiteral("internal"), {}, {} };

    static const QRegularExpression google(QStringLiteral(R"(^(www\.)?google\.[a-z.]+$)"));
    if (google.match(host).hasMatch())
        return { QStringLiteral("search"), QStringLiteral("Google"),
            parameter(QUrlQuery(url), "q") };
    static const QRegularExpression yandex(QStringLiteral(R"(^(www\.)?yandex\.[a-z.]+$)"));
    if (yandex.match(host).hasMatch())
        return { QStringLiteral("search"), QStringLiteral("Yandex"),
            parameter(QUrlQuery(url), "text") };

    const auto known = std::find_if(std::begin(kKnown), std::end(kKnown),
        [&host](const Known &row) { return isWithin(host, QLatin1String(row.domain)); });
    if (known == std::end(kKnown))
        return { QStringLiteral("referral"), stripWww(host), {} };
    Source source { QString::fromLatin1(known->kind), QString::fromLatin1(known->name), {} };
    if (known->queryParam)
        source.searchTerms = parameter(QUrlQuery(url), known->queryParam).left(kMaxTerms);
    return source;
}

} // namespace

Client classifyClient(const QByteArray &userAgent)
{
    const QString text = QString::fromUtf8(userAgent);
    const QByteArray ua = text.toUtf8(); // without malformed sequences
    return { crawlerName(text), deviceClass(ua), browserFamily(ua), osFamily(ua) };
}

bool namesCampaign(const QByteArray &target)
{
    return !campaign(target).kind.isEmpty();
}

Source classifySource(const QByteArray &referrer, const QByteArray &target, const QString &siteHost)
{
    const Source named = campaign(target);
    return named.kind.isEmpty() ? classifyReferrer(referrer, siteHost) : named;
}

bool isPage(const QByteArray &method, const QString &path)
{
    using namespace std::string_view_literals;
    static constexpr std::array kNotPages { u"/wp-admin/"sv, u"/wp-content/"sv, u"/wp-includes/"sv,
        u"/wp-json/"sv, u"/wp-login.php"sv, u"/xmlrpc.php"sv, u"/wp-cron.php"sv, u"/static/"sv,
        u"/api/"sv, u"/feed"sv, u"/.well-known/"sv, u"/cgi-bin/"sv };
    if (method != "GET" && method != "HEAD")
        return false;
    const std::u16string_view text(QStringView(path).utf16(), static_cast<size_t>(path.size()));
    const auto startsPath = [text](std::u16string_view prefix) { return text.starts_with(prefix); };
    if (std::any_of(kNotPages.begin(), kNotPages.end(), startsPath)
        || path.endsWith(QLatin1String("/feed/")))
        return false;
    const qsizetype dot = path.lastIndexOf(u'.');
    if (dot <= path.lastIndexOf(u'/'))
        return true;
    const QStringView extension = QStringView(path).sliced(dot + 1);
    return extension.compare(QLatin1String("html"), Qt::CaseInsensitive) == 0
        || extension.compare(QLatin1String("htm"), Qt::CaseInsensitive) == 0
        || extension.compare(QLatin1String("php"), Qt::CaseInsensitive) == 0;
}

} // namespace vesk::analytics
