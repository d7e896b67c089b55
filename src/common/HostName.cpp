#include "common/HostName.h"

#include <QUrl>

#include <algorithm>

namespace vesk {

QString comparableHost(const QString &host)
{
    QString lower = host.toLower();
    const auto isAscii = [](QChar c) { return c.unicode() < 0x80; };
    if (std::all_of(lower.begin(), lower.end(), isAscii) && !lower.contains(QLatin1String("xn--")))
        return lower; // a URL's host would turn numbers into addresses
    QUrl url;
    url.setHost(lower);
    const QString converted = url.host(QUrl::FullyDecoded).toLower();
    return converted.isEmpty() ? lower : converted;
}

} // namespace vesk
