#pragma once

#include <QDate>
#include <QString>

#include <optional>

namespace vesk::report {

/// A figure; absent when there is nothing to tell, which is not zero.
using Value = std::optional<double>;

/// What a figure counts, which says how it is written and compared.
enum class Unit {
    Count,
    Mean,
    Rate, ///< a part of 1
    Seconds,
    Position,
    Bytes,
    Microseconds,
};

/// A figure for people, such as "1,234", "12.3 %", "2:16", "4.5 MB" or "-".
QString show(Value value, Unit unit);

/// How a figure changed: in percent, rates in percentage points, positions by their difference.
QString change(Value now, Value before, Unit unit);

/// A day in English, in the form of QDate::toString().
QString formatted(QDate day, const char *form);

/// "1 day", "3 days"
QString counted(qint64 count, const QString &one);

} // namespace vesk::report
