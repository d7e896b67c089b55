#include "admin/Progress.h"
#include "admin/Prompt.h"
#include "analytics/GeoIp.h"
#include "analytics/Ingest.h"
#include "analytics/SearchImport.h"
#include "common/Config.h"
#include "common/Db.h"
#include "common/FilePath.h"
#include "common/Gzip.h"
#include "common/LineReader.h"
#include "common/Password.h"
#include "common/Program.h"
#include "common/ProgressCallback.h"
#include "common/Resource.h"
#include "common/Sites.h"
#include "common/Text.h"

#include <QDate>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <limits>

#include <unistd.h>

using vesk::analytics::Ingest;

namespace {

/// \a text as it was given, but cleaned where the stream \a fd is a terminal, which would obey it.
QByteArray shown(const QString &text, int fd = STDERR_FILENO)
{
    return (isatty(fd) == 1 ? vesk::clean(text) : text).toLocal8Bit();
}

QByteArray printed(const QString &text)
{
    return shown(text, STDOUT_FILENO);
}

/// The id of a site; 0 after a message when there is none with that host.
int siteId(const QString &host)
{
    const int id = vesk::siteId(host);
    if (id == 0)
        qCritical("unknown site %s (add it with add-site)", shown(host).constData());
    return id;
}

/// Shows what is told about the work on \a name.
vesk::ProgressCallback shownBy(Progress &progress, const QString &name)
{
    return [&progress, name](QLatin1String unit, qint64 done, qint64 total) {
        if (done == 0)
            progress.begin(name, unit);
        if (progress.isDue())
            progress.show(done, done, total);
    };
}

// ---- migrate ----

/// Applies one script and notes it, both or neither. False after a message.
bool applyScript(const QString &name, int version)
{
    const QString script = vesk::resourceText(QLatin1String(":/sql/") + name);
    vesk::db::Transaction transaction(vesk::db::Transaction::Keep);
    if (script.isEmpty() || !transaction.isOpen()) {
        qCritical("%s: cannot start", qPrintable(name));
        return false;
    }
    QString error;
    if (!vesk::db::execScript(script, &error)) {
        qCritical("%s: %s", qPrintable(name), qPrintable(error));
        return false;
    }
    const QString note
        = QStringLiteral("INSERT INTO vesk.schema_migrations (version, name) VALUES (?, ?)");
    if (!vesk::db::run(note, { version, name }) || !transaction.commit())
        return false;
    printf("applied %s\n", qPrintable(name));
    return true;
}

int migrate()
{
    QString error;
    // Held to the end of the session: a second run at the same time waits, and finds all done.
    if (!vesk::db::execScript(
            QStringLiteral("SELECT pg_advisory_lock(hashtextextended('vesk migrate', 0))"), &error)
        || !vesk::db::execScript(
            QStringLiteral("CREATE SCHEMA IF NOT EXISTS vesk; "
                           "CREATE TABLE IF NOT EXISTS vesk.schema_migrations ("
                           "   version integer PRIMARY KEY, name text NOT NULL,"
                           "   applied_at timestamptz NOT NULL DEFAULT now())"),
            &error)) {
        qCritical("%s", qPrintable(error));
        return 1;
    }
    const int current = vesk::db::schemaVersion();
    const QStringList files = QDir(QStringLiteral(":/sql"))
                                  .entryList({ QStringLiteral("*.sql") }, QDir::Files, QDir::Name);
    int applied = 0;
    for (const QString &name : files) {
        const int version = name.section(u'_', 0, 0).toInt();
        if (version <= current)
            continue;
        if (!applyScript(name, version))
            return 1;
        ++applied;
    }
    printf("schema at version %d (%d applied)\n", vesk::db::schemaVersion(), applied);
    return 0;
}

// ---- Records ----

int addUser(const QString &name, const QString &role)
{
    if (role != QLatin1String("maintainer") && role != QLatin1String("customer")) {
        qCritical("role must be maintainer or customer");
        return 1;
    }
    const QString password = readPassword("Password: ");
    if (password.size() < 12) {
        qCritical("password must be at least 12 characters");
        return 1;
    }
    if (isatty(STDIN_FILENO) == 1 && readPassword("Again: ") != password) {
        qCritical("passwords do not match");
        return 1;
    }
    if (!vesk::db::run(
            QStringLiteral(
                "INSERT INTO vesk.users (username, password_hash, role) VALUES (?, ?, ?)"),
            { name, vesk::password::hash(password), role }))
        return 1;
    printf("created %s (%s)\n", printed(name).constData(), printed(role).constData());
    return 0;
}

int addSite(const QString &host, const QString &name)
{
    if (!vesk::db::run(QStringLiteral("INSERT INTO vesk.sites (host, name) VALUES (lower(?), ?)"),
            { host, name }))
        return 1;
    printf("added site %s\n", printed(host.toLower()).constData());
    const auto site = vesk::findSite(host);
    if (site && site->host != host.toLower())
        qWarning("it is stored as %s: this database folds the case of ASCII letters alone, so name "
                 "the site by that spelling",
            shown(site->host).constData());
    return 0;
}

int addLog(const QString &host, const QString &path)
{
    if (path.isEmpty()) {
        qCritical("the path of a log must not be empty");
        return 1;
    }
    const int site = siteId(host);
    if (site == 0)
        return 1;
    if (!vesk::db::run(QStringLiteral("INSERT INTO vesk.log_sources (site_id, path) VALUES (?, ?)"),
            { site, QFileInfo(vesk::filePath(path)).absoluteFilePath() }))
        return 1;
    printf("vesk-collect will follow %s\n", printed(path).constData());
    return 0;
}

int setSetting(const QString &key, const QString &value)
{
    const bool stored
        = vesk::db::run(QStringLiteral("INSERT INTO vesk.settings VALUES (?, ?) "
                                       "ON CONFLICT (key) DO UPDATE SET value = excluded.value"),
            { key, value })
              .has_value();
    return stored ? 0 : 1;
}

// ---- Access logs ----

void warnOfLoss(const QString &file, const Ingest::LostSlice &slice)
{
    const QString cause = slice.cause.section(u'\n', 0, 0);
    qWarning("%s: lines %lld to %lld were not kept%s%s", shown(file).constData(), slice.firstLine,
        slice.lastLine, cause.isEmpty() ? "" : ": ", qPrintable(cause));
}

QString interrupted(const QString &file, qint64 lines)
{
    return QStringLiteral("interrupted: %1 is stored up to line %2 or a little further; delete the "
                          "time that the log covers and import it again")
        .arg(file)
        .arg(lines);
}

int importLogs(const QString &host, const QStringList &files)
{
    const int site = siteId(host);
    if (site == 0)
        return 1;
    Ingest ingest;
    if (!ingest.init())
        return 1;
    Progress progress;
    QSet<QDate> days;
    for (const QString &file : files) {
        progress.begin(file, QStringLiteral("lines"));
        vesk::LineReader lines(file);
        qint64 taken = 0;
        qint64 done = -1;
        const Ingest::Result total = ingest.ingest(site, host.toLower(), [&] {
            if (ingest.linesDone() != done)
                progress.setFarewell(interrupted(file, done = ingest.linesDone()));
            if (progress.isDue())
                progress.show(taken, lines.position(), lines.size());
            ++taken;
            return lines.next();
        });
        progress.erase();
        for (const Ingest::LostSlice &slice : total.lost)
            warnOfLoss(file, slice);
        printf("%s: %d lines, %d stored, %d not log entries\n", printed(file).constData(),
            total.lines, total.stored, total.skipped);
        days.unite(total.days);
    }
    progress.setFarewell(
        QStringLiteral("interrupted: all lines are stored, but not all days are rolled up; run "
                       "vesk-admin rollup %1")
            .arg(host));
    Ingest::rollup(
        site, days, shownBy(progress, QStringLiteral("rolling up %1 days").arg(days.size())));
    progress.erase();
    printf("rolled up %lld days\n", qlonglong { days.size() });
    return 0;
}

int rollupSite(const QString &host)
{
    const int site = siteId(host);
    if (site == 0)
        return 1;
    QSet<QDate> days;
    auto q = vesk::db::run(
        QStringLiteral("SELECT DISTINCT at::date FROM vesk.hits WHERE site_id = ? ORDER BY 1"),
        { site });
    while (q && q->next())
        days.insert(q->value(0).toDate());
    Ingest::rollup(site, days);
    printf("%s: rolled up %lld days\n", printed(host).constData(), qlonglong { days.size() });
    return 0;
}

// ---- Reference data ----

int geoipUpdate(const QString &file)
{
    bool ok = false;
    Progress progress;
    const QString message = vesk::analytics::updateGeoIp(
        file, &ok, shownBy(progress, file.isEmpty() ? QStringLiteral("DB-IP country file") : file));
    progress.erase();
    printf("%s\n", printed(message).constData());
    return ok ? 0 : 1;
}

int importGsc(const QString &host, const QString &file)
{
    const int site = siteId(host);
    if (site == 0)
        return 1;
    bool ok = false;
    Progress progress;
    const QJsonObject object = QJsonDocument::fromJson(vesk::readMaybeGzip(file)).object();
    const QString message = vesk::analytics::importSearchData(
        site, QStringLiteral("google"), object, &ok, shownBy(progress, file));
    progress.erase();
    printf("%s: %s\n", printed(host).constData(), printed(message).constData());
    return ok ? 0 : 1;
}

// ---- Dispatch ----

/// A command with the numbers of positional arguments, the word included, that it takes.
struct Command
{
    const char *usage; ///< the word and what follows it, as the help shows them
    qsizetype least;
    qsizetype most;
    int (*run)(const QStringList &args, const QString &role);

