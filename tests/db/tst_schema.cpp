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
    void columns_data();
    void columns();
    void indexes();
    void foreignKeys();
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

void TestSchema::columns_data()
{
    QTest::addColumn<QString>("columns"); // "!" is NOT NULL, "+" an identity column
    const auto add = [](const char *table, const char *columns) { QTest::newRow(table) << QString::fromLatin1(columns); };
    add("schema_migrations", "version integer!, name text!, applied_at timestamptz! now()");
    add("users",
        "id integer!+, username text!, password_hash text!, role text!, disabled boolean! false, "
        "created_at timestamptz! now(), last_login_at timestamptz");
    add("sessions",
        "token_hash bytea!, user_id integer!, created_at timestamptz! now(), expires_at "
        "timestamptz!, "
        "ip inet, user_agent text");
    add("audit_log", "id bigint!+, at timestamptz! now(), user_id integer, action text!, detail jsonb, ip inet");
    add("host_samples",
        "at timestamptz! now(), load1 real, load5 real, load15 real, mem_total_kb bigint, "
        "mem_avail_kb bigint, "
        "disk_total_bytes bigint, disk_avail_bytes bigint, cpu_pct real, iowait_pct real, "
        "swap_total_kb bigint, "
        "swap_free_kb bigint, net_rx_bps real, net_tx_bps real, disk_read_bps real, disk_write_bps "
        "real, "
        "cpu_temp_c real, pg_connections integer, pg_tps real, apache_rps real, apache_bps real, "
        "apache_busy integer, apache_slots integer");
    add("settings", "key text!, value text!");
    add("sites", "id integer!+, host text!, name text!, created_at timestamptz! now()");
    add("log_sources",
        "id integer!+, site_id integer!, path text!, inode bigint, read_offset bigint! 0, "
        "updated_at timestamptz");
    add("hits",
        "id bigint!+, site_id integer!, at timestamptz!, method text!, path text!, status "
        "smallint!, "
        "bytes bigint, is_page boolean!, ip inet, visitor bytea!, session_id bigint!, country "
        "character(2), "
        "source_kind text!, source text, referrer text, search_terms text, device text, browser "
        "text, os text, "
        "bot text, engaged_secs real, response_us integer");
    add("geo_country", "ip_from inet!, ip_to inet!, country character(2)!");
    add("search_days",
        "site_id integer!, engine text!, day date!, clicks integer!, impressions integer!, "
        "position real!");
    add("search_rows",
        "site_id integer!, engine text!, day date!, query text!, page text!, country character(2), "
        "device text, clicks integer!, impressions integer!, position real!");
    add("country_codes", "alpha3 character(3)!, alpha2 character(2)!");
    add("rollup",
        "site_id integer!, day date!, scope text!, dim text!, key text!, n1 bigint! 0, n2 bigint! "
        "0, "
        "n3 bigint! 0, x double precision! 0");
    add("engine_accounts",
        "engine text!, account_email text, refresh_token text!, connected_at timestamptz! now(), "
        "last_sync_at timestamptz, last_result text");
    add("search_properties", "site_id integer!, engine text!, property text!");
    add("alerts",
        "id bigint!+, kind text!, subject text!, message text!, opened_at timestamptz! now(), "
        "closed_at timestamptz");
    add("accounts",
        "id integer!+, username text!, domain text!, site_id integer, status text! 'active'::text, "
        "php_version text, notes text! ''::text, created_at timestamptz! now(), suspended_at "
        "timestamptz, "
        "disk_limit_mb integer, disk_used_bytes bigint, disk_checked_at timestamptz, db_limit_mb "
        "integer, "
        "db_used_bytes bigint, db_readonly boolean! false");
    add("account_access", "user_id integer!, account_id integer!");
}

void TestSchema::columns()
{
    const QString actual = value(QStringLiteral("SELECT string_agg(attname || ' ' || replace(format_type(atttypid, "
                                                "atttypmod), 'timestamp with time zone', "
                                                "'timestamptz') || CASE WHEN attnotnull THEN '!' ELSE '' END || "
                                                "CASE attidentity WHEN 'a' THEN '+' ELSE '' END "
                                                "|| coalesce(' ' || pg_get_expr(adbin, adrelid), ''), ', ' ORDER BY "
                                                "attnum) FROM pg_attribute LEFT JOIN "
                                                "pg_attrdef ON adrelid = attrelid AND adnum = attnum WHERE attrelid "
                                                "= 'vesk.%1'::regclass AND attnum > 0")
                                     .arg(QString::fromLatin1(QTest::currentDataTag())));
    QTEST(actual, "columns");
}

