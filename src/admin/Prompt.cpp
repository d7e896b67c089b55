#include "admin/Prompt.h"

#include "admin/SignalHook.h"

#include <array>
#include <cstdio>
#include <optional>

#include <termios.h>
#include <unistd.h>

namespace {

// What a signal handler needs. It takes no arguments of ours, so it is global.
termios g_old;
termios g_noEcho;

void restoreEcho(int = 0)
{
    tcsetattr(STDIN_FILENO, TCSANOW, &g_old);
}

void switchEchoOff(int = 0)
{
    tcsetattr(STDIN_FILENO, TCSANOW, &g_noEcho);
}

/// Switches the echo of the terminal on standard input off while it lives. A signal that ends or
/// stops the process meanwhile (see SignalHook) finds the terminal as it was before; a stopped
/// process that goes on switches the echo off again. One object at a time.
class EchoOff
{
public:
    EchoOff()
    {
        tcgetattr(STDIN_FILENO, &g_old);
        g_noEcho = g_old;
        g_noEcho.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        m_hook.emplace(restoreEcho, switchEchoOff);
        switchEchoOff();
    }
    ~EchoOff() { restoreEcho(); }
    EchoOff(const EchoOff &) = delete;
    EchoOff &operator=(const EchoOff &) = delete;

private:
    std::optional<SignalHook> m_hook;
};

} // namespace

QString readPassword(const char *prompt)
{
    std::array<char, 1024> buf {};
    const bool terminal = isatty(STDIN_FILENO) == 1;
    const char *line = nullptr;
    if (terminal) {
        fputs(prompt, stderr);
        const EchoOff echoOff;
        line = fgets(buf.data(), static_cast<int>(buf.size()), stdin);
    } else {
        line = fgets(buf.data(), static_cast<int>(buf.size()), stdin);
    }
    if (terminal)
        fputc('\n', stderr);
    QString password = line ? QString::fromUtf8(line) : QString();
    if (password.endsWith(u'\n'))
        password.chop(1);
    return password;
}
