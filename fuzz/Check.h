#pragma once

#include <QByteArrayView>
#include <QList>
#include <QStringView>

#include <cstddef>
#include <cstdint>
#include <initializer_list>

/// What the fuzz targets share. A broken property ends the program, which is how libFuzzer learns
/// of it, and so does any message of Qt: what a stranger sends must not make the program print.
namespace vesk::fuzz {

/// Ends the program with the message \a property unless \a holds.
void check(bool holds, const char *property);

/// Checks that PostgreSQL takes what db::Values makes of \a text: UTF-8 as RFC 3629 has it, without
/// U+0000.
void checkStorable(QStringView text);

/// The same of the bytes that are sent.
void checkStorableBytes(QByteArrayView utf8);

/// Whether \a text is one of \a vocabulary.
bool isOneOf(QStringView text, std::initializer_list<const char *> vocabulary);

/// An input as bytes.
QByteArrayView view(const std::uint8_t *data, std::size_t size);

/// An input split at line feeds, which no line that a target reads can hold.
QList<QByteArrayView> lines(const std::uint8_t *data, std::size_t size);

} // namespace vesk::fuzz
