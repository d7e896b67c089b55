#include "support/Table.h"
#include "support/TestDatabase.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlError>
#include <QSqlQuery>

/// What other programs rely on: the rules that the database keeps, and what it comes with.
class TestSchema : public QObject
{
    Q_OBJECT

private slots:
    void init() { execute("BEGIN"); }
    void cleanup() { execute("ROLLBACK"); }

    void secretIsRandom()
    {
        const QString secret = value("SELECT value FROM vesk.settings WHERE key = 'visitor_secret'");
        QVERIFY(QRegularExpression("^[0-9a-f]{64}$").match(secret).hasMatch());
        QCOMPARE(rows("SELECT key, value FROM vesk.settings WHERE key <> 'visitor_secret'"), QStringList("raw_hit_days|90"));

        QFile script(":/sql/002_analytics.sql");
        QVERIFY(script.open(QIODevice::ReadOnly));
        execute("ALTER SCHEMA vesk RENAME TO before; CREATE SCHEMA vesk; " + script.readAll());
        QVERIFY(value("SELECT value FROM vesk.settings") != secret);
    }

    void countryCodesAreTheStandards()
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

    /// Rows for a table. What is expected is the rule that refuses them, or nothing.
    void rules_data()
    {
        const Table row;
        const QByteArray user = "users (password_hash, username, role) VALUES ('', ";
        row(user + "repeat('a', 64), 'customer')", "");
        row(user + "repeat('a', 65), 'customer')", "users_username_check");
        row(user + "'a b', 'customer')", "users_username_check");
        row(user + "'a', 'admin')", "users_role_check");
        row(user + "'abc', 'customer'), ('', 'ABC', 'maintainer')", "users_username_ci");
        row("sites (id, host, name) VALUES (7, 'h', 'n')", "GENERATED ALWAYS");
        const QByteArray account = "accounts (domain, username) VALUES ('d', ";
        row(account + "'a1b')", "");
        for (const char *name : { "ab", "abcdefghijklmnopq", "1abc", "aBc" })
            row(account + '\'' + name + "')", "accounts_username_check");
        row("accounts (domain, username, status, db_limit_mb) VALUES ('d', 'abcdefghijklmno9', 'suspended', 1)", "");
        row("accounts (domain, username, status) VALUES ('d', 'abc', 'x')", "accounts_status_check");
        row("accounts (domain, username, disk_limit_mb) VALUES ('d', 'abc', 0)", "accounts_disk_limit_mb_check");
        row("accounts (domain, username, db_limit_mb) VALUES ('d', 'abc', 0)", "accounts_db_limit_mb_check");
        const QByteArray alert = "alerts (message, kind, subject, closed_at) VALUES ('', 'disk', '/', NULL), ('', 'disk', ";
        row("an alert opens again", alert + "'/home', NULL), ('', 'disk', '/', now())", "");
        row("two open alerts", alert + "'/', NULL)", "alerts_one_open");
        row("search_rows SELECT 1, 'google', '2026-01-01', '', '', NULL, NULL, 0, 0, 0 FROM generate_series(1, 2)", "");
        row("rollup (site_id, day, scope, dim) VALUES (1, now(), '', '')", "null value");
    }

    void rules()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, expected);
        execute("INSERT INTO vesk.sites (id, host, name) OVERRIDING SYSTEM VALUE VALUES (1, 'a', '')");
        QSqlQuery q;
        const bool done = q.exec("INSERT INTO vesk." + text);
        QVERIFY2(done == expected.isEmpty() && q.lastError().text().contains(expected), qPrintable(q.lastError().text()));
    }

    void deletingCascades()
    {
        execute("INSERT INTO vesk.sites (host, name) VALUES ('h', ''); "
                "INSERT INTO vesk.users (username, password_hash, role) VALUES ('u', '', 'customer'); "
                "INSERT INTO vesk.sessions SELECT '', id, now(), now() FROM vesk.users; "
                "INSERT INTO vesk.audit_log (user_id, action) SELECT id, '' FROM vesk.users; "
                "INSERT INTO vesk.log_sources (site_id, path) SELECT id, '/' FROM vesk.sites; "
                "INSERT INTO vesk.accounts (username, domain, site_id) SELECT 'abc', 'd', id FROM vesk.sites; "
                "INSERT INTO vesk.account_access SELECT u.id, a.id FROM vesk.users u, vesk.accounts a; "
                "DELETE FROM vesk.sites; DELETE FROM vesk.users");
        QCOMPARE(rows("SELECT (SELECT count(*) FROM vesk.log_sources), (SELECT count(*) FROM vesk.sessions), "
                      "(SELECT count(*) FROM vesk.account_access), (SELECT user_id FROM vesk.audit_log), "
                      "(SELECT count(*) FROM vesk.audit_log), (SELECT count(*) FROM vesk.accounts WHERE site_id IS NULL)"),
            QStringList("0|0|0|-|1|1"));
    }

private:
    const TestDatabase m_database;
};

QTEST_GUILESS_MAIN(TestSchema)
#include "tst_schema.moc"
