#pragma once

/// Switches the echo of the terminal on standard input off while it lives. A signal that ends or
/// stops the process meanwhile (SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP) finds the terminal as it
/// was before; a stopped process that goes on switches the echo off again. One object at a time.
class EchoOff
{
public:
    EchoOff();
    ~EchoOff();
    EchoOff(const EchoOff &) = delete;
    EchoOff &operator=(const EchoOff &) = delete;
};
