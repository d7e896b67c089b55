#include "nightly/OldMarks.h"

#include "common/Db.h"
#include "common/FilePath.h"
#include "common/Sha256.h"
#include "common/Text.h"
#include "nightly/Tonight.h"

#include <QFile>

#include <algorithm>
#include <cstdio>

namespace vesk::nightly {

namespace {

constexpr qint64 kModulus = qint64 { 1 } << 32; // what a gzip archive tells of its size

/// Notes what the marks cover of a log. Whether that is anything; nothing when it fails.
std::optional<bool> note(const OldMarks &marks, Ledger &ledger, Tonight &tonight, Tonight::Log &log)
{
    Entry entry;
    entry.name = log.file.path();
    qint64 bytes = 0; // of all
    {
        LogContent content(log.file);
        const auto line = content.first();
        if (!line)
            return false;
        entry.firstLine = sha256({ *line, "\n" }).toHex();
        content.skipRest();
        bytes = content.bytes();
    }
    entry.bytes = marks.imported(entry.firstLine, bytes);
    if (entry.bytes == 0)
        return false;
    LogContent content(log.file);
    content.measureAt(entry.bytes);
    content.skipRest();
    entry.content = content.checksumAt(entry.bytes);
    const bool isNoted
        = ledger.save(entry) && (entry.bytes < bytes || tonight.know(log, entry, true, content));
    return isNoted ? std::optional(true) : std::nullopt;
}

} // namespace

std::optional<OldMarks> OldMarks::read(const QString &host)
{
    const QString path
        = qEnvironmentVariable("STATE_DIRECTORY", QStringLiteral("/var/lib/vesk-admin"))
        + QLatin1String("/imported/") + host;
    const QString begun = path + QLatin1String(".begun");
    if (QFile::exists(filePath(begun))) {
        qCritical("an import by the package of before was interrupted, and a part of the logs that "
                  "%s names is stored: delete the requests of their time, then remove that file",
            qPrintable(clean(begun)));
        return {};
    }
    OldMarks marks;
    QFile file;
    if (!QFile::exists(filePath(path)))
        return marks;
    if (!openForReading(file, path)) {
        qCritical("the marks of the package of before in %s cannot be read: %s",
            qPrintable(clean(path)), qPrintable(file.errorString()));
        return {};
    }
    for (const QByteArray &line : file.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split(' '); // checksum, size, name
        if (fields.size() > 2)
            marks.m_sizes[fields[0]].append(fields[1].toLongLong());
    }
    return marks;
}

qint64 OldMarks::imported(const QByteArray &firstLine, qint64 bytes) const
{
    qint64 most = 0;
    for (const qint64 size : m_sizes.value(firstLine)) {
        if ((bytes - size) % kModulus == 0)
            return bytes;
        if (size < bytes)
            most = std::max(most, size);
    }
    return most;
}

bool takeOldMarks(Ledger &ledger, Tonight &tonight)
{
    const auto isEmpty = ledger.isEmpty();
    if (!isEmpty || !*isEmpty)
        return isEmpty.has_value();
    const auto marks = OldMarks::read(ledger.site().host);
    if (!marks || marks->isEmpty())
        return marks.has_value();
    db::Transaction transaction;
    qint64 noted = 0;
    for (Tonight::Log &log : tonight.logs()) {
        if (!log.file.obstacle().isEmpty())
            continue;
        const auto isNoted = note(*marks, ledger, tonight, log);
        if (!isNoted)
            return false;
        noted += *isNoted;
    }
    if (!transaction.commit())
        return false;
    printf("noted as imported by the package of before: %lld logs\n", qlonglong { noted });
    return true;
}

} // namespace vesk::nightly
