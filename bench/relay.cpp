// Stands between a client and PostgreSQL's Unix socket and lets what the client sends arrive later,
// so that each round trip takes longer, as over a network. Serves one client, then ends.
//
// usage: relay LISTEN-SOCKET SERVER-SOCKET DELAY-MICROSECONDS

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

struct Delayed
{
    Clock::time_point due;
    std::string bytes;
};

sockaddr_un address(const char *path)
{
    sockaddr_un result {};
    result.sun_family = AF_UNIX;
    std::strncpy(result.sun_path, path, sizeof result.sun_path - 1);
    return result;
}

[[noreturn]] void fail(const char *what)
{
    std::perror(what);
    std::exit(1);
}

void sendAll(int socket, const char *bytes, size_t size)
{
    while (size > 0) {
        const ssize_t sent = write(socket, bytes, size);
        if (sent <= 0)
            std::exit(0); // the other side has gone
        bytes += sent;
        size -= static_cast<size_t>(sent);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    const sockaddr_un here = address(argv[1]);
    const sockaddr_un there = address(argv[2]);
    const auto delay = std::chrono::microseconds(std::atol(argv[3]));

    const int listening = socket(AF_UNIX, SOCK_STREAM, 0);
    if (bind(listening, reinterpret_cast<const sockaddr *>(&here), sizeof here) != 0
        || listen(listening, 1) != 0)
        fail(argv[1]);
    const int client = accept(listening, nullptr, nullptr);
    const int server = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(server, reinterpret_cast<const sockaddr *>(&there), sizeof there) != 0)
        fail(argv[2]);

    std::deque<Delayed> onTheWay;
    std::string buffer(256 * 1024, '\0');
    for (;;) {
        timespec timeout {};
        if (!onTheWay.empty()) {
            const auto left = std::chrono::nanoseconds(onTheWay.front().due - Clock::now()).count();
            timeout.tv_nsec = left > 0 ? left : 0;
        }
        pollfd sockets[] { { client, POLLIN, 0 }, { server, POLLIN, 0 } };
        ppoll(sockets, 2, onTheWay.empty() ? nullptr : &timeout, nullptr);
        for (; !onTheWay.empty() && onTheWay.front().due <= Clock::now(); onTheWay.pop_front())
            sendAll(server, onTheWay.front().bytes.data(), onTheWay.front().bytes.size());
        for (const pollfd &ready : sockets) {
            if (ready.revents == 0)
                continue;
            const ssize_t got = read(ready.fd, buffer.data(), buffer.size());
            if (got <= 0)
                return 0;
            if (ready.fd == client)
                onTheWay.push_back(
                    { Clock::now() + delay, buffer.substr(0, static_cast<size_t>(got)) });
            else
                sendAll(client, buffer.data(), static_cast<size_t>(got));
        }
    }
}
