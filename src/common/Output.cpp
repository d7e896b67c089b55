#include "common/Output.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace vesk {

namespace {

/// Opens those of the first three descriptors that are closed for the wrong direction, so that
/// using them fails as before.
void occupyClosedStreams()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1 && errno == EBADF)
            open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

void checkOutput()
{
    const bool failed = ferror(stdout) != 0;
    if (failed)
        putchar('\n'); // fails again, and tells why
    if (fflush(stdout) == 0 && !failed)
        return;
    fprintf(stderr, "cannot write to standard output: %s\n", std::strerror(errno));
    _exit(1);
}

} // namespace

void prepareOutput()
{
    occupyClosedStreams();
    std::signal(SIGPIPE, SIG_IGN);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    std::atexit(checkOutput);
}

} // namespace vesk
