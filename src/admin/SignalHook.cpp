#include "admin/SignalHook.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>

namespace {

constexpr std::array kSignals { SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP };

// What the signal handler needs. It takes no arguments of ours, so it is global.
SignalHook::Function g_leave;
SignalHook::Function g_resume;
std::array<struct sigaction, kSignals.size()> g_oldActions;

void onSignal(int signal)
{
    const int error = errno;
    g_leave(signal);

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
    g_resume(signal);
    errno = error;
}

} // namespace

SignalHook::SignalHook(Function leave, Function resume)
{
    g_leave = leave;
    g_resume = resume;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART; // a process that was stopped goes on reading
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], nullptr, &g_oldActions[i]);
        if (g_oldActions[i].sa_handler != SIG_IGN) // nohup and the like stay in force
            sigaction(kSignals[i], &action, nullptr);
    }
}

SignalHook::~SignalHook()
{
    for (std::size_t i = 0; i < kSignals.size(); ++i)
        sigaction(kSignals[i], &g_oldActions[i], nullptr);
}
