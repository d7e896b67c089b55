#pragma once

#include <QByteArray>
#include <QStringList>

#include <sys/types.h>

/// vesk-admin on a terminal of its own, of 80 columns.
class Terminal
{
public:
    /// With \a script, bash runs that, and finds the program with its arguments in "$@".
    explicit Terminal(const QStringList &arguments, const QByteArray &script = "exec \"$@\"");
    ~Terminal();
    Q_DISABLE_COPY_MOVE(Terminal)

    /// Reads until the screen shows \a text once more.
    bool shows(const QByteArray &text);

    /// Reads for \a msecs, or until nothing can come any more.
    void read(int msecs);

    void type(const QByteArray &text);
    bool echo() const;
    void signal(int number);

    /// Waits until the program ends; its wait status.
    int wait();

    /// All bytes read so far.
    const QByteArray &screen() const { return m_screen; }

    /// What stands on the screen after these bytes, line by line, the one with the cursor last.
    QStringList lines() const;

private:
    bool readSome(int msecs);

    int m_terminal = -1;
    pid_t m_child = -1;
    QByteArray m_unread;
    QByteArray m_screen;
};
