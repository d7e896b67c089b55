#include "support/Program.h"
#include "support/TestDatabase.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <utility>

namespace {

/// The arguments in \a line, split at blanks.
QStringList words(const char *line)
{
    return QString::fromUtf8(line).split(u' ', Qt::SkipEmptyParts);
}

QByteArray logLine(const QByteArray &path, int day = 10)
{
    return "192.0.2.1 - - [" + QByteArray::number(day) + "/Mar/2026:12:00:00 +0000] \"GET " + path + " HTTP/1.1\" 200 5 \"-\" \"UA\"\n";
}

} // namespace

class TestCli : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_database.reset(); }
    void usage_data();
    void usage();
    void migratesStepByStep();
    void aFailingScriptLeavesNothing();
    void records();
    void importsAndRollsUp();
    void streamsArchives();
    void failuresOfImportAndRollup();
    void users_data();
    void users();
    void referenceData();

private:
    /// Runs the program with the test database's configuration.
    Run admin(const QStringList &arguments, const QByteArray &input = {})
    {
        return runAdmin(QStringList { "-c", m_database->config() } + arguments, input);
    }

    std::unique_ptr<TestDatabase> m_database;
};

void TestCli::init()
{
    m_database = std::make_unique<TestDatabase>(TestDatabase::Empty);
    qunsetenv("VESK_CONFIG");
}

void TestCli::usage_data()
{
    QTest::addColumn<QString>("arguments"); // CONFIG and BROKEN stand for configuration files
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out"); // "help", or all of it
    QTest::addColumn<QString>("err"); // a part, or nothing
    const auto add = [](const char *name, const char *arguments, int status, const char *out, const char *err) {
        QTest::newRow(name) << QString::fromLatin1(arguments) << status << QString::fromLatin1(out) << QString::fromLatin1(err);
    };
    add("help", "--help", 0, "help", "");
    add("no configuration", "-c /nowhere.ini migrate", 1, "help", "config file not found: /nowhere.ini\n");
    add("no command", "-c CONFIG", 1, "help", "");
    add("no command, no database", "-c BROKEN", 1, "help", "");
    add("no database", "-c BROKEN frobnicate", 1, "", "database: ");
    add("unknown command", "-c CONFIG frobnicate", 1, "help", "");
    add("letter case", "-c CONFIG Migrate", 1, "help", "");
    add("unknown option", "-c CONFIG set KEY -1", 1, "", "Unknown option");
    add("option without value", "migrate -c", 1, "", "Missing value");
    add("add-site: one short", "-c CONFIG add-site host", 1, "help", "");
    add("add-log: one too many", "-c CONFIG add-log a b c", 1, "help", "");
    add("add-user: one too many", "-c CONFIG add-user a b", 1, "help", "");
    add("import-log: no file", "-c CONFIG import-log host", 1, "help", "");
    add("import-gsc: two files", "-c CONFIG import-gsc host a b", 1, "help", "");
    add("rollup: one too many", "-c CONFIG rollup host x", 1, "help", "");
    add("migrate: any number", "migrate now please --config CONFIG --role x", 0, "", "");
}

void TestCli::usage()
{
    QFETCH(QString, arguments);
    QFETCH(QString, out);
    QFETCH(QString, err);
    const QString broken = m_database->file("broken.ini", "[database]\nhost=/nowhere\n");
    arguments.replace("CONFIG", m_database->config()).replace("BROKEN", broken);
    const Run run = runAdmin(arguments.split(u' '));
    QTEST(run.status, "status");
    if (out == "help") {
        QVERIFY(run.out.startsWith("Usage: "));
        QVERIFY(run.out.contains("migrate | add-user NAME | add-site HOST NAME"));
    } else if (run.status != 0) {
        QCOMPARE(run.out, QByteArray());
    }
    if (err.isEmpty())
        QCOMPARE(run.err, QByteArray());
    else
        QVERIFY2(run.err.contains(err.toUtf8()), run.err.constData());
}

