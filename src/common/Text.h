#pragma once

#include <QString>

/// Text for people and terminals. Paths, referrers, names of files and what the database quotes of
/// them are what strangers sent.
namespace vesk {

enum class Lines {
    One, ///< line feeds and tabs are unfit, too
    Many,
};

/// \a text without what a terminal would obey, what would turn the reading order around and what is
/// no character: they become replacement characters.
QString clean(const QString &text, Lines lines = Lines::One);

/// The columns of a terminal that \a text takes. East Asian characters and emoji take two, marks
/// none. The locale must be one with UTF-8, as Qt sets it.
int columnsOf(const QString &text);

/// The beginning of \a text, cleaned, in at most \a columns; an ellipsis ends it when that is not
/// all.
QString fit(const QString &text, int columns);

/// The end of \a text, cleaned, after an ellipsis when that is not all.
QString fitEnd(const QString &text, int columns);

/// 1,234,567
QString grouped(double value, int decimals = 0);

/// Seconds, rounded, as m:ss.
QString minutes(double seconds);

} // namespace vesk
