#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace vesk::nightly {

/// Writes the logs in \a files, or that on standard input, to standard output as lines of the
/// combined format; several merged by time. With \a host, of formats that name hosts only the lines
/// of that site and of the names in VESK_HOSTS. What was found goes to standard error, a line for
/// each log. False when one could not be read to its end.
bool translateLogs(const QStringList &files, const std::optional<QString> &host);

} // namespace vesk::nightly