void TestCli::migratesStepByStep()
{
    const QStringList scripts = QDir(":/sql").entryList(QDir::Files, QDir::Name);
    QCOMPARE(scripts.size(), 11);
    QByteArray expected;
    for (const QString &script : scripts)
        expected += "applied " + script.toUtf8() + '\n';
    Run run = admin(words("migrate"));
    QCOMPARE(run.out, expected + "schema at version 11 (11 applied)\n");
    QCOMPARE(run.status, 0);
    run = admin(words("migrate"));
    QCOMPARE(run.out, QByteArray("schema at version 11 (0 applied)\n"));
    QCOMPARE(rows("SELECT name FROM vesk.schema_migrations ORDER BY version"), scripts);

    // A database at level 4 gets the rest.
    execute("DROP TABLE vesk.account_access, vesk.accounts, vesk.alerts, vesk.search_properties, vesk.engine_accounts; ALTER TABLE "
            "vesk.host_samples DROP cpu_pct, DROP iowait_pct, DROP swap_total_kb, DROP swap_free_kb, DROP net_rx_bps, DROP net_tx_bps, "
            "DROP disk_read_bps, DROP disk_write_bps, DROP cpu_temp_c, DROP pg_connections, DROP pg_tps, DROP apache_rps, DROP apache_bps, "
            "DROP apache_busy, DROP apache_slots; DELETE FROM vesk.schema_migrations WHERE version > 4");
    run = admin(words("migrate"));
    QVERIFY(run.out.startsWith("applied 005_google.sql\napplied 006_health.sql\n"));
    QVERIFY(run.out.endsWith("schema at version 11 (7 applied)\n"));
}

void TestCli::aFailingScriptLeavesNothing()
{
    // 006_health.sql alters vesk.host_samples before it creates vesk.alerts.
    execute("CREATE SCHEMA vesk; CREATE TABLE vesk.alerts ()");
    const Run run = admin(words("migrate"));
    QCOMPARE(run.status, 1);
    QVERIFY(run.out.endsWith("applied 005_google.sql\n"));
    QVERIFY2(run.err.startsWith("006_health.sql: ") && run.err.contains("\"alerts\" already exists"), run.err.constData());
    QCOMPARE(value("SELECT max(version) FROM vesk.schema_migrations"), "5");
    QCOMPARE(value("SELECT count(*) FROM information_schema.columns WHERE column_name = 'cpu_pct'"), "0");
    execute("DROP TABLE vesk.alerts");
    QVERIFY(admin(words("migrate")).out.endsWith("schema at version 11 (6 applied)\n"));

    execute("DROP TABLE vesk.schema_migrations; CREATE VIEW vesk.schema_migrations AS SELECT 1 AS version");
    const Run noted = admin(words("migrate"));
    QCOMPARE(noted.status, 1);
    QCOMPARE(noted.out, QByteArray());
    QVERIFY(noted.err.contains("001_initial.sql") || noted.err.contains("already exists"));
}

void TestCli::records()
{
    admin(words("migrate"));
    Run run = admin(words("add-site Example.ORG Name"));
    QCOMPARE(run.out, QByteArray("added site example.org\n"));
    run = admin(words("add-site EXAMPLE.org Name"));
    QCOMPARE(run.status, 1);
    QVERIFY(run.err.startsWith("sql: ") && run.err.contains("sites_host_key"));
    QCOMPARE(run.out, QByteArray());

    run = admin(words("add-log eXample.org logs/access.log"));
    QCOMPARE(run.out, QByteArray("vesk-collect will follow logs/access.log\n"));
    QCOMPARE(rows("SELECT site_id, path FROM vesk.log_sources"),
        QStringList(QStringLiteral("1|") + QDir::currentPath() + QStringLiteral("/logs/access.log")));
    QCOMPARE(admin(words("add-log example.org logs/access.log")).status, 1);
    run = admin(words("add-log Nowhere.org x"));
    QCOMPARE(run.err, QByteArray("unknown site Nowhere.org (add it with add-site)\n"));
    QCOMPARE(run.status, 1);

    run = admin({ "set", "key", "é'\\ \"" });
    QCOMPARE(run.out + run.err, QByteArray());
    QCOMPARE(value("SELECT value FROM vesk.settings WHERE key = 'key'"), "é'\\ \"");
    QCOMPARE(admin({ "set", "key", QString() }).status, 0);
    QCOMPARE(value("SELECT value FROM vesk.settings WHERE key = 'key'"), QString());
    QCOMPARE(admin(words("set key -- -1")).status, 0);
    QCOMPARE(value("SELECT value FROM vesk.settings WHERE key = 'key'"), "-1");
}

