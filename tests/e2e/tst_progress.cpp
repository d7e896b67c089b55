#include "support/Terminal.h"
#include "support/TestDatabase.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <memory>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QByteArray kLine = "192.0.2.1 - - [10/Mar/2026:12:00:00 +0000] \"GET / HTTP/1.1\" 200 5 \"-\" \"UA\"\n";

/// A pipe in the file system that the test writes to. While it lives the reader waits for more.
class Fifo
{
public:
    explicit Fifo(const QString &path)
    {
        const QByteArray name = path.toLocal8Bit();
        if (mkfifo(name.constData(), 0600) != 0)
            qFatal("cannot make %s", name.constData());
        m_fd = open(name.constData(), O_RDWR | O_CLOEXEC); // does not wait for a reader
    }
    ~Fifo() { close(m_fd); }
    Q_DISABLE_COPY_MOVE(Fifo)

    void writeLine()
    {
        QCOMPARE(write(m_fd, kLine.constData(), static_cast<size_t>(kLine.size())), kLine.size());
        ++m_written;
    }

    QByteArray written() const { return QByteArray::number(m_written); }

private:
    int m_fd = -1;
    int m_written = 0;
};

} // namespace

class TestProgress : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_database.reset(); }
    void erasesTheLine_data();
    void erasesTheLine();
    void isSilentElsewhere_data();
    void isSilentElsewhere();
    void signalsFindNoLine_data();
    void signalsFindNoLine();
    void referenceData_data();
    void referenceData();
    void gunzipEndsWithTheProgram();

private:
    QStringList with(const QStringList &arguments) const { return QStringList { "-c", m_database->config() } + arguments; }

    /// Feeds the program until it shows how far it is.
    static bool showsProgress(Terminal &terminal, Fifo &fifo)
    {
        for (int i = 0; i < 200 && !terminal.screen().contains("lines/s"); ++i) {
            fifo.writeLine();
            terminal.read(100);
        }
        return terminal.shows("lines/s");
    }

    std::unique_ptr<TestDatabase> m_database;
    std::unique_ptr<QTemporaryDir> m_folder;
    QString m_path; ///< for a pipe
};

void TestProgress::init()
{
    m_database = std::make_unique<TestDatabase>();
    execute("INSERT INTO vesk.sites (host, name) VALUES ('example.org', 'Name')");
    m_folder = std::make_unique<QTemporaryDir>();
    m_path = m_folder->filePath("log");
}

void TestProgress::erasesTheLine_data()
{
    QTest::addColumn<QString>("damage");
    QTest::newRow("before results") << QString();
    QTest::newRow("before messages") << "ALTER TABLE vesk.hits ADD CHECK (status = 0)";
}

void TestProgress::erasesTheLine()
{
    QFETCH(QString, damage);
    if (!damage.isEmpty())
        execute(damage);
    auto fifo = std::make_unique<Fifo>(m_path);
    Terminal terminal(with({ "import-log", "example.org", m_path }));
    QVERIFY(showsProgress(terminal, *fifo));
    QVERIFY2(terminal.lines().last().startsWith(m_path + "  "), terminal.screen().constData());
    const QString written = fifo->written();
    fifo.reset();
    QVERIFY(terminal.shows("rolled up 1 days\r\n"));
    QCOMPARE(terminal.wait(), 0);
    const QStringList lines = terminal.lines();
    if (damage.isEmpty()) {
        QCOMPARE(
            lines, (QStringList { m_path + ": " + written + " lines, " + written + " stored, 0 not log entries", "rolled up 1 days", "" }));
    } else {
        QVERIFY2(lines.first().startsWith("sql: "), terminal.screen().constData());
        QVERIFY2(lines.filter("/s").isEmpty(), terminal.screen().constData());
    }
}

void TestProgress::isSilentElsewhere_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::newRow("file") << QByteArray(R"("$@" 2>$0.err; cat $0.err)");
    QTest::newRow("pipe") << QByteArray(R"("$@" 2> >(cat))");
    QTest::newRow("background") << QByteArray(R"(set -m; "$@" & set +m; wait)");
    QTest::newRow("terminal that cannot erase") << QByteArray(R"(TERM=dumb "$@")");
}

void TestProgress::isSilentElsewhere()
{
    QFETCH(QByteArray, script);
    auto fifo = std::make_unique<Fifo>(m_path);
    script.replace("$0", m_path.toLocal8Bit());
    Terminal terminal(with({ "import-log", "example.org", m_path }), script);
    for (int i = 0; i < 25; ++i) {
        fifo->writeLine();
        terminal.read(100);
    }
    const QByteArray written = fifo->written();
    fifo.reset();
    QVERIFY(terminal.shows("rolled up 1 days\r\n"));
    terminal.read(20000);
    QCOMPARE(terminal.screen(),
        m_path.toLocal8Bit() + ": " + written + " lines, " + written + " stored, 0 not log entries\r\nrolled up 1 days\r\n");
}