    QString word() const { return QString::fromLatin1(usage).section(u' ', 0, 0); }
    bool takes(qsizetype count) const { return count >= least && count <= most; }
};

constexpr qsizetype kAnyNumber = std::numeric_limits<qsizetype>::max();

constexpr Command kCommands[] = {
    { "migrate", 1, kAnyNumber, [](const QStringList &, const QString &) { return migrate(); } },
    { "add-user NAME", 2, 2,
        [](const QStringList &args, const QString &role) { return addUser(args[1], role); } },
    { "add-site HOST NAME", 3, 3,
        [](const QStringList &args, const QString &) { return addSite(args[1], args[2]); } },
    { "add-log HOST PATH", 3, 3,
        [](const QStringList &args, const QString &) { return addLog(args[1], args[2]); } },
    { "import-log HOST FILE...", 3, kAnyNumber,
        [](const QStringList &args, const QString &) { return importLogs(args[1], args.mid(2)); } },
    { "geoip-update [FILE]", 1, kAnyNumber,
        [](const QStringList &args, const QString &) { return geoipUpdate(args.value(1)); } },
    { "import-gsc HOST FILE", 3, 3,
        [](const QStringList &args, const QString &) { return importGsc(args[1], args[2]); } },
    { "rollup HOST", 2, 2,
        [](const QStringList &args, const QString &) { return rollupSite(args[1]); } },
    { "set KEY VALUE", 3, 3,
        [](const QStringList &args, const QString &) { return setSetting(args[1], args[2]); } },
};

/// All commands as the help shows them.
QString usageOfAll()
{
    QStringList usages;
    for (const Command &command : kCommands)
        usages += QString::fromLatin1(command.usage);
    return usages.join(QLatin1String(" | "));
}

/// Prints the help, and to a person at a terminal what was wrong with the command, which is the
/// first of \a args. Gives the exit status.
int refuse(const QCommandLineParser &parser, const QStringList &args)
{
    fputs(qPrintable(parser.helpText()), stdout);
    if (isatty(STDERR_FILENO) != 1 || args.isEmpty())
        return 1;
    const auto command = std::find_if(std::begin(kCommands), std::end(kCommands),
        [&args](const Command &row) { return row.word() == args[0]; });
    if (command == std::end(kCommands))
        qCritical("there is no command %s", shown(args[0]).constData());
    else
        qCritical("wrong number of arguments, it is: vesk-admin %s", command->usage);
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    vesk::Program program("vesk-admin", argc, argv);
    QCommandLineParser &parser = program.parser();
    parser.addOption(QCommandLineOption(QStringLiteral("role"),
        QStringLiteral("Role for add-user (maintainer or customer)."), QStringLiteral("role"),
        QStringLiteral("maintainer")));
    parser.addPositionalArgument(QStringLiteral("command"), usageOfAll());
    program.process();

    const QStringList args = parser.positionalArguments();
    const QString path = vesk::configPath(parser);
    if (path.isEmpty() || args.isEmpty())
        return refuse(parser, {});
    if (!program.connect(path, vesk::Program::Unreadable::Warn))
        return 1;

    for (const Command &command : kCommands) {
        if (command.word() == args[0] && command.takes(args.size()))
            return command.run(args, parser.value(QStringLiteral("role")));
    }
    return refuse(parser, args);
}
