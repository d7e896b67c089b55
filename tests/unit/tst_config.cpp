#include "common/Config.h"

#include <QCommandLineParser>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

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
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("variable"); // null: not set
        QTest::addColumn<QString>("chosen");
        const auto row = [](const char *name, const char *arguments, const char *variable, const char *chosen) {
            QTest::newRow(name) << QString::fromLatin1(arguments).split(u' ') << QByteArray(variable) << chosen;
        };
        const char *defaultPath = "/etc/hollowquarry/hollowquarry.ini";
        row("option", "--config option.ini", "variable.ini", "option.ini");
        row("short option", "-c option.ini", "variable.ini", "option.ini");
        row("missing option file", "-c missing.ini", "variable.ini", "missing.ini");
        row("empty option", "--config=", "variable.ini", "variable.ini");
        row("variable", "migrate", "variable.ini", "variable.ini");
        row("missing variable file", "migrate", "missing.ini", "missing.ini");
        row("empty option and variable", "--config=", "", defaultPath);
        row("default", "migrate", nullptr, defaultPath);
        row("path is not tidied", "-c ./folder.ini/../option.ini", "", "./folder.ini/../option.ini");
        row("link", "-c link.ini", "", "link.ini");
        row("dangling link", "-c dangling.ini", "variable.ini", "dangling.ini");
        row("directory", "migrate", "folder.ini", "folder.ini");
        row("device", "-c /dev/null", "variable.ini", "/dev/null");
    }

    void path()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, variable);
        QFETCH(QString, chosen);
        if (variable.isNull())
            qunsetenv("VESK_CONFIG");
        else
            qputenv("VESK_CONFIG", variable);
        QCommandLineParser parser;
        vesk::addConfigOption(parser);
        QVERIFY(parser.parse(QStringList { "program" } + arguments));

        // A file that does not exist is a message and no path, and no other file is tried.
        const bool exists = QFileInfo(chosen).isFile();
        if (!exists)
            QTest::ignoreMessage(QtCriticalMsg, "config file not found: " + chosen.toLocal8Bit());
        QCOMPARE(vesk::configPath(parser), exists ? chosen : QString());
    }

private:
    QTemporaryDir m_folder;
};

QTEST_GUILESS_MAIN(TestConfig)
#include "tst_config.moc"
