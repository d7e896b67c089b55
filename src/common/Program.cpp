#include "common/Program.h"

#include "common/Config.h"
#include "common/Db.h"
#include "common/FilePath.h"
#include "common/Output.h"
#include "common/Text.h"

#include <QFile>

namespace vesk {

namespace {

QtMessageHandler g_handler = nullptr; // the one before ours
bool g_saidLost = false; // that the connection is lost

void passOn(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (message.startsWith(QLatin1String("Unable to free statement"))
        || message.startsWith(QLatin1String("QSqlQuery::prepare: database not open")))
        return;
    const bool isStatement = message.startsWith(QLatin1String("sql: "));
    const bool isLost
        = isStatement && (message.startsWith(QLatin1String("sql: FATAL:")) || !db::isConnected());
    if (isLost && g_saidLost)
        return;
    if (isStatement)
        g_saidLost = isLost;
    g_handler(type, context, isLost ? message.section(u'\n', 0, 0) : message);
}

} // namespace

Program::Program(const char *name, int &argc, char **argv)
    : m_app((prepareOutput(), argc), argv)
{
    QCoreApplication::setApplicationName(QLatin1String(name));
    QCoreApplication::setApplicationVersion(QStringLiteral(VESK_VERSION));
    m_parser.addHelpOption();
    addConfigOption(m_parser);
}

bool Program::connect(const QString &path, Unreadable unreadable)
{
    QFile file;
    if (!openForReading(file, path)) {
        qCritical("the configuration %s cannot be read: %s; it should belong to root and the group "
                  "vesk with mode 640 (chown root:vesk FILE, chmod 640 FILE)",
            qPrintable(clean(path)), qPrintable(file.errorString()));
        if (unreadable == Unreadable::Refuse)
            return false;
    }
    m_settings = std::make_unique<QSettings>(filePath(path), QSettings::IniFormat);
    return db::open(*m_settings, QCoreApplication::applicationName());
}

void Program::leaveOutRepeats()
{
    g_handler = qInstallMessageHandler(passOn);
}

} // namespace vesk
