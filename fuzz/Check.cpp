#include "Check.h"

#include "common/StatementStream.h"

#include <QString>
#include <QtGlobal>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace vesk::fuzz {

namespace {

void endOnMessage(QtMsgType, const QMessageLogContext &, const QString &text)
{
    check(false, qPrintable(QLatin1String("nothing is printed, but Qt says: ") + text));
}

[[maybe_unused]] const QtMessageHandler g_previousHandler = qInstallMessageHandler(endOnMessage);

/// The length of the well-formed UTF-8 sequence that \a s begins with (RFC 3629, section 4); 0 when
/// it is malformed.
qsizetype sequenceLength(QByteArrayView s)
{
    const auto byte = [s](qsizetype i) { return static_cast<unsigned char>(s[i]); };
    const auto within = [s, byte](qsizetype i, unsigned low, unsigned high) {
        return i < s.size() && byte(i) >= low && byte(i) <= high;
    };
    const unsigned first = byte(0);
    if (first < 0x80)
        return 1;
    if (first >= 0xc2 && first <= 0xdf)
        return within(1, 0x80, 0xbf) ? 2 : 0;
    if (first >= 0xe0 && first <= 0xef) {
        const unsigned low = first == 0xe0 ? 0xa0 : 0x80; // no overlong form
        const unsigned high = first == 0xed ? 0x9f : 0xbf; // no surrogate
        return within(1, low, high) && within(2, 0x80, 0xbf) ? 3 : 0;
    }
    if (first >= 0xf0 && first <= 0xf4) {
        const unsigned low = first == 0xf0 ? 0x90 : 0x80;
        const unsigned high = first == 0xf4 ? 0x8f : 0xbf; // up to U+10FFFF
        return within(1, low, high) && within(2, 0x80, 0xbf) && within(3, 0x80, 0xbf) ? 4 : 0;
    }
    return 0;
}

} // namespace

void check(bool holds, const char *property)
{
    if (holds)
        return;
    std::fprintf(stderr, "broken property: %s\n", property);
    std::abort();
}

void checkStorable(QStringView text)
{
    db::Values values;
    values.addText(text);
    check(!values.at(0).isNull(), "a text is not NULL");
    checkStorableBytes(values.at(0));
}

void checkStorableBytes(QByteArrayView utf8)
{
    check(!utf8.contains('\0'), "no text has U+0000");
    while (!utf8.isEmpty()) {
        const qsizetype length = sequenceLength(utf8);
        check(length > 0, "every text is valid UTF-8");
        utf8 = utf8.sliced(length);
    }
}

bool isOneOf(QStringView text, std::initializer_list<const char *> vocabulary)
{
    return std::any_of(vocabulary.begin(), vocabulary.end(),
        [text](const char *word) { return text == QLatin1String(word); });
}

QByteArrayView view(const std::uint8_t *data, std::size_t size)
{
    return { data, static_cast<qsizetype>(size) };
}

QList<QByteArrayView> lines(const std::uint8_t *data, std::size_t size)
{
    QList<QByteArrayView> result;
    QByteArrayView rest = view(data, size);
    for (qsizetype lineFeed = rest.indexOf('\n'); lineFeed >= 0; lineFeed = rest.indexOf('\n')) {
        result.append(rest.first(lineFeed));
        rest = rest.sliced(lineFeed + 1);
    }
    result.append(rest);
    return result;
}

} // namespace vesk::fuzz
