#include "support/Terminal.h"
#include "support/TestDatabase.h"

#include <QTest>

#include <csignal>
#include <memory>

#include <sys/wait.h>

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
    QStringList addUser() const { return { "-c", m_database->config(), "add-user", "admin" }; }

    std::unique_ptr<TestDatabase> m_database;
};

void TestPrompt::asksTwiceWithoutEcho()
{
    Terminal terminal(addUser());
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
    Terminal terminal(addUser());
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
    Terminal terminal(addUser());
    QVERIFY(terminal.shows("Password: "));
    QTRY_VERIFY(!terminal.echo());
    terminal.type(QByteArray(1100, 'x') + '\n');
    QVERIFY(terminal.shows("passwords do not match\r\n"));
}

void TestPrompt::endOfInputIsTooShort()
{
    Terminal terminal(addUser());
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
    Terminal terminal(addUser());
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
    Terminal terminal(addUser(), R"(set -m; "$@"; echo first; read; fg; echo second; read; fg)");
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