void TestSchema::indexes()
{
    QStringList found = rows("SELECT tablename || '.' || indexname || regexp_replace(replace(indexdef, '::text', ''), '^CREATE (UNIQUE "
                             ")?INDEX .* USING btree', ' \\1') FROM pg_indexes WHERE schemaname = 'vesk'");
    found.sort();
    QCOMPARE(found,
        (QStringList {
            "account_access.account_access_account  (account_id)",
            "account_access.account_access_pkey UNIQUE  (user_id, account_id)",
            "accounts.accounts_domain_key UNIQUE  (domain)",
            "accounts.accounts_pkey UNIQUE  (id)",
            "accounts.accounts_username_key UNIQUE  (username)",
            "alerts.alerts_one_open UNIQUE  (kind, subject) WHERE (closed_at IS NULL)",
            "alerts.alerts_pkey UNIQUE  (id)",
            "audit_log.audit_log_at  (at)",
            "audit_log.audit_log_pkey UNIQUE  (id)",
            "country_codes.country_codes_pkey UNIQUE  (alpha3)",
            "engine_accounts.engine_accounts_pkey UNIQUE  (engine)",
            "geo_country.geo_country_pkey UNIQUE  (ip_from)",
            "hits.hits_pkey UNIQUE  (id)",
            "hits.hits_session  (session_id)",
            "hits.hits_site_at  (site_id, at)",
            "hits.hits_visitor  (visitor)",
            "host_samples.host_samples_pkey UNIQUE  (at)",
            "log_sources.log_sources_path_key UNIQUE  (path)",
            "log_sources.log_sources_pkey UNIQUE  (id)",
            "rollup.rollup_pkey UNIQUE  (site_id, day, scope, dim, key)",
            "schema_migrations.schema_migrations_pkey UNIQUE  (version)",
            "search_days.search_days_pkey UNIQUE  (site_id, engine, day)",
            "search_properties.search_properties_pkey UNIQUE  (site_id, engine)",
            "search_rows.search_rows_site_day  (site_id, engine, day)",
            "sessions.sessions_expires  (expires_at)",
            "sessions.sessions_pkey UNIQUE  (token_hash)",
            "settings.settings_pkey UNIQUE  (key)",
            "sites.sites_host_key UNIQUE  (host)",
            "sites.sites_pkey UNIQUE  (id)",
            "users.users_pkey UNIQUE  (id)",
            "users.users_username_ci UNIQUE  (lower(username))",
        }));
}

void TestSchema::foreignKeys()
{
    QCOMPARE(rows("SELECT conrelid::regclass || ' ' || replace(pg_get_constraintdef(oid), 'FOREIGN KEY ', '') FROM pg_constraint WHERE "
                  "contype = 'f' AND connamespace = 'vesk'::regnamespace ORDER BY 1"),
        (QStringList {
            "vesk.account_access (account_id) REFERENCES vesk.accounts(id) ON DELETE CASCADE",
            "vesk.account_access (user_id) REFERENCES vesk.users(id) ON DELETE CASCADE",
            "vesk.accounts (site_id) REFERENCES vesk.sites(id) ON DELETE SET NULL",
            "vesk.audit_log (user_id) REFERENCES vesk.users(id) ON DELETE SET NULL",
            "vesk.hits (site_id) REFERENCES vesk.sites(id) ON DELETE CASCADE",
            "vesk.log_sources (site_id) REFERENCES vesk.sites(id) ON DELETE CASCADE",
            "vesk.rollup (site_id) REFERENCES vesk.sites(id) ON DELETE CASCADE",
            "vesk.search_days (site_id) REFERENCES vesk.sites(id) ON DELETE CASCADE",
            "vesk.search_properties (site_id) REFERENCES vesk.sites(id) ON DELETE CASCADE",
            "vesk.search_rows (site_id) REFERENCES vesk.sites(id) ON DELETE CASCADE",
            "vesk.sessions (user_id) REFERENCES vesk.users(id) ON DELETE CASCADE",
        }));
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
