#include "support/TestDatabase.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSqlError>
#include <QSqlQuery>
#include <QTest>

/// What other programs rely on: columns with types and defaults, and the rules that the database
/// keeps.
class TestSchema : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { m_database.reset(); }
    void init() { execute("BEGIN"); }
    void cleanup() { execute("ROLLBACK"); }
    void secretIsRandom();
    void countryCodesAreTheStandards();
    void accepts_data();
    void accepts();
    void refuses_data();
    void refuses();
    void deletingCascades();

private:
    std::unique_ptr<TestDatabase> m_database;
};

void TestSchema::initTestCase()
{
    m_database = std::make_unique<TestDatabase>();
}

void TestSchema::secretIsRandom()
{
    const QString secret = value("SELECT value FROM vesk.settings WHERE key = 'visitor_secret'");
    QVERIFY(QRegularExpression("^[0-9a-f]{64}$").match(secret).hasMatch());
    QCOMPARE(rows("SELECT key, value FROM vesk.settings WHERE key <> 'visitor_secret'"), QStringList("raw_hit_days|90"));

    QFile script(":/sql/002_analytics.sql");
    QVERIFY(script.open(QIODevice::ReadOnly));
    execute("ALTER SCHEMA vesk RENAME TO before; CREATE SCHEMA vesk");
    execute(QString::fromUtf8(script.readAll()));
    QVERIFY(value("SELECT value FROM vesk.settings") != secret);
}

void TestSchema::countryCodesAreTheStandards()
{
    QFile f("/usr/share/iso-codes/json/iso_3166-1.json");
    if (!f.open(QIODevice::ReadOnly))
        QSKIP("needs Debian's package iso-codes");
    QStringList standard;
    const QJsonArray countries = QJsonDocument::fromJson(f.readAll()).object().value("3166-1").toArray();
    for (const auto &country : countries)
        standard += country[u"alpha_3"].toString().toLower() + u'|' + country[u"alpha_2"].toString();
    standard.sort();
    QCOMPARE(standard.size(), 249);
    QCOMPARE(rows("SELECT alpha3, alpha2 FROM vesk.country_codes ORDER BY alpha3 COLLATE \"C\""), standard);
}

void TestSchema::accepts_data()
{
    QTest::addColumn<QString>("statement");
    const auto add = [](const char *name, const char *statement) { QTest::newRow(name) << QString::fromLatin1(statement); };
    add("user name of 64",
        "INSERT INTO vesk.users (username, password_hash, role) VALUES (repeat('a', 64), '', "
        "'customer')");
    add("account of 3", "INSERT INTO vesk.accounts (username, domain) VALUES ('a1b', 'd')");
    add("account of 16",
        "INSERT INTO vesk.accounts (username, domain, status) VALUES ('abcdefghijklmno9', 'd', "
        "'suspended')");
    add("no limits",
        "INSERT INTO vesk.accounts (username, domain, disk_limit_mb, db_limit_mb) VALUES ('abc', "
        "'d', NULL, 1)");
    add("a closed alert opens again",
        "INSERT INTO vesk.alerts (kind, subject, message, closed_at) VALUES ('disk', '/', '', "
        "now()), ('disk', '/', '', NULL), "
        "('disk', '/home', '', NULL)");
    add("detail rows repeat",
        "INSERT INTO vesk.sites (host, name) VALUES ('h', ''); INSERT INTO vesk.search_rows SELECT "
        "id, 'google', "
        "'2026-01-01', '', '', NULL, NULL, 0, 0, 0 FROM vesk.sites, generate_series(1, 2)");
}

void TestSchema::accepts()
{
    QFETCH(QString, statement);
    execute(statement);
}

