#include "common/Config.h"
#include "common/Program.h"
#include "common/Text.h"
#include "report/Check.h"
#include "report/CommandLine.h"
#include "report/Pages.h"
#include "report/Reader.h"
#include "report/SitesReader.h"
#include "report/Writers.h"

#include <cstdio>

using namespace vesk::report;
using vesk::clean;

namespace {

constexpr int kFailure = 1;

void print(const QByteArray &text)
{
    fwrite(text.constData(), 1, size_t(text.size()), stdout);
}

/// A report or an overview, in the form that the options name.
template <typename T> void print(const QCommandLineParser &parser, const T &shown)
{
    print(parser.isSet(QStringLiteral("json"))     ? toJson(shown)
            : parser.isSet(QStringLiteral("html")) ? toHtml(shown)
                                                   : toText(shown));
}

/// The period that \a text names.
std::optional<Period> periodOf(const QString &text, const Calendar &calendar)
{
    if (text.isEmpty())
        return daysUpTo(calendar.lastComplete, 1);
    const auto period = parsePeriod(text, calendar);
    if (!period)
        qCritical("%s is no period. Periods are: %s", qPrintable(clean(text)), kPeriodForms);
    return period;
}

/// The report of a site, or its pages. False, after a message, when there is nothing to show.
bool reportSite(
    const QCommandLineParser &parser, const Arguments &arguments, const Options &options)
{
    const auto chosen = chooseSite(arguments.host);
    const auto site = chosen ? readCalendar(*chosen) : std::nullopt;
    if (!site)
        return false;
    if (site->newest.isNull()) {
        qCritical("%s has no reports yet (import its logs with vesk-nightly import HOST)",
            qPrintable(clean(site->host)));
        return false;
    }
    const auto period = periodOf(arguments.period, site->calendar);
    if (!period)
        return false;
    if (parser.isSet(QStringLiteral("pages")))
        return writePages(*site, parser.value(QStringLiteral("pages")), options);
    if (parser.isSet(QStringLiteral("pages-below")))
        return writePagesBelow(*site, parser.value(QStringLiteral("pages-below")), options);
    const auto report = readReport(*site, *period, options);
    if (!report)
        return false;
    print(parser, *report);
    return true;
}

/// All sites, as one page or several. False, after a message, when there is nothing to show.
bool reportSites(const QCommandLineParser &parser, const Arguments &arguments,
    const Options &options, const Limits &limits)
{
    const auto chosen = chooseSites({});
    const auto sites = chosen ? readFacts(*chosen) : std::nullopt;
    const auto period = sites ? periodOf(arguments.period, calendarOf(*sites)) : std::nullopt;
    if (!period)
        return false;
    if (parser.isSet(QStringLiteral("pages")))
        return writeOverview(*sites, parser.value(QStringLiteral("pages")), options, limits);
    const auto overview = readOverview(*sites, *period, options, limits);
    if (!overview)
        return false;
    print(parser, *overview);
    return true;
}

/// The status that a monitoring program expects.
int check(const QCommandLineParser &parser, const Arguments &arguments, const Limits &limits)
{
    const auto chosen = chooseSites(arguments.host);
    const auto sites = chosen ? readFacts(*chosen) : std::nullopt;
    if (!sites)
        return kUnknownStatus;
    QList<CheckedSite> checked;
    for (const KnownSite &known : *sites)
        checked += { known.site.host, known.facts, judge(known.facts, limits) };
    print(parser.isSet(QStringLiteral("json")) ? toJson(checked) : toLines(checked));
    return statusOf(checked);
}

/// Ends a check that could not be made. Monitoring programs show standard output alone.
int giveUp()
{
    print("UNKNOWN: the check could not be made; run it by hand to see why\n");
    return kUnknownStatus;
}

int run(const QCommandLineParser &parser, const Arguments &arguments, int failure)
{
    const auto options = optionsOf(parser);
    const auto limits = options ? limitsOf(parser) : std::nullopt;
    if (!limits)
        return failure;
    const Snapshot snapshot;
    if (!snapshot.isOpen())
        return failure;
    if (parser.isSet(QStringLiteral("check")))
        return check(parser, arguments, *limits);
    const bool done = parser.isSet(QStringLiteral("sites"))
        ? reportSites(parser, arguments, *options, *limits)
        : reportSite(parser, arguments, *options);
    return done ? 0 : failure;
}

} // namespace

int main(int argc, char **argv)
{
    vesk::Program program("vesk-report", argc, argv);
    QCommandLineParser &parser = program.parser();
    addOptions(parser);
    const bool isUnderstood = parser.parse(QCoreApplication::arguments());
    const bool isCheck = parser.isSet(QStringLiteral("check"));
    const int failure = isCheck ? kUnknownStatus : kFailure;
    if (isCheck && !isUnderstood) { // process() would end with 1, a warning
        qCritical("%s", qPrintable(clean(parser.errorText())));
        return giveUp();
    }
    program.process();
    const auto arguments = argumentsOf(parser);
    const QString path = vesk::configPath(parser);
    if (isCheck && !arguments)
        qCritical("--check takes a site, or none for all, and goes with none of the other tasks");
    if (isCheck && (path.isEmpty() || !arguments))
        return giveUp();
    if (path.isEmpty() || !arguments)
        parser.showHelp(failure);
    vesk::Program::leaveOutRepeats();
    const int status = program.connect(path, vesk::Program::Unreadable::Refuse)
        ? run(parser, *arguments, failure)
        : failure;
    return status == kUnknownStatus ? giveUp() : status;
}
