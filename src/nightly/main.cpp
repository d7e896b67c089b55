#include "common/Config.h"
#include "common/Db.h"
#include "common/FilePath.h"
#include "common/Output.h"
#include "nightly/Import.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSettings>
#include <QSqlQuery>
#include <QVariant>

#include <cstdio>
#include <ctime>

using namespace vesk::nightly;

namespace {

QByteArray shown(const QString &text)
{
    return vesk::db::presentable(text, {}).toLocal8Bit();
}

/// Makes the days of this process those of the database session. False, after a message, when the
/// server does not know the configured zone, and would cut days elsewhere.
bool followTimeZone(const QSettings &cfg)
{
    QSqlQuery q;
    q.prepare(QStringLiteral("SELECT current_setting('TimeZone')"));
    if (!vesk::db::exec(q) || !q.next())
        return false;
    const QString zone = q.value(0).toString();
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
    QSqlQuery q;
    q.prepare(QStringLiteral("SELECT host FROM vesk.sites ORDER BY host"));
    if (!vesk::db::exec(q))
        return false;
    while (q.next())
        printf("%s\n", shown(q.value(0).toString()).constData());
    return true;
}

bool dispatch(const QString &command, const Site &site)
{
    if (command == QLatin1String("list"))
        return list(site);
    return run(site, command == QLatin1String("mark") ? Import::Note : Import::Store);
}

} // namespace

int main(int argc, char **argv)
{
    vesk::prepareOutput();
    const QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vesk-nightly"));
    QCoreApplication::setApplicationVersion(QStringLiteral("0.1"));

    QCommandLineParser parser;
    parser.addHelpOption();
    vesk::addConfigOption(parser);
    parser.addPositionalArgument(
        QStringLiteral("command"), QStringLiteral("import HOST | mark HOST | list [HOST]"));
    parser.process(app);
    const QStringList args = parser.positionalArguments();
    const QStringList commands { QStringLiteral("import"), QStringLiteral("mark"),
        QStringLiteral("list") };
    const bool listsSites = args == QStringList(QStringLiteral("list"));
    if (!listsSites && (args.size() != 2 || !commands.contains(args[0])))
        parser.showHelp(1);
    const QString path = vesk::configPath(parser);
    if (path.isEmpty())
        return 1;
    const QSettings cfg(vesk::filePath(path), QSettings::IniFormat);
    if (!vesk::db::open(cfg, QCoreApplication::applicationName()) || !followTimeZone(cfg))
        return 1;
    if (listsSites)
        return listSites() ? 0 : 1;
    const auto site = Ledger::findSite(args[1]);
    if (!site) {
        qCritical("unknown site %s (add it with vesk-admin add-site)", shown(args[1]).constData());
        return 1;
    }
    return dispatch(args[0], *site) ? 0 : 1;
}