void TestSchema::refuses_data()
{
    QTest::addColumn<QString>("statement");
    QTest::addColumn<QString>("reason");
    const auto add = [](const char *name, const char *statement, const char *reason) {
        QTest::newRow(name) << QString::fromLatin1(statement) << QString::fromLatin1(reason);
    };
    add("user names differ in case only",
        "INSERT INTO vesk.users (username, password_hash, role) VALUES ('abc', '', 'customer'), "
        "('ABC', '', 'customer')",
        "users_username_ci");
    add("user name of 65",
        "INSERT INTO vesk.users (username, password_hash, role) VALUES (repeat('a', 65), '', "
        "'customer')",
        "users_username_check");
    add("user name with a blank", "INSERT INTO vesk.users (username, password_hash, role) VALUES ('a b', '', 'customer')",
        "users_username_check");
    add("another role", "INSERT INTO vesk.users (username, password_hash, role) VALUES ('a', '', 'admin')", "users_role_check");
    add("identity", "INSERT INTO vesk.sites (id, host, name) VALUES (7, 'h', 'n')", "GENERATED ALWAYS");
    add("account of 2", "INSERT INTO vesk.accounts (username, domain) VALUES ('ab', 'd')", "accounts_username_check");
    add("account of 17", "INSERT INTO vesk.accounts (username, domain) VALUES ('abcdefghijklmnopq', 'd')", "accounts_username_check");
    add("account begins with a digit", "INSERT INTO vesk.accounts (username, domain) VALUES ('1abc', 'd')", "accounts_username_check");
    add("account in capitals", "INSERT INTO vesk.accounts (username, domain) VALUES ('aBc', 'd')", "accounts_username_check");
    add("another status", "INSERT INTO vesk.accounts (username, domain, status) VALUES ('abc', 'd', 'x')", "accounts_status_check");
    add("disk limit 0", "INSERT INTO vesk.accounts (username, domain, disk_limit_mb) VALUES ('abc', 'd', 0)",
        "accounts_disk_limit_mb_check");
    add("database limit 0", "INSERT INTO vesk.accounts (username, domain, db_limit_mb) VALUES ('abc', 'd', 0)",
        "accounts_db_limit_mb_check");
    add("two open alerts",
        "INSERT INTO vesk.alerts (kind, subject, message) VALUES ('disk', '/', ''), ('disk', '/', "
        "'')",
        "alerts_one_open");
    add("roll-up key NULL", "INSERT INTO vesk.rollup (site_id, day, scope, dim) VALUES (1, now(), '', '')", "null value");
}

void TestSchema::refuses()
{
    QFETCH(QString, statement);
    QFETCH(QString, reason);
    QSqlQuery q;
    QVERIFY(!q.exec(statement));
    QVERIFY2(q.lastError().text().contains(reason), qPrintable(q.lastError().text()));
}

void TestSchema::deletingCascades()
{
    execute("INSERT INTO vesk.sites (host, name) VALUES ('h', ''); INSERT INTO vesk.users (username, password_hash, role) VALUES ('u', '', "
            "'customer'); INSERT INTO vesk.sessions SELECT '', id, now(), now() FROM vesk.users; INSERT INTO vesk.audit_log (user_id, "
            "action) SELECT id, '' FROM vesk.users; INSERT INTO vesk.log_sources (site_id, path) SELECT id, '/' FROM vesk.sites; INSERT "
            "INTO vesk.accounts (username, domain, site_id) SELECT 'abc', 'd', id FROM vesk.sites; INSERT INTO vesk.account_access SELECT "
            "u.id, a.id FROM vesk.users u, vesk.accounts a; DELETE FROM vesk.sites; DELETE FROM vesk.users");
    QCOMPARE(value("SELECT (SELECT count(*) FROM vesk.log_sources) || ' ' || (SELECT count(*) FROM vesk.sessions) || ' ' || (SELECT "
                   "count(*) FROM vesk.account_access) || ' ' || (SELECT count(*) FROM vesk.audit_log WHERE user_id IS NULL) || ' ' || "
                   "(SELECT count(*) FROM vesk.accounts WHERE site_id IS NULL)"),
        "0 0 0 1 1");
}

QTEST_GUILESS_MAIN(TestSchema)
#include "tst_schema.moc"
