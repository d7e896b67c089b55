#pragma once

#include <QtGlobal>

namespace vesk {

/// The longest line of a log that is read as one, in bytes. No web server writes longer ones.
inline constexpr qsizetype kMaxLineBytes = qsizetype { 1024 } * 1024;

} // namespace vesk
