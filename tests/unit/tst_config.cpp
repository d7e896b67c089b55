#include "common/Config.h"
#include "support/Table.h"

#include <QCommandLineParser>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

class TestConfig : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid() && QDir::setCurrent(m_folder.path()));
        for (const char *name : { "option.ini", "variable.ini" })
            QVERIFY(QFile(QString::fromLatin1(name)).open(QIODevice::WriteOnly));
        QVERIFY(QDir().mkdir("folder.ini"));
        QVERIFY(QFile::link("option.ini", "link.ini"));
        QVERIFY(QFile::link("missing.ini", "dangling.ini"));
    }
    void cleanupTestCase() { QDir::setCurrent(QDir::rootPath()); }
    void init() { QTest::failOnWarning(QRegularExpression(".*")); }

    void path_data()
    {
        const Table row; // of the arguments and, behind a bar, the variable when it is set
        const QString defaultPath = "/etc/hollowquarry/hollowquarry.ini";
        row("--config option.ini|variable.ini", "option.ini");
        row("-c missing.ini|variable.ini", "missing.ini");
        row("--config=|variable.ini", "variable.ini");
        row("migrate|missing.ini", "missing.ini");
        row("--config=|", defaultPath);
        row("migrate", defaultPath);
        row("-c ./folder.ini/../option.ini", "./folder.ini/../option.ini");
        row("-c link.ini", "link.ini");
        row("-c dangling.ini|variable.ini", "dangling.ini");
        row("migrate|folder.ini", "folder.ini");
        row("-c /dev/null|variable.ini", "/dev/null");
    }

    void path()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, expected);
        const QList<QByteArray> given = text.split('|');
        if (given.size() > 1)
            qputenv("VESK_CONFIG", given[1]);
        else
            qunsetenv("VESK_CONFIG");
        QCommandLineParser parser;
        vesk::addConfigOption(parser);
        QVERIFY(parser.parse(words("program " + given[0])));

        // A file that does not exist is a message and no path, and no other file is tried.
        const bool exists = QFileInfo(expected).isFile();
        if (!exists)
            QTest::ignoreMessage(QtCriticalMsg, "config file not found: " + expected.toLocal8Bit());
        QCOMPARE(vesk::configPath(parser), exists ? expected : QString());
    }

private:
    QTemporaryDir m_folder;
};

QTEST_GUILESS_MAIN(TestConfig)
#include "tst_config.moc"
