#include "support/LogLines.h"
#include "support/Program.h"
#include "support/Table.h"
#include "support/TestDatabase.h"

#include <QDir>
#include <QFile>
#include <QProcess>

namespace {

QByteArray request(const QByteArray &path, const QByteArray &day = "10")
{
    return logLine("192.0.2.1", day + "/12:00:00 +0000", "\"GET " + path + " HTTP/1.1\" 200 5 \"-\" \"UA\"\n");
}

const QString kUnknown = "1||unknown site No.example (add it with add-site)\n";

const QString kRefuse = "CREATE FUNCTION pg_temp.refuse() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN RAISE 'not now'; END $$;";

} // namespace

class TestCli : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_database = std::make_unique<TestDatabase>();
        execute("INSERT INTO vesk.sites (host, name) VALUES ('example.org', '')");
        qunsetenv("VESK_CONFIG");
    }
    void cleanup() { m_database.reset(); }

    void usage_data()
    {
        const Table row; // CONFIG and BROKEN are configuration files; the status and the help or a part of the error output are expected
        row("--help", "0 help");
        row("-c /nowhere.ini migrate", "1 help after config file not found: /nowhere.ini\n");
        row("-c CONFIG", "1 help");
        row("-c BROKEN", "1 help");
        row("-c BROKEN frobnicate", "1 database: ");
        for (const char *wrong : { "frobnicate", "Migrate", "add-site host", "add-log a b c", "add-user a b", "import-log host",
                 "import-gsc host a b", "rollup host x" })
            row("-c CONFIG " + QByteArray(wrong), "1 help");
        row("-c CONFIG set KEY -1", "1 Unknown option");
        row("migrate -c", "1 Missing value");
        row("migrate now please --config CONFIG --role x", "0 ");
    }

    void usage()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, expected);
        const QString broken = m_database->file("broken.ini", "[database]\nhost=/nowhere\n");
        const Run run = runAdmin(words(text.replace("CONFIG", m_database->config().toUtf8()).replace("BROKEN", broken.toUtf8())));
        QCOMPARE(QString::number(run.status), expected.section(u' ', 0, 0));
        const bool help = run.out.startsWith("Usage: ") && run.out.contains("migrate | add-user NAME | add-site HOST NAME");
        QCOMPARE(help, expected.contains(" help"));
        QVERIFY(help || run.out.isEmpty() || run.status == 0);
        const QString error = expected.section(u' ', 1).remove(QRegularExpression("^help( after )?"));
        QVERIFY2(error.isEmpty() ? run.err.isEmpty() : run.err.contains(error.toUtf8()), run.err.constData());
    }

    void migratesStepByStep()
    {
        startEmpty();
        const QStringList scripts = QDir(":/sql").entryList(QDir::Files, QDir::Name);
        QCOMPARE(scripts.size(), 11);
        QCOMPARE(admin("migrate"), "0|applied " + scripts.join("\napplied ") + "\nschema at version 11 (11 applied)\n|");
        QCOMPARE(admin("migrate"), "0|schema at version 11 (0 applied)\n|");
        QCOMPARE(rows("SELECT name FROM vesk.schema_migrations ORDER BY version"), scripts);
    }

    void aFailingScriptLeavesNothing()
    {
        // 006_health.sql alters vesk.host_samples before it creates vesk.alerts.
        startEmpty();
        execute("CREATE SCHEMA vesk; CREATE TABLE vesk.alerts ()");
        const QString failed = admin("migrate");
        QVERIFY2(failed.startsWith("1|applied 001_") && failed.contains("5_google.sql\n|006_health.sql: "), qPrintable(failed));
        QVERIFY(failed.contains("\"alerts\" already exists"));
        QCOMPARE(value("SELECT max(version) FROM vesk.schema_migrations"), "5");
        QCOMPARE(value("SELECT count(*) FROM information_schema.columns WHERE column_name = 'cpu_pct'"), "0");
        execute("DROP TABLE vesk.alerts");
        const QString rest = admin("migrate");
        QVERIFY(rest.startsWith("0|applied 006_health.sql\n") && rest.endsWith("schema at version 11 (6 applied)\n|"));

        startEmpty();
        execute("CREATE SCHEMA vesk; CREATE TABLE vesk.schema_migrations (version integer PRIMARY KEY, name text NOT NULL);" + kRefuse
            + "CREATE CONSTRAINT TRIGGER late AFTER INSERT ON vesk.schema_migrations DEFERRABLE INITIALLY DEFERRED "
              "FOR EACH ROW EXECUTE FUNCTION pg_temp.refuse()");
        QCOMPARE(admin("migrate"), "1||sql: ERROR:  not now"); // when the commit comes
        QCOMPARE(value("SELECT to_regclass('vesk.users')"), "-");

        startEmpty();
        execute("CREATE SCHEMA vesk; CREATE VIEW vesk.schema_migrations AS SELECT 0 AS version"); // which takes no notes
        const QString noted = admin("migrate");
        QVERIFY(noted.startsWith("1||sql: "));
        QCOMPARE(value("SELECT count(*) FROM information_schema.tables WHERE table_schema = 'vesk'"), "1");
    }

    void records()
    {
        QCOMPARE(admin("add-site Example.COM Name"), "0|added site example.com\n|");
        QCOMPARE(admin("add-site EXAMPLE.com Name"), "1||sql: ERROR:  duplicate key value violates unique constraint \"sites_host_key\"");
        QCOMPARE(rows("SELECT * FROM (SELECT host, name FROM vesk.sites) s").last(), "example.com|Name");

        QCOMPARE(admin("add-log eXample.org logs/access.log"), "0|vesk-collect will follow logs/access.log\n|");
        QCOMPARE(rows("SELECT site_id, path FROM vesk.log_sources"), QStringList("1|" + QDir::currentPath() + "/logs/access.log"));
        QCOMPARE(admin("add-log example.org logs/access.log"),
            "1||sql: ERROR:  duplicate key value violates unique constraint \"log_sources_path_key\"");

        const std::pair<QStringList, QString> settings[]
            = { { { "é'\\ \"" }, "é'\\ \"" }, { { QString() }, "" }, { { "--", "-1" }, "-1" } };
        for (const auto &[arguments, stored] : settings) {
            QCOMPARE(admin(QStringList { "set", "key" } + arguments), "0||");
            QCOMPARE(value("SELECT value FROM vesk.settings WHERE key = 'key'"), stored);
        }
    }

    void importsAndRollsUp()
    {
        const QString a = m_database->file("a.log", request("/a") + "junk\n\n" + request("/b", "11").chopped(1));
        const QString b = m_database->file("b.log", request("/c", "11") + request("/vesk-b?p=/c&t=0", "11"));
        const QString none = a + ".missing";
        QCOMPARE(admin({ "import-log", "Example.org", a, none, b }),
            "0|" + a + ": 3 lines, 2 stored, 1 not log entries\n" + none + ": 0 lines, 0 stored, 0 not log entries\n" + b
                + ": 2 lines, 1 stored, 0 not log entries\nrolled up 2 days\n|");
        QCOMPARE(rows("SELECT day, n1 FROM vesk.rollup WHERE scope = 'all' AND dim = 'totals' AND key = 'pageviews' ORDER BY day"),
            (QStringList { "2026-03-10|1", "2026-03-11|2" }));

        execute(
            "TRUNCATE vesk.rollup; INSERT INTO vesk.hits (site_id, at, method, path, status, is_page, visitor, session_id, source_kind) "
            "VALUES (1, '2026-03-12 00:00', 'GET', '/', 404, false, '', 9, 'direct')");
        QCOMPARE(admin("rollup EXAMPLE.org"), "0|EXAMPLE.org: rolled up 3 days\n|");
        QCOMPARE(value("SELECT count(DISTINCT day) FROM vesk.rollup"), "3");
    }

    /// An archive of many slices and its truncated copy: what can be decompressed is imported.
    void streamsArchives()
    {
        QByteArray log;
        for (int i = 0; i < 12001; ++i)
            log += request("/" + QByteArray::number(i * 7919 % 12001));
        const QString plain = m_database->file("a.log", log);
        QCOMPARE(QProcess::execute("gzip", { plain }), 0);
        QFile archive(plain + ".gz");
        QVERIFY(archive.open(QIODevice::ReadOnly));
        QCOMPARE(admin({ "import-log", "example.org", archive.fileName() }),
            "0|" + archive.fileName() + ": 12001 lines, 12001 stored, 0 not log entries\nrolled up 1 days\n|");
        QCOMPARE(value("SELECT count(DISTINCT path) FROM vesk.hits"), "12001");
        const QString half = m_database->file("half.gz", archive.read(archive.size() / 2));
        const QString run = admin({ "import-log", "example.org", half });
        QVERIFY(run.startsWith("0|") && run.endsWith("\n|"));
        const int lines = run.mid(half.size() + 4).section(u' ', 0, 0).toInt();
        QVERIFY(lines > 2000 && lines < 12001);
    }

    /// A colon in front of a name means nothing, and an empty name no file.
    void oddFileNames()
    {
        const QString folder = QFileInfo(m_database->config()).path();
        const QString before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(folder) && QFile::copy("vesk.ini", "./:c"));
        m_database->file("./:a", request("/a"));
        m_database->file("./:gsc", R"({"totals": [{"keys": ["2024-05-01"]}]})");
        m_database->file("./:csv", "10.0.0.0,10.0.9.9,DE\n" + QByteArray(1000, '\n'));
        const std::pair<QStringList, QString> table[]
            = { { { "import-log", "example.org", ":a", "" },
                    "0|:a: 1 lines, 1 stored, 0 not log entries\n: 0 lines, 0 stored, 0 not log entries\nrolled up 1 days\n|" },
                  { { "import-gsc", "example.org", ":gsc" }, "0|example.org: 1 days (2024-05-01 to 2024-05-01), 0 detail rows\n|" },
                  { { "import-gsc", "example.org", "" }, "1|example.org: no daily totals in the data\n|" },
                  { { "geoip-update", ":csv" }, "0|loaded 1 country ranges (IP data by DB-IP, CC BY 4.0)\n|" },
                  { { "add-log", "example.org", ":log" }, "0|vesk-collect will follow :log\n|" },
                  { { "add-log", "example.org", "" }, "1||the path of a log must not be empty\n" } };
        for (const auto &[arguments, expected] : table) {
            const Run run = runAdmin(QStringList { "-c", ":c" } + arguments);
            QCOMPARE(joined({ QString::number(run.status), run.out, run.err }), expected);
        }
        QCOMPARE(value("SELECT path FROM vesk.log_sources"), folder + "/:log");
        QVERIFY(QDir::setCurrent(before));
    }

    void unknownSitesAreTold()
    {
        for (const char *command :
            { "add-log No.example x", "import-log No.example /dev/null", "rollup No.example", "import-gsc No.example x" })
            QCOMPARE(admin(command), kUnknown);
    }

    void failuresOfImportAndRollup()
    {
        execute("DELETE FROM vesk.settings WHERE key = 'visitor_secret'");
        QCOMPARE(admin("import-log example.org /dev/null"), "1||");
        execute("ALTER TABLE vesk.hits RENAME TO gone");
        QCOMPARE(admin("rollup example.org"), "0|example.org: rolled up 0 days\n|sql: ERROR:  relation \"vesk.hits\" does not exist");
    }

    void users_data()
    {
        const Table row; // of the arguments and, behind a bar, the input
        row("a|123456789012\nrest\n", "0|created a (maintainer)\n|");
        row("a --role customer|123456789012", "0|created a (customer)\n|");
        row("a carriage return counts", "a|12345678901\r\n", "0|created a (maintainer)\n|");
        row("outside the BMP", "a|😀😀😀😀😀😀\n", "0|created a (maintainer)\n|");
        const QString tooShort = "1||password must be at least 12 characters\n";
        row("a|12345678901\n", tooShort);
        row("up to a NUL", QByteArray("a|1234\00056789012345\n", 18), tooShort);
        row("a|", tooShort);
        row("a --role Maintainer|", "1||role must be maintainer or customer\n");
        row("a/b|123456789012\n", "1||sql: ERROR:  new row for relation \"users\" violates check constraint \"users_username_check\"");
    }

    void users()
    {
        QFETCH(QByteArray, text);
        const QList<QByteArray> given = text.split('|');
        const QString run = admin(words("add-user " + given[0]), given[1]);
        QTEST(run, "expected");
        QCOMPARE(value("SELECT count(*) FROM vesk.users"), run.startsWith("0|") ? "1" : "0");
    }

    void referenceData()
    {
        QByteArray csv;
        for (int i = 0; i < 1000; ++i)
            csv += "10.0." + QByteArray::number(i / 256) + '.' + QByteArray::number(i % 256) + ",10.0.9.9,DE\n";
        QCOMPARE(admin({ "geoip-update", m_database->file("ranges.csv", csv), "ignored" }),
            "0|loaded 1000 country ranges (IP data by DB-IP, CC BY 4.0)\n|");
        execute(kRefuse + "CREATE TRIGGER t BEFORE TRUNCATE ON vesk.geo_country EXECUTE FUNCTION pg_temp.refuse()");
        QCOMPARE(admin({ "geoip-update", m_database->file("again.csv", csv) }), "1|database error while loading\n|sql: ERROR:  not now");
        QCOMPARE(admin("geoip-update /nowhere.gz"), "1|that does not look like a DB-IP country file\n|");
        QCOMPARE(value("SELECT count(*) FROM vesk.geo_country"), "1000");

        const QString plain = m_database->file("gsc.json", R"({"totals": [{"keys": ["2024-05-01"], "clicks": 1}]})");
        QCOMPARE(QProcess::execute("gzip", { "-k", plain }), 0);
        for (const QString &file : { plain, plain + ".gz" })
            QCOMPARE(admin({ "import-gsc", "Example.org", file }), "0|Example.org: 1 days (2024-05-01 to 2024-05-01), 0 detail rows\n|");
        for (const char *broken : { "", "[1]", "{\"totals\": [", "no json" })
            QCOMPARE(admin({ "import-gsc", "example.org", m_database->file("broken.json", broken) }),
                "1|example.org: no daily totals in the data\n|");
    }

private:
    void startEmpty()
    {
        m_database.reset();
        m_database = std::make_unique<TestDatabase>(TestDatabase::Empty);
    }

    /// Runs the program with the test database's configuration: the status and both outputs, of a
    /// database error only the first line.
    QString admin(const QStringList &arguments, const QByteArray &input = {})
    {
        const Run run = runAdmin(QStringList { "-c", m_database->config() } + arguments, input);
        const QString error = run.err.startsWith("sql: ") ? run.err.left(run.err.indexOf('\n')) : run.err;
        return joined({ QString::number(run.status), run.out, error });
    }
    QString admin(const char *line) { return admin(words(line)); }

    std::unique_ptr<TestDatabase> m_database;
};

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
