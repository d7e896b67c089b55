#include "admin/Prompt.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>

#include <termios.h>
#include <unistd.h>

namespace {

constexpr std::array kSignals { SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP };

// What the signal handler needs; it can be given nothing.
termios g_old;
termios g_noEcho;
std::array<struct sigaction, kSignals.size()> g_oldActions;

/// Restores the terminal, lets the signal do what it did before, and goes on if the process does.
void onSignal(int signal)
{
    const int error = errno;
    tcsetattr(STDIN_FILENO, TCSANOW, &g_old);

    std::size_t i = 0;
    while (kSignals[i] != signal)
        ++i;
    struct sigaction own;
    sigaction(signal, &g_oldActions[i], &own);
    sigset_t only;
    sigset_t before;
    sigemptyset(&only);
    sigaddset(&only, signal);
    raise(signal);
    sigprocmask(SIG_UNBLOCK, &only, &before); // here it ends or stops
    sigprocmask(SIG_SETMASK, &before, nullptr);

    sigaction(signal, &own, nullptr);
    tcsetattr(STDIN_FILENO, TCSANOW, &g_noEcho);
    errno = error;
}

} // namespace

EchoOff::EchoOff()
{
    tcgetattr(STDIN_FILENO, &g_old);
    g_noEcho = g_old;
    g_noEcho.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART; // a process that was stopped goes on reading
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], nullptr, &g_oldActions[i]);
        if (g_oldActions[i].sa_handler != SIG_IGN) // nohup and the like stay in force
            sigaction(kSignals[i], &action, nullptr);
    }
    tcsetattr(STDIN_FILENO, TCSANOW, &g_noEcho);
}

EchoOff::~EchoOff()
{
    tcsetattr(STDIN_FILENO, TCSANOW, &g_old);
    for (std::size_t i = 0; i < kSignals.size(); ++i)
        sigaction(kSignals[i], &g_oldActions[i], nullptr);
}
