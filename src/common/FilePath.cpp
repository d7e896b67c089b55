#include "common/FilePath.h"

#include <QFile>

namespace vesk {

QString filePath(const QString &path)
{
    return path.startsWith(u':') ? QLatin1String("./") + path : path;
}

bool openForReading(QFile &file, const QString &path)
{
    file.setFileName(filePath(path));
    return !path.isEmpty() && file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

} // namespace vesk
