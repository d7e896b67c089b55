#pragma once

#include "Check.h"

#include "analytics/Classifier.h"

#include <QFile>
#include <QSet>
#include <QString>

/// The texts that the classifiers may store, written down apart from the tables that make them:
/// what is stored once must not change.
namespace vesk::fuzz {

/// What stands before ": " in the lines of the tests' file \a name.
inline QSet<QString> expectations(const char *name)
{
    QFile file(QLatin1String(VESK_TEST_DATA "/") + QLatin1String(name));
    check(file.open(QIODevice::ReadOnly), "the tests' data is there");
    QSet<QString> found;
    for (const QByteArray &line : file.readAll().split('\n'))
        found.insert(QString::fromUtf8(line.first(qMax(line.indexOf(": "), qsizetype { 0 }))));
    return found;
}

inline void checkClient(const analytics::Client &client)
{
    check(isOneOf(client.device, { "desktop", "mobile", "tablet" }), "known device");
    check(isOneOf(client.browser,
              { "Edge", "Opera", "Samsung Internet", "Firefox", "Chrome", "Safari", "Other" }),
        "known browser");
    check(
        isOneOf(client.os, { "Windows", "iOS", "macOS", "Android", "ChromeOS", "Linux", "Other" }),
        "known operating system");
    static const QSet<QString> crawlers = expectations("crawlers.txt");
    check(client.bot.isNull() || isOneOf(client.bot, { "No user agent", "Other crawler" })
            || crawlers.contains(client.bot),
        "known crawler");
}

inline void checkSource(const analytics::Source &source)
{
    static const QSet<QString> services = [] {
        QSet<QString> found;
        for (const QString &expectation : expectations("referrers.txt"))
            found.insert(expectation.section(u'|', 0, 1));
        return found;
    }();
    const QString &kind = source.kind;
    if (kind == QLatin1String("campaign"))
        check(!source.name.isEmpty() && source.name.size() <= 100, "a campaign has a short name");
    else if (kind == QLatin1String("direct") || kind == QLatin1String("internal"))
        check(source.name.isEmpty(), "no name without a service");
    else if (kind != QLatin1String("referral"))
        check(services.contains(kind + u'|' + source.name), "known service");

    const bool search = kind == QLatin1String("search");
    check(source.searchTerms.isEmpty() || search || kind == QLatin1String("campaign"),
        "terms come from searches and campaigns");
    // Those of Google and Yandex are stored at full length.
    check(source.searchTerms.size() <= 200
            || (search && isOneOf(source.name, { "Google", "Yandex" })),
        "terms are at most 200 long");
    checkStorable(source.name);
    checkStorable(source.searchTerms);
}

} // namespace vesk::fuzz
