#include "common/Password.h"
#include "support/Table.h"

namespace password = vesk::password;

class TestPassword : public QObject
{
    Q_OBJECT

private slots:
    void hashesVerify()
    {
        const QString plain = "correct horse ü";
        const QStringList first = password::hash(plain).split(u'$');
        const QStringList second = password::hash(plain).split(u'$');
        QVERIFY(QRegularExpression(
            R"(^pbkdf2-sha256\$310000\$[A-Za-z0-9+/]{22}==\$[A-Za-z0-9+/]{43}=$)")
                    .match(first.join(u'$'))
                    .hasMatch());
        QVERIFY(first[2] != second[2] && first[3] != second[3]);
        QVERIFY(password::verify(plain, first.join(u'$')));
        QVERIFY(!password::verify(plain + u' ', first.join(u'$')));
    }

    /// With SALT and KEY as Python computed them: hashlib.pbkdf2_hmac('sha256',
    /// 'pässwörd 12345'.encode(), b'0123456789abcdef', 1000), and with dklen 31 and 33.
    void verifies_data()
    {
        const Table row;
        row("pbkdf2-sha256$1000$SALT==$KEY+I=", "true");
        row("pbkdf2-sha256$1000$ SALT$KEY+I=", "true"); // Base64 is read leniently
        row("PBKDF2-SHA256$1000$SALT==$KEY+I=", "false");
        row("pbkdf2-sha256$1000$SALT==$KEY+I=$", "false");
        row("pbkdf2-sha256$1000$SALT==", "false");
        row("first bits of the key differ",
            "pbkdf2-sha256$1000$SALT==$K7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U+I=", "false");
        for (const char *count : { "1001", "-1", "many", "4294968296" })
            row("pbkdf2-sha256$" + QByteArray(count) + "$SALT==$KEY+I=", "false");
        row("31 bytes", "pbkdf2-sha256$1000$SALT==$KEYw==", "false");
        row("33 bytes", "pbkdf2-sha256$1000$SALT==$KEY+Ly", "false");
        row("", "false");
    }

    void verifies()
    {
        QFETCH(QByteArray, text);
        text.replace("SALT", "MDEyMzQ1Njc4OWFiY2RlZg")
            .replace("KEY", "J7HfxlC+tq0OjprN9Pfd4r5VRE+ZpxjAytDSHMB2U");
        QTEST(QVariant(password::verify("pässwörd 12345", text)).toString(), "expected");
    }
};

QTEST_GUILESS_MAIN(TestPassword)
#include "tst_password.moc"
