#include "common/Config.h"

#include "common/FilePath.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QFileInfo>

namespace vesk {

void addConfigOption(QCommandLineParser &parser)
{
    parser.addOption(QCommandLineOption({ QStringLiteral("c"), QStringLiteral("config") },
        QStringLiteral("Configuration file."), QStringLiteral("file")));
}

QString configPath(const QCommandLineParser &parser)
{
    QString path = parser.value(QStringLiteral("config"));
    if (path.isEmpty())
        path = qEnvironmentVariable("VESK_CONFIG");
    if (path.isEmpty())
        path = QStringLiteral("/etc/hollowquarry/hollowquarry.ini");
    if (QFileInfo(filePath(path)).isFile())
        return path;
    qCritical("config file not found: %s", qPrintable(path));
    return {};
}

} // namespace vesk