void TestProgress::signalsFindNoLine_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void TestProgress::signalsFindNoLine()
{
    QFETCH(int, number);
    Fifo fifo(m_path);
    Terminal terminal(with({ "import-log", "example.org", m_path }));
    QVERIFY(showsProgress(terminal, fifo));
    terminal.signal(number);
    const int status = terminal.wait();
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(WTERMSIG(status), number);
    terminal.read(20000);
    QVERIFY(terminal.lines().value(0).startsWith("interrupted: " + m_path));
}

void TestProgress::referenceData_data()
{
    QTest::addColumn<QStringList>("command"); // FILE stands for a file with the content
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("table"); // that is locked for more than a second
    QTest::addColumn<QByteArray>("shown");
    QTest::addColumn<QString>("result");
    QByteArray csv;
    for (int i = 0; i < 50000; ++i)
        csv += "10." + QByteArray::number(i / 256) + '.' + QByteArray::number(i % 256) + ".0,10.255.255.255,DE\n";
    QTest::newRow("geoip-update") << QStringList { "geoip-update", "FILE" } << csv << "geo_country" << QByteArray("  0 lines")
                                  << "loaded 50000 country ranges (IP data by DB-IP, CC BY 4.0)";
    QByteArray days;
    for (int i = 1; i <= 31; ++i) // more than are sent at a time, with the statements before
        days += "{\"keys\": [\"2026-03-" + QByteArray::number(i).rightJustified(2, '0') + "\"]},";
    QByteArray details;
    for (int i = 0; i < 2000; ++i)
        details += "{\"keys\": [\"2026-03-01\", \"" + QByteArray::number(i) + "\", \"/\", \"deu\", \"mobile\"]},";
    const QByteArray json = "{\"totals\": [" + days.chopped(1) + "], \"rows\": [" + details.chopped(1) + "]}";
    QTest::newRow("import-gsc") << QStringList { "import-gsc", "example.org", "FILE" } << json << "search_days" << QByteArray("  0 rows")
                                << "example.org: 31 days (2026-03-01 to 2026-03-31), 2000 detail rows";
}

void TestProgress::referenceData()
{
    QFETCH(QStringList, command);
    QFETCH(QByteArray, content);
    QFETCH(QString, table);
    QFETCH(QByteArray, shown);
    QFETCH(QString, result);
    command.replaceInStrings("FILE", m_database->file("data", content));
    execute("BEGIN; LOCK vesk." + table);
    Terminal terminal(with(command));
    QTRY_COMPARE_WITH_TIMEOUT(value("SELECT count(*) FROM pg_locks WHERE NOT granted"), "1", 20000);
    terminal.read(1100);
    execute("COMMIT");
    QVERIFY(terminal.shows(shown));
    QVERIFY(terminal.shows(result.toLocal8Bit() + "\r\n"));
    QCOMPARE(terminal.wait(), 0);
    QCOMPARE(terminal.lines(), (QStringList { result, "" }));
}

/// Even when it is killed outright while gunzip waits for more.
void TestProgress::gunzipEndsWithTheProgram()
{
    const Fifo fifo(m_path + ".gz");
    prctl(PR_SET_CHILD_SUBREAPER, 1); // orphans become children of this process
    QProcess program;
    program.start(VESK_ADMIN, with({ "import-log", "example.org", m_path + ".gz" }));
    QVERIFY(program.waitForStarted());
    const auto id = QByteArray::number(program.processId());
    QFile children("/proc/" + id + "/task/" + id + "/children");
    pid_t gunzip = 0;
    const auto commandLine = [&gunzip] {
        QFile file(QStringLiteral("/proc/%1/cmdline").arg(gunzip));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    QTRY_VERIFY(children.open(QIODevice::ReadOnly) && (gunzip = children.readAll().trimmed().toInt(), children.close(), gunzip > 0));
    QTRY_VERIFY(commandLine().contains("gzip"));
    program.kill();
    QVERIFY(program.waitForFinished());
    siginfo_t ended {};
    QTRY_VERIFY(waitid(P_PID, static_cast<id_t>(gunzip), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 && ended.si_pid == gunzip);
    QCOMPARE(ended.si_code, CLD_KILLED);
    QCOMPARE(ended.si_status, SIGTERM);
}

QTEST_GUILESS_MAIN(TestProgress)
#include "tst_progress.moc"
