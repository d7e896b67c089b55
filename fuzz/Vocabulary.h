#pragma once

#include "Check.h"

#include "analytics/Classifier.h"

/// The texts that the classifiers may store, written down apart from the tables that make them:
/// what is stored once must not change.
namespace vesk::fuzz {

inline void checkClient(const analytics::Client &client)
{
    check(isOneOf(client.device, { "desktop", "mobile", "tablet" }), "known device");
    check(isOneOf(client.browser,
              { "Edge", "Opera", "Samsung Internet", "Firefox", "Chrome", "Safari", "Other" }),
        "known browser");
    check(
        isOneOf(client.os, { "Windows", "iOS", "macOS", "Android", "ChromeOS", "Linux", "Other" }),
        "known operating system");
    check(client.bot.isNull()
            || isOneOf(client.bot,
                { "No user agent", "Other crawler", "Googlebot", "Google Inspection Tool",
                    "Google StoreBot", "GoogleOther", "Google AdsBot", "Google Read Aloud",
                    "Bingbot", "Bing Preview", "Applebot", "DuckDuckBot", "YandexBot",
                    "Baiduspider", "PetalBot", "SeznamBot", "GPTBot (OpenAI)",
                    "OAI-SearchBot (OpenAI)", "ChatGPT-User", "ClaudeBot", "Claude-User",
                    "PerplexityBot", "CCBot (Common Crawl)", "Bytespider (ByteDance)", "Amazonbot",
                    "Meta crawler", "Facebook link preview", "AhrefsBot", "SemrushBot", "MJ12bot",
                    "DotBot", "DataForSeoBot", "Barkrowler", "BLEXBot", "Twitterbot", "LinkedInBot",
                    "Slackbot", "Discordbot", "WhatsApp preview", "TelegramBot", "UptimeRobot",
                    "Pingdom", "WordPress", "curl", "Wget", "Python", "Go client", "OkHttp",
                    "Java client", "Perl", "Headless Chrome" }),
        "known crawler");
}

inline void checkSource(const analytics::Source &source)
{
    const auto nameIs = [&source](std::initializer_list<const char *> names) {
        return isOneOf(source.name, names);
    };
    const bool google = nameIs({ "Google", "Yandex" });
    const QString &kind = source.kind;
    if (kind == QLatin1String("campaign"))
        check(!source.name.isEmpty() && source.name.size() <= 100, "a campaign has a short name");
    else if (kind == QLatin1String("direct") || kind == QLatin1String("internal"))
        check(source.name.isEmpty(), "no name without a service");
    else if (kind == QLatin1String("search"))
        check(google
                || nameIs({ "Bing", "DuckDuckGo", "Yahoo", "Brave", "Ecosia", "Startpage", "Qwant",
                    "Baidu", "Naver", "Seznam", "Ask", "AOL" }),
            "known search engine");
    else if (kind == QLatin1String("ai"))
        check(
            nameIs({ "Gemini", "ChatGPT", "Perplexity", "Claude", "Copilot" }), "known assistant");
    else if (kind == QLatin1String("social"))
        check(nameIs({ "Facebook", "Instagram", "X (Twitter)", "LinkedIn", "Reddit", "Pinterest",
                  "YouTube", "TikTok", "Threads", "Bluesky" }),
            "known network");
    else if (kind == QLatin1String("email"))
        check(nameIs({ "Gmail", "Outlook", "Yahoo Mail" }), "known mail service");
    else
        check(kind == QLatin1String("referral"), "known kind of source");

    const bool search = kind == QLatin1String("search");
    check(source.searchTerms.isEmpty() || search || kind == QLatin1String("campaign"),
        "terms come from searches and campaigns");
    // Those of Google and Yandex are stored at full length.
    check(source.searchTerms.size() <= 200 || (search && google), "terms are at most 200 long");
    checkStorable(source.name);
    checkStorable(source.searchTerms);
}

} // namespace vesk::fuzz
