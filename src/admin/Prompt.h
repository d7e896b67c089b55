#pragma once

#include <QString>

/// One line from standard input, without its line feed and at most 1,023 bytes; from a terminal
/// with \a prompt and without echo. Empty at the end of input.
QString readPassword(const char *prompt);
