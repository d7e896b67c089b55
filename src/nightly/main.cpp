#include "common/Config.h"
#include "common/Db.h"
#include "common/Program.h"
#include "common/Sites.h"
#include "common/Text.h"
#include "nightly/Import.h"
#include "nightly/Translate.h"

#include <QCommandLineOption>
#include <QSettings>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>

using namespace vesk::nightly;
using vesk::Site;

namespace {

QByteArray shown(const QString &text)
{
    return vesk::clean(text).toLocal8Bit();
}

/// Makes the days of this process those of the database session. False, after a message, when the
/// server does not know the configured zone, and would cut days elsewhere.
bool followTimeZone(const QSettings &cfg)
{
    auto q = vesk::db::run(QStringLiteral("SELECT current_setting('TimeZone')"));
    if (!q || !q->next())
        return false;
    const QString zone = q->value(0).toString();
    const QString wanted = cfg.value(QStringLiteral("database/timezone")).toString();
    if (!wanted.isEmpty() && wanted.compare(zone, Qt::CaseInsensitive) != 0) {
        qCritical("the configuration names the time zone %s, which the database does not know; "
                  "those that it does are in pg_timezone_names",
            shown(wanted).constData());
        return false;
    }
    qputenv("TZ", zone.toUtf8());
    tzset();
    return true;
}

bool run(const Site &site, Import::Task task)
{
    const QStringList patterns = logPatterns(site.host);
    const QList<RotatedLog> logs = findLogs(patterns);
    bool complete = true;
    for (const QString &folder : closedFolders(patterns)) {
        qWarning("the folder %s cannot be searched (Debian's log folders are for the group adm)",
            shown(folder).constData());
        complete = false;
    }
    if (logs.isEmpty()) {
        qWarning("no file matches %s", shown(patterns.join(QLatin1String(" or "))).constData());
        complete = false;
    }
    Ledger ledger(site);
    return Import(ledger, task).run(logs) && complete;
}

bool list(const Site &site)
{
    Ledger ledger(site);
    const auto entries = ledger.create() ? ledger.entries() : std::nullopt;
    if (!entries)
        return false;
    for (const Entry &entry : *entries) {
        const QString lines = entry.lines
            ? QStringLiteral("%1 lines, %2 stored").arg(*entry.lines).arg(*entry.stored)
            : QStringLiteral("only noted");
        printf("%s  %s  %s\n", qPrintable(entry.at), qPrintable(lines.leftJustified(32)),
            shown(entry.name).constData());
    }
    return true;
}

bool listSites()
{
    const auto sites = vesk::allSites();
    if (!sites)
        return false;
    for (const Site &site : *sites)
        printf("%s\n", shown(site.host).constData());
    return true;
}

/// The word of a command and what it does with a site; without \a onSite it takes no host.
struct Command
{
    const char *word;
    bool (*onSite)(const Site &site);
    bool (*alone)();

    bool takes(const QStringList &args) const
    {
        return args.value(0) == QLatin1String(word)
            && ((args.size() == 2 && onSite) || (args.size() == 1 && alone));
    }
};

constexpr Command kCommands[] = {
    { "import", [](const Site &site) { return run(site, Import::Store); }, nullptr },
    { "mark", [](const Site &site) { return run(site, Import::Note); }, nullptr },
    { "list", list, listSites },
};

bool execute(const Command &command, const QString &host)
{
    if (host.isEmpty())
        return command.alone();
    const auto site = vesk::findSite(host);
    if (!site)
        qCritical("unknown site %s (add it with vesk-admin add-site)", shown(host).constData());
    return site && command.onSite(*site);
}

} // namespace

int main(int argc, char **argv)
{
    vesk::Program program("vesk-nightly", argc, argv);
    QCommandLineParser &parser = program.parser();
    parser.addOption(QCommandLineOption(QStringLiteral("host"),
        QStringLiteral("The site whose lines translate takes."), QStringLiteral("host")));
    parser.addPositionalArgument(QStringLiteral("command"),
        QStringLiteral("import HOST | mark HOST | list [HOST] | translate [FILE...]"));
    program.process();
    const QStringList args = parser.positionalArguments();
    if (args.value(0) == QLatin1String("translate"))
        return translateLogs(args.mid(1), parser.value(QStringLiteral("host"))) ? 0 : 1;
    const auto command = std::find_if(std::begin(kCommands), std::end(kCommands),
        [&args](const Command &row) { return row.takes(args); });
    if (command == std::end(kCommands))
        parser.showHelp(1);
    const QString path = vesk::configPath(parser);
    vesk::Program::leaveOutRepeats();
    return !path.isEmpty() && program.connect(path, vesk::Program::Unreadable::Refuse)
            && followTimeZone(program.settings()) && execute(*command, args.value(1))
        ? 0
        : 1;
}
