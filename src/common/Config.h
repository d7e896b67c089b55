#pragma once

#include <QString>

class QCommandLineParser;

namespace vesk {

/// Adds the option -c FILE, --config FILE. Call it before the command line is processed.
void addConfigOption(QCommandLineParser &parser);

/// The path of the configuration file: the option, else the environment variable VESK_CONFIG, else
/// /etc/hollowquarry/hollowquarry.ini. The first that is not empty decides, and is returned as
/// given. Empty, after a message, when it names no existing regular file.
QString configPath(const QCommandLineParser &parser);

} // namespace vesk
