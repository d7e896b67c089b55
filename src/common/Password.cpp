#include "common/Password.h"

#include <QCryptographicHash>
#include <QPasswordDigestor>
#include <QRandomGenerator>
#include <QStringList>

#include <array>

namespace vesk::password {

namespace {

// Written into every stored hash; raising the count leaves old hashes readable.
constexpr int kIterations = 310000;
constexpr int kKeyBytes = 32;

QByteArray deriveKey(const QString &plain, const QByteArray &salt, int iterations)
{
    return QPasswordDigestor::deriveKeyPbkdf2(
        QCryptographicHash::Sha256, plain.toUtf8(), salt, iterations, kKeyBytes);
}

QByteArray newSalt()
{
    std::array<quint32, 4> words {};
    QRandomGenerator::system()->fillRange(words.data(), words.size());
    return { reinterpret_cast<const char *>(words.data()), sizeof words };
}

} // namespace

QString hash(const QString &plain)
{
    const QByteArray salt = newSalt();
    const QByteArray key = deriveKey(plain, salt, kIterations);
    return QStringLiteral("pbkdf2-sha256$%1$%2$%3")
        .arg(QString::number(kIterations), QString::fromLatin1(salt.toBase64()),
            QString::fromLatin1(key.toBase64()));
}

std::optional<StoredHash> parse(const QString &stored)
{
    const QStringList parts = stored.split(u'$');
    if (parts.size() != 4 || parts[0] != QLatin1String("pbkdf2-sha256"))
        return {};
    const int iterations = parts[1].toInt();
    if (iterations < 1)
        return {};
    return StoredHash { iterations, QByteArray::fromBase64(parts[2].toLatin1()),
        QByteArray::fromBase64(parts[3].toLatin1()) };
}

bool verify(const QString &plain, const QString &stored)
{
    const std::optional<StoredHash> expected = parse(stored);
    if (!expected)
        return false;
    const QByteArray actual = deriveKey(plain, expected->salt, expected->iterations);
    if (expected->key.size() != actual.size())
        return false;
    int diff = 0; // compared to the end, so that the time tells nothing
    for (qsizetype i = 0; i < actual.size(); ++i)
        diff |= expected->key[i] ^ actual[i];
    return diff == 0;
}

} // namespace vesk::password
