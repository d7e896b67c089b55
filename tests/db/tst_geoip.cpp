#include "analytics/GeoIp.h"
#include "analytics/Ingest.h"
#include "support/LogLines.h"
#include "support/Table.h"
#include "support/TestDatabase.h"

#include <QDate>
#include <QProcess>

using vesk::analytics::geoIpIsStale;
using vesk::analytics::updateGeoIp;

namespace {

const QString kRefusal = "that does not look like a DB-IP country file";

/// \a count ranges of 256 addresses with gaps of the same size between them.
QByteArray ranges(int count)
{
    QByteArray csv;
    for (int i = 0; i < count; ++i) {
        const QByteArray net
            = "10." + QByteArray::number(i / 128) + '.' + QByteArray::number(i % 128 * 2);
        csv += net + ".0," + net + ".255," + (i % 2 ? "DE" : "FR") + '\n';
    }
    return csv;
}

QString loaded(const QString &count)
{
    return QStringLiteral("loaded %1 country ranges (IP data by DB-IP, CC BY 4.0)").arg(count);
}

} // namespace

class TestGeoIp : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        execute("TRUNCATE vesk.geo_country; DELETE FROM vesk.settings WHERE key = 'geoip_month'; "
                "INSERT INTO vesk.geo_country VALUES ('1.0.0.0', '1.0.0.255', 'AU')");
    }

    void loads_data()
    {
        const Table row; // the ranges told and those stored are expected
        row("the fewest lines", ranges(999), "999 999");
        row("no last line feed", ranges(1000).chopped(1), "1000 1000");
        row("several statements, CRLF", ranges(2500).replace("\n", "\r\n"), "2500 2500");
        row("same first address", ranges(1000) + "10.0.0.0,10.0.0.9,XX\n", "1001 1000");
        row("passed over",
            ranges(1000) + "11.0.0.0,11.0.0.1,ZZ\n11.0.0.0,11.0.0.1,USA\n11.0.0.0,11.0.0.1\n\n,,\n",
            "1000 1000");
        row("further fields, IPv6", ranges(1000) + " 2001:db8::,2001:db8:ffff::,US,x,y \n",
            "1001 1001");
        row("one usable line", QByteArray(1500, '\n') + "11.0.0.0,11.0.0.1,US", "1 1");
    }

    void loads()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, expected);
        QVERIFY(geoIpIsStale());
        bool ok = false;
        QCOMPARE(updateGeoIp(m_database.file("ranges.csv", text), &ok),
            loaded(expected.section(u' ', 0, 0)));
        QVERIFY(ok);
        QCOMPARE(value("SELECT count(*) FROM vesk.geo_country"), expected.section(u' ', 1));
        QCOMPARE(value("SELECT count(*) FROM vesk.geo_country WHERE country = 'AU'"), "0");
        QCOMPARE(value("SELECT value FROM vesk.settings WHERE key = 'geoip_month'"),
            QDate::currentDate().toString("yyyy-MM"));
        QVERIFY(!geoIpIsStale());
        execute("UPDATE vesk.settings SET value = '2020-01' WHERE key = 'geoip_month'");
        QVERIFY(geoIpIsStale());
    }

    void refuses_data()
    {
        const Table row; // the cause is expected, once, however many statements were on their way
        row("too few lines", ranges(999).chopped(1), "");
        row("", "");
        row("no usable line", ranges(1000).replace("DE", "ZZ").replace("FR", "ZZ"), "");
        row("no address", ranges(1000) + "first,last,US\n", "\"first\"");
        row("address with a NUL", ranges(5000).replace("10.0.2.0", QByteArray("10.0.2.0\0", 9)),
            "10.0.2.0");
    }

    void refuses()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, expected);
        if (!expected.isEmpty())
            ignoreWarning("^sql: .*invalid.*" + expected);
        bool ok = true;
        QCOMPARE(updateGeoIp(m_database.file("ranges.csv", text), &ok),
            expected.isEmpty() ? kRefusal : "database error while loading");
        QVERIFY(!ok && geoIpIsStale());
        QCOMPARE(rows("TABLE vesk.geo_country"), QStringList("1.0.0.0|1.0.0.255|AU"));
    }

    void archivesMustBeWhole()
    {
        QProcess gzip;
        gzip.start("gzip", { "-c", m_database.file("plain.csv", ranges(20000)) });
        QVERIFY(gzip.waitForFinished());
        const QByteArray whole = gzip.readAllStandardOutput();
        bool ok = false;
        for (const QByteArray &damaged :
            { whole.chopped(8), whole.first(whole.size() / 2), QByteArray("no archive") }) {
            QCOMPARE(updateGeoIp(m_database.file("ranges.csv.gz", damaged), &ok), kRefusal);
            QVERIFY(!ok);
        }
        QCOMPARE(updateGeoIp("/nowhere.csv", &ok), kRefusal);
        QCOMPARE(rows("TABLE vesk.geo_country"), QStringList("1.0.0.0|1.0.0.255|AU"));
        QCOMPARE(updateGeoIp(m_database.file("ranges.csv.gz", whole + QByteArray(512, '\0')), &ok),
            loaded("20000"));
    }

    void importsFindTheCountry()
    {
        const QByteArray more = "11.0.0.0,11.0.0.7,US\n11.0.0.8,11.0.0.9,CA\n"
                                "2001:db8::,2001:db8:ffff::,JP\n";
        bool ok = false;
        updateGeoIp(m_database.file("ranges.csv", ranges(1000) + more), &ok);
        QVERIFY(ok);
        const QStringList expected = words(
            "0.0.0.0=- 9.255.255.255=- 10.0.0.0=FR 10.0.0.255=FR 10.0.1.0=- 10.0.1.255=- "
            "10.0.2.0=DE 10.0.2.128=DE 10.7.206.255=DE 10.7.207.0=- 11.0.0.7=US 11.0.0.8=CA "
            "11.0.0.9=CA 11.0.0.10=- 255.255.255.255=- ::1=- ::ffff:10.0.0.5=- 2001:db8::=JP "
            "2001:db8:1::5=JP 2001:db8:ffff::=JP 2001:db8:ffff::1=- name=-");
        QList<QByteArray> lines;
        for (const QString &pair : expected)
            lines += logLine(pair.section(u'=', 0, 0).toLatin1());
        lines += lines + QList<QByteArray>(5000, QByteArray()) + lines; // of two slices
        execute("INSERT INTO vesk.sites (host, name) VALUES ('example.org', '')");
        importLines(lines);
        QCOMPARE(rows("SELECT coalesce(country, '-') FROM vesk.hits ORDER BY id"),
            QStringList(expected + expected + expected)
                .replaceInStrings(QRegularExpression(".*="), ""));
    }

private:
    const TestDatabase m_database;
};

QTEST_GUILESS_MAIN(TestGeoIp)
#include "tst_geoip.moc"
