#pragma once

#include <QString>

class QFile;

namespace vesk {

/// \a path in a form that Qt takes for a file whatever it is called: a name with a colon in front
/// would be one of the program's own resources.
QString filePath(const QString &path);

/// Opens the file \a path for reading, without a buffer of Qt's. False when it cannot be opened,
/// also for an empty path; nothing is printed.
bool openForReading(QFile &file, const QString &path);

} // namespace vesk
