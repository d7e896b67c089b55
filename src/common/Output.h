#pragma once

namespace vesk {

/// Prepares the standard streams for results that must not get lost. Each line leaves at once. A
/// reader of standard output that goes away does not end the program in the middle of its work.
/// What could not be written is reported at the end, and makes the exit status 1. A stream that the
/// caller closed stays unusable: no file or connection takes its place. To be called first of all.
void prepareOutput();

} // namespace vesk
