#include "common/Text.h"

#include <QChar>
#include <QLocale>

#include <algorithm>

#include <cwchar>

namespace vesk {

namespace {

constexpr QChar kEllipsis(0x2026);

bool isUnfit(char32_t c, Lines lines)
{
    switch (QChar::category(c)) {
    case QChar::Other_Control:
        return lines == Lines::One || (c != U'\n' && c != U'\t');
    case QChar::Other_Format:
    case QChar::Other_Surrogate:
    case QChar::Other_PrivateUse:
    case QChar::Other_NotAssigned:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        return false;
    }
}

int columnsOf(char32_t c)
{
    return std::max(wcwidth(static_cast<wchar_t>(c)), c < 0x300 ? 1 : 0);
}

} // namespace

QString clean(const QString &text, Lines lines)
{
    QString cleaned;
    cleaned.reserve(text.size());
    for (const char32_t c : text.toUcs4()) {
        if (isUnfit(c, lines))
            cleaned += QChar(QChar::ReplacementCharacter);
        else
            cleaned += QStringView(QChar::fromUcs4(c));
    }
    return cleaned;
}

int columnsOf(const QString &text)
{
    int columns = 0;
    for (const char32_t c : text.toUcs4())
        columns += columnsOf(c);
    return columns;
}

QString fit(const QString &text, int columns)
{
    QString whole = clean(text);
    const QList<uint> letters = whole.toUcs4();
    // Marks take no column, but nobody needs hundreds of them.
    const qsizetype most = qsizetype { 2 } * columns;
    if (letters.size() <= most && columnsOf(whole) <= columns)
        return whole;
    QString cut;
    int used = 0;
    for (const char32_t c : letters.first(std::min(most, letters.size()))) {
        used += columnsOf(c);
        if (used >= columns)
            break;
        cut += QStringView(QChar::fromUcs4(c));
    }
    return cut + kEllipsis;
}

QString fitEnd(const QString &text, int columns)
{
    QString whole = clean(text);
    int width = columnsOf(whole);
    if (width <= columns)
        return whole;
    const QList<uint> letters = whole.toUcs4();
    qsizetype cut = 0;
    // What takes no column belongs to the character before.
    while (cut < letters.size() && (width >= columns || columnsOf(char32_t { letters[cut] }) == 0))
        width -= columnsOf(char32_t { letters[cut++] });
    const QList<uint> rest = letters.sliced(cut);
    return kEllipsis
        + QString::fromUcs4(reinterpret_cast<const char32_t *>(rest.data()), rest.size());
}

QString grouped(double value, int decimals)
{
    static const QLocale english(QLocale::English, QLocale::UnitedStates);
    return english.toString(value, 'f', decimals);
}

QString minutes(double seconds)
{
    const qint64 whole = qRound64(seconds);
    return QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

} // namespace vesk
