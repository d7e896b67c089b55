#include "admin/Progress.h"

#include "common/Text.h"

#include <QByteArray>
#include <QStringList>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <string_view>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr qint64 kIntervalMsecs = 200;

constexpr int kUsualColumns = 80; // of a terminal that does not tell
constexpr int kNameColumns = 16; // what the fields leave to the name, at least

constexpr std::string_view kErase = "\r\x1b[K";

// What signal and message handlers need. They take no arguments of ours, so it is global.
volatile std::sig_atomic_t g_shown = 0;
QtMessageHandler g_oldHandler = nullptr;
std::array<QByteArray, 2> g_farewells; ///< two, so that one is whole whenever a signal comes
volatile std::sig_atomic_t g_farewell = 0;

void send(std::string_view bytes)
{
    // A terminal that is gone wants no line.
    [[maybe_unused]] const auto sent = write(STDERR_FILENO, bytes.data(), bytes.size());
}

void eraseLine()
{
    if (!g_shown)
        return;
    send(kErase);
    g_shown = 0;
}

/// Whether the terminal takes output without delay; it does not after Ctrl-S.
bool takesOutput()
{
    pollfd terminal { STDERR_FILENO, POLLOUT, 0 };
    return poll(&terminal, 1, 0) == 1 && (terminal.revents & POLLOUT);
}

bool inForeground()
{
    const pid_t group = tcgetpgrp(STDERR_FILENO);
    return group < 0 || group == getpgrp(); // another session's terminal has no such thing
}

int columnsOfTerminal()
{
    winsize size {};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : kUsualColumns;
}

void leaveLine(int signal)
{
    if (!takesOutput())
        return;
    eraseLine();
    const QByteArray &farewell = g_farewells[static_cast<std::size_t>(g_farewell)];
    if (signal != SIGTSTP)
        send({ farewell.constData(), static_cast<std::size_t>(farewell.size()) });
}

void onMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    eraseLine();
    g_oldHandler(type, context, message);
}

} // namespace

QString progressLine(const ProgressState &state, int columns)
{
    QStringList fields;
    if (state.total > 0)
        fields
            += QStringLiteral("%1 %").arg(std::min(state.done * 100 / state.total, qint64 { 100 }));
    if (!state.unit.isEmpty()) {
        fields += vesk::grouped(static_cast<double>(state.count)) + u' ' + state.unit;
        if (state.msecs > 0) {
            const qint64 perSecond = state.count * 1000 / state.msecs;
            fields += vesk::grouped(static_cast<double>(perSecond)) + u' ' + state.unit
                + QLatin1String("/s");
        }
    }
    if (state.total > 0 && state.done > 0) {
        const auto rest = static_cast<double>(std::max(state.total - state.done, qint64 { 0 }));
        const double msecs
            = static_cast<double>(state.msecs) * rest / static_cast<double>(state.done);
        fields += vesk::minutes(msecs / 1000) + QLatin1String(" left");
    }

    const int forFields
        = columns - std::min(vesk::columnsOf(vesk::clean(state.name)), kNameColumns);
    QString tail;
    for (const QString &field : fields) {
        const QString longer = tail + QLatin1String("  ") + field;
        if (longer.size() > forFields)
            break;
        tail = longer;
    }
    return vesk::fitEnd(state.name, columns - static_cast<int>(tail.size())) + tail;
}

Progress::Progress()
    : m_terminal(isatty(STDERR_FILENO) == 1 && qgetenv("TERM") != "dumb")
{
    if (!m_terminal)
        return;
    m_sinceStart.start();
    g_oldHandler = qInstallMessageHandler(onMessage);
    m_hook.emplace(leaveLine, [](int) {});
}

Progress::~Progress()
{
    if (!m_terminal)
        return;
    erase();
    m_hook.reset();
    setFarewell({});
    qInstallMessageHandler(g_oldHandler);
}

void Progress::begin(const QString &name, const QString &unit)
{
    m_name = name;
    m_unit = unit;
    m_sinceBegin.start();
}

void Progress::show(qint64 count, qint64 done, qint64 total)
{
    m_dueMsecs = m_sinceStart.elapsed() + kIntervalMsecs;
    if (!inForeground() || !takesOutput())
        return;
    const ProgressState state { m_name, m_unit, count, done, total, m_sinceBegin.elapsed() };
    // The last column stays free: what a full line does to the cursor differs.
    const QString line = progressLine(state, std::max(columnsOfTerminal() - 1, 1));
    const QByteArray bytes = '\r' + line.toLocal8Bit() + "\x1b[K";
    g_shown = 1;
    send({ bytes.constData(), static_cast<std::size_t>(bytes.size()) });
}

void Progress::setFarewell(const QString &line)
{
    QByteArray farewell;
    if (!line.isEmpty()) {
        // The terminal may have echoed the key that was pressed.
        farewell
            = QByteArray(kErase.data(), kErase.size()) + vesk::clean(line).toLocal8Bit() + '\n';
    }
    const int other = 1 - g_farewell;
    g_farewells[static_cast<std::size_t>(other)] = farewell;
    g_farewell = other;
}

void Progress::erase()
{
    eraseLine();
}
