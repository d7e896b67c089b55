#pragma once

#include <QString>

namespace vesk {

/// The text of a file that is built into the program, such as ":/sql/001_initial.sql". Empty when
/// there is none.
QString resourceText(const QString &path);

} // namespace vesk
