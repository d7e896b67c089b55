#include "common/Config.h"
#include "common/Db.h"
#include "common/Program.h"
#include "common/Sites.h"
#include "common/Text.h"
#include "nightly/Import.h"
#include "nightly/Retain.h"
#include "nightly/RotatedLogs.h"
#include "nightly/RunNote.h"
#include "nightly/Translate.h"

#include <QCommandLineOption>
#include <QSettings>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <limits>
#include <optional>

using namespace vesk::nightly;
using vesk::Site;

namespace {

/// Makes the days of this process those of the database session. False, after a message, when the
/// server does not know the configured zone, and would cut days elsewhere.
bool followTimeZone(const QSettings &cfg)
{
    auto q = vesk::db::run(QStringLiteral(
        "SELECT setting, source = 'session' FROM pg_settings WHERE name = 'TimeZone'"));
    if (!q || !q->next())
        return false;
    const QString zone = q->value(0).toString();
    const bool isTaken = q->value(1).toBool();
    const QString wanted = cfg.value(QStringLiteral("database/timezone")).toString();
    if (!wanted.isEmpty() && !isTaken) {
        qCritical("the configuration names the time zone %s, which the database does not know; "
                  "those that it does are in pg_timezone_names",
            qPrintable(vesk::clean(wanted)));
        return false;
    }
    qputenv("TZ", zone.toUtf8());
    tzset();
    return true;
}

bool import(const Site &site, const QStringList &)
{
    RunNote note(site);
    const bool done = Import(site, Task::Store).run(logPatterns(site.host, readsLiveLogs()));
    return note.save(done) && done;
}

bool mark(const Site &site, const QStringList &files)
{
    Import import(site, Task::Note);
    return files.isEmpty() ? import.run(logPatterns(site.host, readsLiveLogs()))
                           : import.runOn(files);
}

bool list(const Site &site, const QStringList &)
{
    const auto entries = Ledger(site).entries();
    if (!entries)
        return false;
    for (const Entry &entry : *entries) {
        const QString lines = entry.lines
            ? QStringLiteral("%1 lines, %2 stored").arg(*entry.lines).arg(*entry.stored)
            : QStringLiteral("only noted");
        printf("%s  %s  %s\n", qPrintable(entry.at), qPrintable(lines.leftJustified(32)),
            qPrintable(vesk::clean(entry.name)));
    }
    return true;
}

bool listSites()
{
    const auto sites = vesk::allSites();
    if (!sites)
        return false;
    for (const Site &site : *sites)
        printf("%s\n", qPrintable(vesk::clean(site.host)));
    return true;
}

/// The word of a command and what it does with a site and the arguments after that, of which it
/// takes that many; without \a alone it needs a host.
struct Command
{
    const char *word;
    bool (*onSite)(const Site &site, const QStringList &files);
    qsizetype files;
    bool (*alone)();

    bool takes(const QStringList &args) const
    {
        return args.value(0) == QLatin1String(word) && args.size() <= 2 + files
            && (args.size() > 1 || alone);
    }
};

constexpr Command kCommands[] = {
    { "import", import, 0, nullptr },
    { "mark", mark, std::numeric_limits<int>::max(), nullptr },
    { "list", list, 0, listSites },
    { "retain", [](const Site &site, const QStringList &) { return retain(site); }, 0, nullptr },
};

bool execute(const Command &command, const QStringList &args)
{
    if (args.size() == 1)
        return command.alone();
    if (!vesk::allSites()) // a site that may not be read is not unknown
        return false;
    const QString &host = args[1];
    const auto site = vesk::findSite(host);
    if (!site)
        qCritical(
            "unknown site %s (add it with vesk-admin add-site)", qPrintable(vesk::clean(host)));
    return site && command.onSite(*site, args.sliced(2));
}

} // namespace

int main(int argc, char **argv)
{
    vesk::Program program("vesk-nightly", argc, argv);
    QCommandLineParser &parser = program.parser();
    const QCommandLineOption host(QStringLiteral("host"),
        QStringLiteral("The site whose lines translate takes."), QStringLiteral("host"));
    parser.addOption(host);
    parser.addPositionalArgument(QStringLiteral("command"),
        QStringLiteral(
            "import HOST | mark HOST [FILE...] | list [HOST] | retain HOST | translate [FILE...]"));
    program.process();
    const QStringList args = parser.positionalArguments();
    if (args.value(0) == QLatin1String("translate"))
        return translateLogs(args.mid(1),
                   parser.isSet(host) ? std::optional(parser.value(host)) : std::nullopt)
            ? 0
            : 1;
    const auto command = std::find_if(std::begin(kCommands), std::end(kCommands),
        [&args](const Command &row) { return row.takes(args); });
    if (command == std::end(kCommands))
        parser.showHelp(1);
    const QString path = vesk::configPath(parser);
    vesk::Program::leaveOutRepeats();
    if (path.isEmpty() || !program.connect(path, vesk::Program::Unreadable::Refuse))
        return 1;
    vesk::db::ignoreNotices();
    return followTimeZone(program.settings()) && execute(*command, args) ? 0 : 1;
}
