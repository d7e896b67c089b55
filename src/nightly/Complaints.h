#pragma once

#include "analytics/Ingest.h"
#include "nightly/Entry.h"
#include "nightly/RotatedLogs.h"

namespace vesk::nightly {

/// Tells what is wrong with a log.
void complain(const RotatedLog &log, const QString &what);
/// Tells that a log is left for the next run, since it \a was.
void leave(const RotatedLog &log, const char *was);

// What is wrong with a log, to be told after its name.

/// When the database could not be asked.
QString postponed();
/// When the database did not say that it kept the log.
QString uncertain();
/// Of one of which not all could be read.
QString damage(const RotatedLog &log);

/// Whether a log that begins with \a line holds no text.
bool isRubbish(QByteArrayView line);

/// Of a log that begins with \a line and of which no line is an entry.
QString strangeFormat(QByteArrayView line);

/// Of one whose lines the database did not keep, with \a merged of one of several.
QString lostSlice(const analytics::Ingest::LostSlice &slice, bool merged);

/// Of one that was imported as \a former for the site \a host, and is another by now.
QString changed(const Entry &former, const QString &host);

} // namespace vesk::nightly
