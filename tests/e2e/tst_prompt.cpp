#include "support/TestDatabase.h"

#include <QTest>

#include <array>
#include <csignal>
#include <memory>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace {

/// vesk-admin add-user on a terminal of its own.
class Terminal
{
public:
    /// With \a script, bash runs that, and finds the program with its arguments in "$@".
    explicit Terminal(const QString &config, const QByteArray &script = "exec \"$@\"")
    {
        const QByteArray file = config.toUtf8();
        m_child = forkpty(&m_terminal, nullptr, nullptr, nullptr);
        if (m_child == 0) {
            for (const int number : { SIGINT, SIGQUIT, SIGTSTP }) // as a login shell leaves them
                ::signal(number, SIG_DFL);
            execl("/bin/bash", "bash", "-c", script.constData(), "bash", VESK_ADMIN, "-c", file.constData(), "add-user", "admin", nullptr);
            _exit(127);
        }
    }

    ~Terminal()
    {
        kill(m_child, SIGKILL);
        waitpid(m_child, nullptr, 0);
        close(m_terminal);
    }
    Q_DISABLE_COPY_MOVE(Terminal)

    /// Reads until the screen shows \a text once more.
    bool shows(const QByteArray &text)
    {
        while (m_unread.indexOf(text) < 0) {
            pollfd ready { m_terminal, POLLIN, 0 };
            std::array<char, 1024> buffer {};
            if (::poll(&ready, 1, 20000) != 1)
                return false;
            const auto got = read(m_terminal, buffer.data(), buffer.size());
            if (got <= 0)
                return false;
            m_unread.append(buffer.data(), got);
            m_screen.append(buffer.data(), got);
        }
        m_unread = m_unread.mid(m_unread.indexOf(text) + text.size());
        return true;
    }

    void type(const QByteArray &text) { QCOMPARE(write(m_terminal, text.constData(), static_cast<size_t>(text.size())), text.size()); }

    bool echo() const
    {
        termios attributes {};
        tcgetattr(m_terminal, &attributes);
        return attributes.c_lflag & ECHO;
    }

    void signal(int number) { kill(m_child, number); }

    /// Waits until the program ends; its wait status.
    int wait()
    {
        int status = 0;
        waitpid(m_child, &status, 0);
        return status;
    }

    const QByteArray &screen() const { return m_screen; }

private:
    int m_terminal = -1;
    pid_t m_child = -1;
    QByteArray m_unread;
    QByteArray m_screen;
};

} // namespace

class TestPrompt : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_database = std::make_unique<TestDatabase>(); }
    void cleanup() { m_database.reset(); }
    void asksTwiceWithoutEcho();
    void refusesAnotherConfirmation();
    void overlongInputIsItsOwnConfirmation();
    void endOfInputIsTooShort();
    void signalsFindTheEchoOn_data();
    void signalsFindTheEchoOn();
    void goesOnAfterAStop();

private:
    std::unique_ptr<TestDatabase> m_database;
};

void TestPrompt::asksTwiceWithoutEcho()
{
    Terminal terminal(m_database->config());
    for (const char *prompt : { "Password: ", "Again: " }) {
        QVERIFY(terminal.shows(prompt));
        QTRY_VERIFY(!terminal.echo());
        terminal.type("a long secret\n");
    }
    QVERIFY(terminal.shows("created admin (maintainer)\r\n"));
    QCOMPARE(terminal.wait(), 0);
    QVERIFY(terminal.echo());
    QCOMPARE(terminal.screen(), QByteArray("Password: \r\nAgain: \r\ncreated admin (maintainer)\r\n"));
    QCOMPARE(value("SELECT count(*) FROM vesk.users"), "1");
}

void TestPrompt::refusesAnotherConfirmation()
{
    Terminal terminal(m_database->config());
    QVERIFY(terminal.shows("Password: "));
    QTRY_VERIFY(!terminal.echo());
    terminal.type("a long secret\n");
    QVERIFY(terminal.shows("Again: "));
    QTRY_VERIFY(!terminal.echo());
    terminal.type("a long Secret\n");
    QVERIFY(terminal.shows("passwords do not match\r\n"));
    QCOMPARE(WEXITSTATUS(terminal.wait()), 1);
    QVERIFY(terminal.echo());
    QCOMPARE(value("SELECT count(*) FROM vesk.users"), "0");
}

void TestPrompt::overlongInputIsItsOwnConfirmation()
{
    Terminal terminal(m_database->config());
    QVERIFY(terminal.shows("Password: "));
    QTRY_VERIFY(!terminal.echo());
    terminal.type(QByteArray(1100, 'x') + '\n');
    QVERIFY(terminal.shows("passwords do not match\r\n"));
}

void TestPrompt::endOfInputIsTooShort()
{
    Terminal terminal(m_database->config());
    QVERIFY(terminal.shows("Password: "));
    QTRY_VERIFY(!terminal.echo());
    terminal.type("\4"); // Ctrl-D
    QVERIFY(terminal.shows("password must be at least 12 characters\r\n"));
    QCOMPARE(WEXITSTATUS(terminal.wait()), 1);
}

void TestPrompt::signalsFindTheEchoOn_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
    QTest::newRow("SIGQUIT") << SIGQUIT;
}

void TestPrompt::signalsFindTheEchoOn()
{
    QFETCH(int, number);
    Terminal terminal(m_database->config());
    QVERIFY(terminal.shows("Password: "));
    QTRY_VERIFY(!terminal.echo());
    terminal.signal(number);
    const int status = terminal.wait();
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(WTERMSIG(status), number);
    QVERIFY(terminal.echo());
}

/// Ctrl-Z, as a shell with job control sees it.
void TestPrompt::goesOnAfterAStop()
{
    Terminal terminal(m_database->config(), R"(set -m; "$@"; echo first; read; fg; echo second; read; fg)");
    QVERIFY(terminal.shows("Password: "));
    for (const char *stop : { "first", "second" }) {
        QTRY_VERIFY(!terminal.echo());
        terminal.type("\x1a");
        QVERIFY(terminal.shows(stop));
        QVERIFY(terminal.echo());
        terminal.type("\n");
    }
    QTRY_VERIFY(!terminal.echo());
    terminal.type("a long secret\n");
    QVERIFY(terminal.shows("Again: "));
    QTRY_VERIFY(!terminal.echo());
    terminal.type("a long secret\n");
    QVERIFY(terminal.shows("created admin (maintainer)\r\n"));
}

QTEST_GUILESS_MAIN(TestPrompt)
#include "tst_prompt.moc"