void TestCli::importsAndRollsUp()
{
    admin(words("migrate"));
    admin(words("add-site example.org Name"));
    const QString a = m_database->file("a.log", logLine("/a") + "junk\n\n" + logLine("/b", 11).chopped(1));
    const QString b = m_database->file("b.log", logLine("/c", 11) + logLine("/vesk-b?p=/c&t=0", 11));
    const QString none = a + QStringLiteral(".missing");
    Run run = admin({ "import-log", "Example.org", a, none, b });
    QCOMPARE(run.err, QByteArray());
    QCOMPARE(run.out,
        a.toUtf8() + ": 3 lines, 2 stored, 1 not log entries\n" + none.toUtf8() + ": 0 lines, 0 stored, 0 not log entries\n" + b.toUtf8()
            + ": 2 lines, 1 stored, 0 not log entries\nrolled up 2 days\n");
    QCOMPARE(run.status, 0);
    QCOMPARE(rows("SELECT day, n1 FROM vesk.rollup WHERE scope = 'all' AND dim = 'totals' AND key = 'pageviews' ORDER BY day"),
        (QStringList { "2026-03-10|1", "2026-03-11|2" }));

    execute("TRUNCATE vesk.rollup; INSERT INTO vesk.hits (site_id, at, method, path, status, is_page, visitor, session_id, source_kind) "
            "VALUES (1, '2026-03-12 00:00', 'GET', '/', 404, false, '', 9, 'direct')");
    run = admin(words("rollup EXAMPLE.org"));
    QCOMPARE(run.out, QByteArray("EXAMPLE.org: rolled up 3 days\n"));
    QCOMPARE(value("SELECT count(DISTINCT day) FROM vesk.rollup"), "3");

    admin(words("add-site empty.example Name"));
    QCOMPARE(admin(words("rollup empty.example")).out, QByteArray("empty.example: rolled up 0 days\n"));
}

/// An archive of many slices and its truncated copy: what can be decompressed is imported.
void TestCli::streamsArchives()
{
    admin(words("migrate"));
    admin(words("add-site example.org Name"));
    QByteArray log;
    for (int i = 0; i < 12001; ++i)
        log += logLine("/" + QByteArray::number(i * 7919 % 12001));
    const QString plain = m_database->file("a.log", log);
    QCOMPARE(QProcess::execute("gzip", { "-k", plain }), 0);
    QFile archive(plain + QStringLiteral(".gz"));
    QVERIFY(archive.open(QIODevice::ReadOnly));
    const QString half = m_database->file("half.gz", archive.read(archive.size() / 2));
    for (const QString &file : { plain, archive.fileName() }) {
        execute("TRUNCATE vesk.hits");
        QCOMPARE(admin({ "import-log", "example.org", file }).out,
            file.toUtf8() + ": 12001 lines, 12001 stored, 0 not log entries\nrolled up 1 days\n");
        QCOMPARE(value("SELECT count(DISTINCT path) FROM vesk.hits"), "12001");
    }
    const Run run = admin({ "import-log", "example.org", half });
    QCOMPARE(run.err, QByteArray());
    const int lines = run.out.mid(half.size() + 2).split(' ').at(0).toInt();
    QVERIFY(lines > 2000 && lines < 12001);
}

void TestCli::failuresOfImportAndRollup()
{
    admin(words("migrate"));
    for (const char *command : { "import-log no.example /dev/null", "rollup no.example" }) {
        const Run run = admin(words(command));
        QCOMPARE(run.err, QByteArray("unknown site no.example (add it with add-site)\n"));
        QCOMPARE(run.out, QByteArray());
        QCOMPARE(run.status, 1);
    }
    admin(words("add-site example.org Name"));
    execute("DELETE FROM vesk.settings WHERE key = 'visitor_secret'");
    Run run = admin(words("import-log example.org /dev/null"));
    QCOMPARE(run.out + run.err, QByteArray());
    QCOMPARE(run.status, 1);

    execute("ALTER TABLE vesk.hits RENAME TO gone");
    run = admin(words("rollup example.org"));
    QVERIFY2(run.err.startsWith("sql: ") && run.err.contains("\"vesk.hits\" does not exist"), run.err.constData());
    QCOMPARE(run.err.count("sql: "), 1);
    QCOMPARE(run.out, QByteArray("example.org: rolled up 0 days\n"));
    QCOMPARE(run.status, 0);
}

