#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <initializer_list>

namespace vesk {

/// The SHA-256 digest (FIPS 180-4) of \a parts one after the other, 32 bytes. By OpenSSL, which
/// uses the processor's instructions for it where there are any.
QByteArray sha256(std::initializer_list<QByteArrayView> parts);

} // namespace vesk
