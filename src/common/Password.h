#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// The stored form of panel passwords, which other programs of the suite read too:
/// pbkdf2-sha256$ITERATIONS$SALT$KEY, salt and key in Base64 (RFC 4648). The key is PBKDF2 (RFC
/// 8018) with HMAC-SHA-256 over the password's UTF-8.
namespace vesk::password {

/// What a hash string holds.
struct StoredHash
{
    int iterations = 0; ///< at least 1
    QByteArray salt;
    QByteArray key; ///< of any length
};

/// Reads a hash string. Nothing when it is none; Base64 is read leniently.
std::optional<StoredHash> parse(const QString &stored);

/// A new hash string for \a plain, with a salt of its own.
QString hash(const QString &plain);

/// Whether \a plain is the password behind \a stored. False, too, when \a stored cannot be read.
/// For other programs of the suite.
bool verify(const QString &plain, const QString &stored);

} // namespace vesk::password
