#pragma once

/// Has the terminal put in order before a signal ends or stops the process (SIGINT, SIGTERM,
/// SIGHUP, SIGQUIT, SIGTSTP), while it lives. Signals that are ignored stay so. One object at a
/// time.
class SignalHook
{
public:
    using Function = void (*)(int signal);

    /// \a leave is called before the signal does what it always did, and \a resume when the process
    /// goes on after that. They may do what a signal handler may, and nothing else.
    SignalHook(Function leave, Function resume);
    ~SignalHook();
    SignalHook(const SignalHook &) = delete;
    SignalHook &operator=(const SignalHook &) = delete;
};
