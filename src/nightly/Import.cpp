#include "nightly/Import.h"

#include "analytics/LogParser.h"
#include "common/Db.h"
#include "common/Sha256.h"
#include "common/Text.h"
#include "nightly/LogContent.h"

#include <QFile>
#include <QStandardPaths>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace vesk::nightly {

using analytics::Ingest;

namespace {

/// The web server may not be done with a log that was written to so recently.
constexpr qint64 kYoungSecs = 300;

constexpr qsizetype kShownBytes = 200;

QByteArray shown(const QString &text)
{
    return clean(text).toLocal8Bit();
}

/// Why a log cannot be opened; empty when it can.
QString obstacle(const RotatedLog &log)
{
    QFile file(log.path);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("cannot be read: ") + file.errorString();
    const QString program = log.decompressor();
    if (!program.isEmpty() && QStandardPaths::findExecutable(program).isEmpty())
        return QStringLiteral("is not imported: the program %1 is missing, install it")
            .arg(program);
    return {};
}

/// Why a log is left out of which not all could be read.
QString damage(const RotatedLog &log)
{
    return log.isArchive() ? QStringLiteral("is damaged and is not imported")
                           : QStringLiteral("cannot be read to its end and is not imported");
}

/// What to tell of a log that begins with \a line and of which no line is an entry.
QString strangeFormat(QByteArrayView line)
{
    const QByteArray begin = line.first(std::min(line.size(), kShownBytes)).toByteArray();
    const qsizetype blank = line.indexOf(' ');
    const bool namesHost = blank > 0 && analytics::parseCombined(line.sliced(blank + 1));
    return QStringLiteral("not one line is an access-log entry, the first is: %1%2")
        .arg(QString::fromUtf8(shown(QString::fromUtf8(begin))),
            namesHost ? QStringLiteral(" (a host name in front, as in Apache's format "
                                       "vhost_combined: give the site a log of its own in the "
                                       "format combined)")
                      : QString());
}

} // namespace

bool Import::run(const QList<RotatedLog> &logs)
{
    if (!begin())
        return false;
    qint64 done = 0;
    qint64 waiting = 0;
    for (const RotatedLog &log : logs) {
        const Outcome outcome = look(log);
        done += outcome == Outcome::Done;
        waiting += outcome == Outcome::Waits;
        m_failed = m_failed || outcome == Outcome::Failed;
    }
    if (m_task == Note)
        printf("noted as imported: %lld logs\n", qlonglong { done });
    else if (!logs.isEmpty() && done == 0 && waiting == 0 && !m_failed)
        printf("no new logs of %s\n", shown(m_ledger.site().host).constData());
    if (m_task == Store)
        rollUp();
    return !m_failed;
}

bool Import::begin()
{
    if (!m_ledger.tryLock()) {
        printf("waiting for another run for %s\n", shown(m_ledger.site().host).constData());
        if (!m_ledger.lock())
            return false;
    }
    if (!m_ledger.create())
        return false;
    if (m_task == Store && !m_ingest.init()) {
        qCritical("the database has no visitor_secret: run vesk-admin migrate, or restore the "
                  "setting from a backup");
        return false;
    }
    return true;
}

/// Finds out whether a log has anything new, and takes that.
Import::Outcome Import::look(const RotatedLog &log)
{
    if (const QString why = obstacle(log); !why.isEmpty())
        return refuse(log, why);
    LogContent content(log);
    const auto line = content.next();
    if (!line) {
        while (content.next()) { }
        return content.intact() ? Outcome::Nothing : refuse(log, damage(log));
    }
    const QByteArray firstLine = line->toByteArray();
    db::Transaction transaction;
    if (!transaction.isOpen() || !m_ledger.lockTransaction())
        return refuse(log, QStringLiteral("is not imported, the next run tries again"));
    return take(log, firstLine, transaction);
}

/// Takes what no entry with the same first line covers, in one transaction.
Import::Outcome Import::take(
    const RotatedLog &log, const QByteArray &firstLine, db::Transaction &transaction)
{
    Entry entry;
    entry.firstLine = sha256({ firstLine, "\n" }).toHex();
    const auto known = m_ledger.entries(entry.firstLine);
    if (!known)
        return refuse(log, QStringLiteral("is not imported, the next run tries again"));
    for (const Entry &one : *known) {
        if (log.hasSize(one.bytes))
            return Outcome::Nothing;
    }
    if (m_task == Store && std::abs(log.age()) < kYoungSecs) {
        printf("%s was written to in the last five minutes and is left for the next run\n",
            shown(log.path).constData());
        return Outcome::Waits;
    }
    auto content = std::make_unique<LogContent>(log);
    for (const Entry &one : *known) {
        if (content->skip(one)) {
            entry = one;
            break;
        }
        content = std::make_unique<LogContent>(log);
    }
    const auto result = store(log, *content, transaction);
    if (!result)
        return Outcome::Failed;
    if (content->bytes() == entry.bytes)
        return Outcome::Nothing;

    const bool isNew = entry.id == 0;
    const bool wasNoted = !isNew && !entry.lines;
    entry.content = content->checksum();
    entry.bytes = content->bytes();
    entry.name = log.path;
    if (m_task == Store || (!isNew && !wasNoted)) {
        entry.lines = entry.lines.value_or(0) + result->lines;
        entry.stored = entry.stored.value_or(0) + result->stored;
    }
    if (!m_ledger.save(entry) || !m_ledger.addDays(result->days) || !transaction.commit())
        return refuse(
            log, QStringLiteral("may not be imported: the next run finds out and does it"));
    if (m_task == Store)
        printf("%s: %d lines, %d stored, %d not log entries\n", shown(log.path).constData(),
            result->lines, result->stored, result->skipped);
    if (isNew && result->lines > 0 && result->skipped == result->lines)
        return refuse(log, strangeFormat(firstLine));
    return Outcome::Done;
}

/// Stores, or passes over, the lines that \a content has left. Nothing, after a message, when not
/// all of them could be.
std::optional<Ingest::Result> Import::store(
    const RotatedLog &log, LogContent &content, db::Transaction &transaction)
{
    const Site &site = m_ledger.site();
    Ingest::Result result;
    if (m_task == Store)
        result = m_ingest.ingest(
            site.id, site.host, [&] { return content.next(); }, &transaction);
    if (!result.lost.isEmpty()) {
        const Ingest::LostSlice &slice = result.lost.first();
        refuse(log,
            QStringLiteral("is not imported: the database did not keep lines %1 to %2%3; nothing "
                           "of it is stored, the next run tries again")
                .arg(slice.firstLine)
                .arg(slice.lastLine)
                .arg(slice.cause.isEmpty()
                        ? QString()
                        : QLatin1String(": ") + slice.cause.section(u'\n', 0, 0)));
        return {};
    }
    while (content.next()) { }
    if (!content.intact()) {
        refuse(log, damage(log));
        return {};
    }
    return result;
}

Import::Outcome Import::refuse(const RotatedLog &log, const QString &why)
{
    qWarning("%s %s", shown(log.path).constData(), shown(why).constData());
    return Outcome::Failed;
}

void Import::rollUp()
{
    const auto days = m_ledger.days();
    m_failed = m_failed || !days;
    if (!days || days->isEmpty())
        return;
    qint64 done = 0;
    for (const QDate day : *days) {
        if (m_ledger.rollUp(day)) {
            ++done;
            continue;
        }
        qWarning(
            "%s is not rolled up, the next run tries again", qPrintable(day.toString(Qt::ISODate)));
        m_failed = true;
    }
    printf("rolled up %lld days\n", qlonglong { done });
}

} // namespace vesk::nightly
