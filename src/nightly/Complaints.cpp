#include "nightly/Complaints.h"

#include "common/Text.h"

#include <algorithm>
#include <cstdio>

namespace vesk::nightly {

namespace {

constexpr qsizetype kShownBytes = 200;

} // namespace

void complain(const RotatedLog &log, const QString &what)
{
    qWarning("%s %s", qPrintable(clean(log.path())), qPrintable(clean(what)));
}

void leave(const RotatedLog &log, const char *was)
{
    printf("%s %s and is left for the next run\n", qPrintable(clean(log.path())), was);
}

QString postponed()
{
    return QStringLiteral("is not imported, the next run tries again");
}

QString uncertain()
{
    return QStringLiteral("may not be imported: the next run finds out and does it");
}

QString damage(const RotatedLog &log)
{
    return log.isArchive() ? QStringLiteral("is damaged and is not imported")
                           : QStringLiteral("cannot be read to its end and is not imported");
}

bool isRubbish(QByteArrayView line)
{
    return line.first(std::min(line.size(), kShownBytes)).contains('\0');
}

QString strangeFormat(QByteArrayView line)
{
    if (isRubbish(line))
        return QStringLiteral("holds no text, not one line is an access-log entry; it is noted as "
                              "imported");
    const QByteArray begin = line.first(std::min(line.size(), kShownBytes)).toByteArray();
    return QStringLiteral("not one line is an access-log entry, the first is: ")
        + QString::fromUtf8(begin);
}

QString lostSlice(const analytics::Ingest::LostSlice &slice, bool merged)
{
    const QString lines = merged
        ? QStringLiteral("some lines of the merged logs")
        : QStringLiteral("lines %1 to %2").arg(slice.firstLine).arg(slice.lastLine);
    return QStringLiteral(
        "is not imported: the database did not keep %1%2; nothing of it is stored, "
        "the next run tries again")
        .arg(lines,
            slice.cause.isEmpty() ? QString()
                                  : QLatin1String(": ") + slice.cause.section(u'\n', 0, 0));
}

QString changed(const Entry &former, const QString &host)
{
    return QStringLiteral(
        "is not imported: most of it was imported as %1 on %2, and has been changed "
        "since; when nothing of it is missing run vesk-nightly mark %3 FILE")
        .arg(former.name, former.at, host);
}

} // namespace vesk::nightly
