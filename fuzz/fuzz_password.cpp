// Stored password hashes. No key is derived: the count may be anything.

#include "Check.h"

#include "common/Password.h"

#include <QByteArray>
#include <QString>

using namespace vesk;

namespace {

/// Base64 (RFC 4648) that passes over what is not in its alphabet, the padding included. Bits that
/// fill no byte are lost.
QByteArray fromBase64(QStringView text)
{
    static constexpr QLatin1String kAlphabet(
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
    QByteArray bytes;
    unsigned bits = 0;
    int count = 0;
    for (const QChar c : text) {
        const qsizetype digit = kAlphabet.indexOf(c);
        if (digit < 0)
            continue;
        bits = (bits << 6 | static_cast<unsigned>(digit)) & 0x3fff;
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xff);
        }
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString stored = QString::fromUtf8(fuzz::view(data, size));
    const std::optional<password::StoredHash> hash = password::parse(stored);
    if (!hash)
        return 0;
    fuzz::check(stored.startsWith(QLatin1String("pbkdf2-sha256$")), "the tag comes first");
    fuzz::check(stored.count(u'$') == 3, "there are four fields");
    fuzz::check(hash->iterations >= 1, "at least one iteration");
    fuzz::check(hash->salt == fromBase64(stored.section(u'$', 2, 2)), "the salt is Base64");
    fuzz::check(hash->key == fromBase64(stored.section(u'$', 3, 3)), "the key is Base64");

    const QString written
        = QStringLiteral("pbkdf2-sha256$%1$%2$%3")
              .arg(QString::number(hash->iterations), QString::fromLatin1(hash->salt.toBase64()),
                  QString::fromLatin1(hash->key.toBase64()));
    const std::optional<password::StoredHash> again = password::parse(written);
    fuzz::check(again && again->iterations == hash->iterations && again->salt == hash->salt
            && again->key == hash->key,
        "a written hash reads the same");
    return 0;
}
