#include "nightly/Complaints.h"

#include "analytics/LogParser.h"
#include "common/Text.h"

#include <algorithm>

namespace vesk::nightly {

namespace {

constexpr qsizetype kShownBytes = 200;

} // namespace

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
    const qsizetype blank = line.indexOf(' ');
    const bool namesHost = blank > 0 && analytics::parseCombined(line.sliced(blank + 1));
    return QStringLiteral("not one line is an access-log entry, the first is: %1%2")
        .arg(clean(QString::fromUtf8(begin)),
            namesHost ? QStringLiteral(" (a host name in front, as in Apache's format "
                                       "vhost_combined: give the site a log of its own in the "
                                       "format combined)")
                      : QString());
}

QString lostSlice(const analytics::Ingest::LostSlice &slice)
{
    return QStringLiteral("is not imported: the database did not keep lines %1 to %2%3; nothing of "
                          "it is stored, the next run tries again")
        .arg(slice.firstLine)
        .arg(slice.lastLine)
        .arg(slice.cause.isEmpty() ? QString()
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
