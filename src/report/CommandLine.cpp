#include "report/CommandLine.h"

#include "common/Text.h"

#include <QCommandLineOption>
#include <QCommandLineParser>

#include <limits>

namespace vesk::report {

namespace {

/// Two numbers with a comma between them, the second not below the first.
std::optional<Limit> parseLimit(const QString &text)
{
    const QStringList parts = text.split(u',');
    bool isFirst = false;
    bool isSecond = false;
    const Limit limit { parts[0].toDouble(&isFirst), parts.value(1).toDouble(&isSecond) };
    const bool isGood = parts.size() == 2 && isFirst && isSecond && limit.warning > 0
        && limit.critical >= limit.warning && limit.critical < 1e9;
    return isGood ? std::optional(limit) : std::nullopt;
}

} // namespace

void addOptions(QCommandLineParser &parser)
{
    const auto add = [&parser](const char *name, const char *text, const char *value = "",
                         const QString &standard = {}) {
        const QString told
            = standard.isEmpty() ? QString() : QLatin1String(" The default: ") + standard;
        parser.addOption(QCommandLineOption(
            QLatin1String(name), QLatin1String(text) + told, QLatin1String(value), standard));
    };
    const auto both = [](const Limit &limit, int factor = 1) {
        return QStringLiteral("%1,%2").arg(limit.warning * factor).arg(limit.critical * factor);
    };
    const Limits limits;
    add("html", "Write a web page.");
    add("json", "Write JSON.");
    add("rows", "Show as many rows of each list, or all.", "number", QStringLiteral("15"));
    add("scope", "Whom the lists count: people, or all to have unverified browsers in them.",
        "scope", QStringLiteral("people"));
    add("addresses", "List the addresses of scanners. They are personal data.");
    add("pages", "Write web pages and an index into the folder.", "folder");
    add("pages-below", "The same into a folder of the site below that one.", "folder");
    add("sites", "All sites, a line for each. With --pages, as pages above those of the sites.");
    add("check", "Say what is wrong, and end as monitoring programs expect it.");
    add("silent", "Days without a request, for a warning and for more.", "two",
        both(limits.silentDays));
    add("errors", "Server errors, in percent of a day's requests.", "two",
        both(limits.errorShare, 100));
    add("factor", "How many times fewer or more requests than usual.", "two", both(limits.factor));
    add("nights", "Nights that failed one after the other.", "two", both(limits.nights));
    parser.addPositionalArgument(QStringLiteral("host"),
        QStringLiteral("The site; may be left out when there is only one."),
        QStringLiteral("[HOST]"));
    parser.addPositionalArgument(QStringLiteral("period"),
        QLatin1String("The last complete day, or one of these: ") + QLatin1String(kPeriodForms),
        QStringLiteral("[PERIOD]"));
}

std::optional<Options> optionsOf(const QCommandLineParser &parser)
{
    Options options;
    const QString scope = parser.value(QStringLiteral("scope"));
    const QString rows = parser.value(QStringLiteral("rows"));
    options.everyone = scope == QLatin1String("all");
    options.addresses = parser.isSet(QStringLiteral("addresses"));
    options.rows = rows == QLatin1String("all") ? std::numeric_limits<int>::max() : rows.toInt();
    if (!options.everyone && scope != QLatin1String("people"))
        qCritical("unknown scope %s: it is people or all", qPrintable(clean(scope)));
    else if (options.rows < 1)
        qCritical("--rows takes a number or all, not %s", qPrintable(clean(rows)));
    else
        return options;
    return {};
}

std::optional<Limits> limitsOf(const QCommandLineParser &parser)
{
    Limits limits;
    for (const auto &[name, limit] :
        { std::pair("silent", &limits.silentDays), std::pair("errors", &limits.errorShare),
            std::pair("factor", &limits.factor), std::pair("nights", &limits.nights) }) {
        const QString text = parser.value(QLatin1String(name));
        const auto parsed = parseLimit(text);
        if (!parsed) {
            qCritical("--%s takes two numbers such as 2,7, for a warning and for what is critical, "
                      "not %s",
                name, qPrintable(clean(text)));
            return {};
        }
        *limit = *parsed;
    }
    limits.errorShare = { limits.errorShare.warning / 100, limits.errorShare.critical / 100 };
    return limits;
}

std::optional<Arguments> argumentsOf(const QCommandLineParser &parser)
{
    const auto isSet = [&parser](const char *name) { return parser.isSet(QLatin1String(name)); };
    const QStringList given = parser.positionalArguments();
    const bool isCheck = isSet("check");
    if (int { isCheck } + int { isSet("pages") } + int { isSet("pages-below") } > 1
        || (isSet("sites") && (isCheck || isSet("pages-below")))
        || given.size() > (isCheck || isSet("sites") ? 1 : 2))
        return {};
    if (isCheck)
        return Arguments { given.value(0), {} };
    if (isSet("sites"))
        return Arguments { {}, given.value(0) };
    const QDate any(2000, 1, 1);
    if (given.size() == 1 && parsePeriod(given[0], { any, any }))
        return Arguments { {}, given[0] };
    return Arguments { given.value(0), given.value(1) };
}

} // namespace vesk::report
