#pragma once

#include <QByteArray>
#include <QString>

class QProcess;

namespace vesk {

/// Whether a file is read through gunzip: its name ends in ".gz". The content is not looked at.
bool isGzipName(const QString &path);

/// The whole content of a file, decompressed when its name ends in ".gz"; empty when it cannot be
/// opened. For inputs that fit into memory; access logs are read with LineReader.
/// \a intact, when given, tells whether nothing is missing: false for a file that cannot be opened
/// and for a damaged or truncated archive, of which the bytes before the damage are returned.
QByteArray readMaybeGzip(const QString &path, bool *intact = nullptr);

/// What the program gunzip writes when given \a data; empty or partial when it fails, and then
/// \a intact is false.
QByteArray gunzip(const QByteArray &data, bool *intact = nullptr);

/// Starts \a program, such as gunzip, as \a child to decompress. It ends when this process does,
/// however that happens. It reads the open file \a input from where that stands, and moves it on in
/// doing so; without one, what is written to \a child. False when it cannot be started.
bool startDecompressor(QProcess &child, const QString &program, int input = -1);

/// Whether \a child, a decompressor that has ended, has given out all of an undamaged archive.
bool endedWell(const QProcess &child);

} // namespace vesk
