#include "admin/Prompt.h"

#include <termios.h>
#include <unistd.h>

namespace {

// What a signal handler needs; it can be given nothing.
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

} // namespace

EchoOff::EchoOff()
{
    tcgetattr(STDIN_FILENO, &g_old);
    g_noEcho = g_old;
    g_noEcho.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    m_hook.emplace(restoreEcho, switchEchoOff);
    switchEchoOff();
}

EchoOff::~EchoOff()
{
    restoreEcho();
}
