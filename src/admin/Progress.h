#pragma once

#include "admin/SignalHook.h"

#include <QElapsedTimer>
#include <QString>

#include <optional>

/// How far a piece of work is.
struct ProgressState
{
    QString name; ///< of the file, for example
    QString unit; ///< of count, such as "lines"; empty when nothing is counted
    qint64 count = 0;
    qint64 done = 0; ///< of total; not necessarily in the same unit as count
    qint64 total = 0; ///< 0 when not known
    qint64 msecs = 0; ///< since the work began
};

/// The state in one line of at most \a columns columns, such as
/// "access.log  34 %  1,234,567 lines  45,678 lines/s  2:05 left". What is not known is left out,
/// and what does not fit: first the beginning of the name, then fields from the end. Characters of
/// the name that do not print become U+FFFD.
QString progressLine(const ProgressState &state, int columns);

/// Shows how far the work of a command is, in a line on standard error that is erased when it ends,
/// when something is logged through Qt, and when a signal ends or stops the process. Nothing is
/// ever written unless standard error is a terminal that has this process in its foreground, and
/// nothing in the first second. One object at a time.
class Progress
{
public:
    Progress();
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// Begins a piece of the work. Speed and time left are reckoned from here.
    void begin(const QString &name, const QString &unit = {});

    /// Whether it is time to show another state. Cheap enough to ask for every line of a file.
    bool isDue() const { return m_terminal && m_sinceStart.elapsed() >= m_dueMsecs; }

    /// Shows the state of the piece of work; only when isDue().
    void show(qint64 count, qint64 done, qint64 total);

    /// Has \a line written on the terminal when a signal such as that of Ctrl-C ends the process,
    /// in place of the line before.
    void setFarewell(const QString &line);

    /// Has to come before anything is printed that does not go through Qt's log.
    void erase();

private:
    const bool m_terminal;
    std::optional<SignalHook> m_hook; ///< on a terminal
    QElapsedTimer m_sinceStart;
    QElapsedTimer m_sinceBegin;
    qint64 m_dueMsecs = 1000; ///< of m_sinceStart
    QString m_name;
    QString m_unit;
};
