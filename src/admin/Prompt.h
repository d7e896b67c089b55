#pragma once

#include "admin/SignalHook.h"

#include <optional>

/// Switches the echo of the terminal on standard input off while it lives. A signal that ends or
/// stops the process meanwhile (see SignalHook) finds the terminal as it was before; a stopped
/// process that goes on switches the echo off again. One object at a time.
class EchoOff
{
public:
    EchoOff();
    ~EchoOff();
    EchoOff(const EchoOff &) = delete;
    EchoOff &operator=(const EchoOff &) = delete;

private:
    std::optional<SignalHook> m_hook;
};
