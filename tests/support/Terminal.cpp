#include "support/Terminal.h"

#include <QDeadlineTimer>
#include <QTest>

#include <array>
#include <csignal>
#include <vector>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

Terminal::Terminal(const QStringList &arguments, const QByteArray &script)
{
    QByteArrayList words { "bash", "-c", script, "bash", VESK_ADMIN };
    for (const QString &argument : arguments)
        words += argument.toLocal8Bit();
    std::vector<char *> pointers;
    for (QByteArray &word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    winsize size {};
    size.ws_col = 80;
    size.ws_row = 24;
    m_child = forkpty(&m_terminal, nullptr, nullptr, &size);
    if (m_child == 0) {
        for (const int number : { SIGINT, SIGQUIT, SIGTSTP }) // as a login shell leaves them
            ::signal(number, SIG_DFL);
        qputenv("TERM", "xterm");
        execv("/bin/bash", pointers.data());
        _exit(127);
    }
}

Terminal::~Terminal()
{
    kill(m_child, SIGKILL);
    waitpid(m_child, nullptr, 0);
    close(m_terminal);
}

bool Terminal::readSome(int msecs)
{
    pollfd ready { m_terminal, POLLIN, 0 };
    std::array<char, 1024> buffer {};
    if (::poll(&ready, 1, msecs) != 1)
        return false;
    const auto got = ::read(m_terminal, buffer.data(), buffer.size());
    if (got <= 0)
        return false;
    m_unread.append(buffer.data(), got);
    m_screen.append(buffer.data(), got);
    return true;
}

bool Terminal::shows(const QByteArray &text)
{
    while (m_unread.indexOf(text) < 0) {
        if (!readSome(20000))
            return false;
    }
    m_unread = m_unread.mid(m_unread.indexOf(text) + text.size());
    return true;
}

void Terminal::read(int msecs)
{
    const QDeadlineTimer deadline(msecs);
    while (readSome(static_cast<int>(deadline.remainingTime()))) { }
}

void Terminal::type(const QByteArray &text)
{
    QCOMPARE(write(m_terminal, text.constData(), static_cast<size_t>(text.size())), text.size());
}

bool Terminal::echo() const
{
    termios attributes {};
    tcgetattr(m_terminal, &attributes);
    return attributes.c_lflag & ECHO;
}

void Terminal::signal(int number)
{
    kill(m_child, number);
}

int Terminal::wait()
{
    int status = 0;
    waitpid(m_child, &status, 0);
    return status;
}

QStringList Terminal::lines() const
{
    QStringList result { {} };
    qsizetype column = 0;
    const QString bytes = QString::fromLocal8Bit(m_screen);
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        QString &line = result.last();
        if (QStringView(bytes).sliced(i).startsWith(u"\x1b[K")) {
            line.truncate(column);
            i += 2;
        } else if (bytes[i] == u'\r') {
            column = 0;
        } else if (bytes[i] == u'\n') {
            result += QString(column, u' ');
        } else {
            line.replace(column++, 1, bytes[i]);
        }
    }
    return result;
}
