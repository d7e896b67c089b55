#include "report/Format.h"

#include "common/Text.h"

#include <QLocale>

#include <cmath>

namespace vesk::report {

namespace {

/// From 0.08 ms to 12.5 s.
QString duration(double microseconds)
{
    const double ms = microseconds / 1000;
    if (ms >= 999.5)
        return grouped(ms / 1000, ms < 99950 ? 1 : 0) + QLatin1String(" s");
    return grouped(ms, ms < 0.095 ? 2 : ms < 9.95 ? 1 : 0) + QLatin1String(" ms");
}

QString size(double bytes)
{
    if (bytes < 1000)
        return grouped(bytes) + QLatin1String(" B");
    static const QLocale english(QLocale::English, QLocale::UnitedStates);
    return english.formattedDataSize(qint64(bytes), 1, QLocale::DataSizeSIFormat);
}

QString sign(double difference)
{
    return difference > 0 ? QStringLiteral("+") : difference < 0 ? QStringLiteral("−") : QString();
}

} // namespace

QString formatted(QDate day, const char *form)
{
    return QLocale::c().toString(day, QString::fromUtf8(form));
}

QString counted(qint64 count, const QString &one)
{
    return grouped(double(count)) + u' ' + one + (count == 1 ? QString() : QStringLiteral("s"));
}

QString show(Value value, Unit unit)
{
    if (!value)
        return QStringLiteral("-");
    switch (unit) {
    case Unit::Count:
        return grouped(*value);
    case Unit::Rate:
        return grouped(100 * *value, 1) + QLatin1String(" %");
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
    return grouped(*value, 1);
}

QString change(Value now, Value before, Unit unit)
{
    if (!now || !before)
        return QStringLiteral("-");
    if (unit == Unit::Rate || unit == Unit::Position) {
        const double difference
            = std::round((*now - *before) * (unit == Unit::Rate ? 1000 : 10)) / 10;
        return sign(difference) + grouped(std::abs(difference), 1)
            + (unit == Unit::Rate ? QLatin1String(" pt") : QLatin1String());
    }
    if (*before == 0)
        return *now > 0 ? QStringLiteral("new") : QStringLiteral("0 %");
    if (*now >= 10 * *before)
        return QStringLiteral("×") + grouped(*now / *before);
    const double difference = std::round(100 * (*now - *before) / *before);
    return sign(difference) + grouped(std::abs(difference)) + QLatin1String(" %");
}

} // namespace vesk::report
