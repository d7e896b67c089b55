#pragma once

#include "analytics/Ingest.h"
#include "nightly/Entry.h"
#include "nightly/RotatedLogs.h"

/// What to tell of a log that is not imported, after its name.
namespace vesk::nightly {

/// Of one of which not all could be read.
QString damage(const RotatedLog &log);

/// Whether a log that begins with \a line holds no text.
bool isRubbish(QByteArrayView line);

/// Of a log that begins with \a line and of which no line is an entry.
QString strangeFormat(QByteArrayView line);

QString lostSlice(const analytics::Ingest::LostSlice &slice);

/// Of one that was imported as \a former for the site \a host, and is another by now.
QString changed(const Entry &former, const QString &host);

} // namespace vesk::nightly
