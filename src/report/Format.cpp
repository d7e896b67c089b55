#include "report/Format.h"

#include <QChar>
#include <QLocale>

#include <algorithm>
#include <cmath>

#include <cwchar>

namespace vesk::report {

namespace {

const QLocale &english()
{
    static const QLocale locale(QLocale::English, QLocale::UnitedStates);
    return locale;
}

QString minutes(double seconds)
{
    const qint64 whole = qRound64(seconds);
    return QStringLiteral("%1:%2").arg(whole / 60).arg(whole % 60, 2, 10, QLatin1Char('0'));
}

/// From 0.08 ms to 12.5 s.
QString duration(double microseconds)
{
    const double ms = microseconds / 1000;
    if (ms >= 999.5)
        return number(ms / 1000, ms < 99950 ? 1 : 0) + QLatin1String(" s");
    return number(ms, ms < 0.095 ? 2 : ms < 9.95 ? 1 : 0) + QLatin1String(" ms");
}

QString size(double bytes)
{
    if (bytes < 1000)
        return number(bytes) + QLatin1String(" B");
    return english().formattedDataSize(qint64(bytes), 1, QLocale::DataSizeSIFormat);
}

/// What does not belong into a line of text.
bool isUnfit(char32_t c)
{
    switch (QChar::category(c)) {
    case QChar::Other_Control:
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
    return std::max(wcwidth(wchar_t(c)), c < 0x300 ? 1 : 0);
}

QString sign(double difference)
{
    return difference > 0 ? QStringLiteral("+") : difference < 0 ? QStringLiteral("−") : QString();
}

} // namespace

QString number(double value, int decimals)
{
    return english().toString(value, 'f', decimals);
}

QString counted(qint64 count, const QString &one)
{
    return number(double(count)) + u' ' + one + (count == 1 ? QString() : QStringLiteral("s"));
}

QString show(Value value, Unit unit)
{
    if (!value)
        return QStringLiteral("-");
    switch (unit) {
    case Unit::Count:
        return number(*value);
    case Unit::Rate:
        return number(100 * *value, 1) + QLatin1String(" %");
    case Unit::Seconds:
        return minutes(*value);
    case Unit::Bytes:
        return size(*value);
    case Unit::Microseconds:
        return duration(*value);
    case Unit::Mean:
    case Unit::Position:
        break;
    }
    return number(*value, 1);
}

QString change(Value now, Value before, Unit unit)
{
    if (!now || !before)
        return QStringLiteral("-");
    if (unit == Unit::Rate || unit == Unit::Position) {
        const double difference
            = std::round((*now - *before) * (unit == Unit::Rate ? 1000 : 10)) / 10;
        return sign(difference) + number(std::abs(difference), 1)
            + (unit == Unit::Rate ? QLatin1String(" pt") : QLatin1String());
    }
    if (*before == 0)
        return *now > 0 ? QStringLiteral("new") : QStringLiteral("0 %");
    if (*now >= 10 * *before)
        return QStringLiteral("×") + number(*now / *before);
    const double difference = std::round(100 * (*now - *before) / *before);
    return sign(difference) + number(std::abs(difference)) + QLatin1String(" %");
}

QString clean(const QString &text)
{
    QString cleaned;
    cleaned.reserve(text.size());
    for (const char32_t c : text.toUcs4()) {
        if (isUnfit(c))
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
    const qsizetype most
        = qsizetype { 2 } * columns; // marks take no column, but nobody needs hundreds of them
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
    return cut + QChar(0x2026);
}

} // namespace vesk::report