void TestCli::users_data()
{
    QTest::addColumn<QString>("arguments"); // after add-user
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("out"); // all of it on success
    QTest::addColumn<QByteArray>("err"); // the beginning
    QTest::newRow("maintainer") << "a" << QByteArray("123456789012\nrest\n") << QByteArray("created a (maintainer)\n") << QByteArray();
    QTest::newRow("customer") << "a --role customer" << QByteArray("123456789012") << QByteArray("created a (customer)\n") << QByteArray();
    QTest::newRow("a carriage return counts") << "a" << QByteArray("12345678901\r\n") << QByteArray("created a (maintainer)\n")
                                              << QByteArray();
    QTest::newRow("outside the BMP") << "a" << QByteArray("😀😀😀😀😀😀\n") << QByteArray("created a (maintainer)\n") << QByteArray();
    const QByteArray tooShort = "password must be at least 12 characters\n";
    QTest::newRow("11 characters") << "a" << QByteArray("12345678901\n") << QByteArray() << tooShort;
    QTest::newRow("up to a NUL") << "a" << QByteArray("1234\00056789012345\n", 16) << QByteArray() << tooShort;
    QTest::newRow("end of input") << "a" << QByteArray() << QByteArray() << tooShort;
    QTest::newRow("role") << "a --role Maintainer" << QByteArray() << QByteArray() << QByteArray("role must be maintainer or customer\n");
    QTest::newRow("name") << "a/b" << QByteArray("123456789012\n") << QByteArray() << QByteArray("sql: ");
}

void TestCli::users()
{
    QFETCH(QString, arguments);
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, err);
    admin(words("migrate"));
    const Run run = admin(QStringList("add-user") + arguments.split(u' '), input);
    QCOMPARE(run.out, out);
    QCOMPARE(run.status, out.isEmpty() ? 1 : 0);
    QVERIFY2(run.err.startsWith(err) && run.err.isEmpty() == err.isEmpty(), run.err.constData());
    QCOMPARE(value("SELECT count(*) FROM vesk.users").toInt(), 1 - run.status);
}

void TestCli::referenceData()
{
    admin(words("migrate"));
    admin(words("add-site a.example Name"));
    QByteArray csv;
    for (int i = 0; i < 1000; ++i)
        csv += "10.0." + QByteArray::number(i / 256) + '.' + QByteArray::number(i % 256) + ",10.0.9.9,DE\n";
    const QString ranges = m_database->file("ranges.csv", csv);
    Run run = admin({ "geoip-update", ranges, "ignored" });
    QCOMPARE(run.out, QByteArray("loaded 1000 country ranges (IP data by DB-IP, CC BY 4.0)\n"));
    QCOMPARE(run.status, 0);
    run = admin(words("geoip-update /nowhere.gz"));
    QCOMPARE(run.out, QByteArray("that does not look like a DB-IP country file\n"));
    QCOMPARE(run.status, 1);
    execute("ALTER TABLE vesk.geo_country ADD CHECK (country <> 'FR')");
    run = admin({ "geoip-update", m_database->file("fr.csv", csv.replace("DE", "FR")) });
    QCOMPARE(run.out, QByteArray("database error while loading\n"));
    QVERIFY(run.err.startsWith("sql: "));
    QCOMPARE(run.status, 1);
    QCOMPARE(value("SELECT count(*) FROM vesk.geo_country"), "1000");

    const QByteArray document = R"({"totals": [{"keys": ["2024-05-01"], "clicks": 1}]})";
    const QString plain = m_database->file("gsc.json", document);
    QCOMPARE(QProcess::execute("gzip", { "-k", plain }), 0);
    for (const QString &file : { plain, plain + QStringLiteral(".gz") }) {
        run = admin({ "import-gsc", "A.example", file });
        QCOMPARE(run.out, QByteArray("A.example: 1 days (2024-05-01 to 2024-05-01), 0 detail rows\n"));
        QCOMPARE(run.status, 0);
    }
    for (const char *broken : { "", "[1]", "{\"totals\": [", "no json" }) {
        run = admin({ "import-gsc", "a.example", m_database->file("broken.json", broken) });
        QCOMPARE(run.out, QByteArray("a.example: no daily totals in the data\n"));
        QCOMPARE(run.err, QByteArray());
        QCOMPARE(run.status, 1);
    }
    run = admin({ "import-gsc", "b.example", plain });
    QCOMPARE(run.err, QByteArray("unknown site b.example (add it with add-site)\n"));
    QCOMPARE(run.out, QByteArray());
}

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
