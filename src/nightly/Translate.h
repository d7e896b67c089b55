#pragma once

#include <QString>
#include <QStringList>

namespace vesk::nightly {

/// Writes the logs in \a files, or that on standard input, to standard output as lines of the
/// combined format; several merged by time. Of formats that name the host only the lines of the
/// site \a host and of the names in VESK_HOSTS, unless \a host is empty. What was found goes to
/// standard error, a line for each log. False when one could not be read to its end.
bool translateLogs(const QStringList &files, const QString &host);

} // namespace vesk::nightly
