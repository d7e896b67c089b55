#include "common/Password.h"

#include <QRegularExpression>
#include <QTest>

namespace password = vesk::password;

class TestPassword : public QObject
{
    Q_OBJECT

private slots:
    void hashesVerify();
    void verifies_data();
    void verifies();
};

void TestPassword::hashesVerify()
{
    const QString plain = "correct horse ü";
    const QString first = password::hash(plain);
    const QString second = password::hash(plain);
    QVERIFY(QRegularExpression(R"(^pbkdf2-sha256\$310000\$[A-Za-z0-9+/]{22}==\$[A-Za-z0-9+/]{43}=$)").match(first).hasMatch());
    QVERIFY(first.section(u'$', 2, 2) != second.section(u'$', 2, 2));
    QVERIFY(first.section(u'$', 3, 3) != second.section(u'$', 3, 3));
    QVERIFY(password::verify(plain, first));
    QVERIFY(!password::verify(plain + u' ', first));
}

/// Keys from Python: hashlib.pbkdf2_hmac('sha256', 'pässwörd 12345'.encode(), b'0123456789abcdef',
/// 1000), and with dklen 31 and 33.
void TestPassword::verifies_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<bool>("expected");
    const auto add
        = [](const char *name, const char *stored, bool expected) { QTest::newRow(name) << QString::fromLatin1(stored) << expected; };
    add("as computed elsewhere", "pbkdf2-sha256$1000$MDEyMzQ1Njc4OWFiY2RlZg==$J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U+I=", true);
    add("Base64 read leniently", "pbkdf2-sha256$1000$MDEy MzQ1Njc4OWFiY2RlZg$J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U+I=", true);
    add("another count", "pbkdf2-sha256$1001$MDEyMzQ1Njc4OWFiY2RlZg==$J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U+I=", false);
    add("tag in capitals", "PBKDF2-SHA256$1000$MDEyMzQ1Njc4OWFiY2RlZg==$J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U+I=", false);
    add("fifth field", "pbkdf2-sha256$1000$MDEyMzQ1Njc4OWFiY2RlZg==$J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U+I=$", false);
    add("three fields", "pbkdf2-sha256$1000$MDEyMzQ1Njc4OWFiY2RlZg==", false);
    add("count 0", "pbkdf2-sha256$0$MDEyMzQ1Njc4OWFiY2RlZg==$J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U+I=", false);
    add("count -1", "pbkdf2-sha256$-1$MDEyMzQ1Njc4OWFiY2RlZg==$J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U+I=", false);
    add("count in letters", "pbkdf2-sha256$many$MDEyMzQ1Njc4OWFiY2RlZg==$J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U+I=", false);
    add("count beyond 32 bits",
        "pbkdf2-sha256$4294968296$MDEyMzQ1Njc4OWFiY2RlZg==$J7HfxlC+tq0OjprN9Pfd4r5VRE+"
        "ZpxjAytDSHMB2U+I=",
        false);
    add("key of 31 bytes", "pbkdf2-sha256$1000$MDEyMzQ1Njc4OWFiY2RlZg==$J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2Uw==", false);
    add("key of 33 bytes", "pbkdf2-sha256$1000$MDEyMzQ1Njc4OWFiY2RlZg==$J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U+Ly", false);
    add("empty", "", false);
}

void TestPassword::verifies()
{
    QFETCH(QString, stored);
    QTEST(password::verify("pässwörd 12345", stored), "expected");
}

QTEST_GUILESS_MAIN(TestPassword)
#include "tst_password.moc"
