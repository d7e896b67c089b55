#pragma once

#include "translate/Format.h"

#include <QByteArrayView>

#include <optional>

namespace vesk::translate {

/// The entry of a line in one of the formats that are JSON: an object (RFC 8259) on each line, of
/// whose members only those count that make a combined line. Numbers may be strings. A member that
/// is null counts as missing, and of several with one name the last one is taken. Nothing when the
/// line is no such object, or has no readable time, request or status.
///
/// nginx passes bytes on that are not UTF-8, which no reader of JSON takes. Such a line is read as
/// Latin-1, which gives the same bytes back: otherwise one byte would hide a request.
std::optional<Entry> jsonEntry(Format format, QByteArrayView line);

} // namespace vesk::translate
