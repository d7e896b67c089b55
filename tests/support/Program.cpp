#include "support/Program.h"

#include <QProcess>

Run runAdmin(const QStringList &arguments, const QByteArray &input)
{
    QProcess program;
    program.start(QStringLiteral(VESK_ADMIN), arguments);
    program.write(input);
    program.closeWriteChannel();
    program.waitForFinished(-1);
    return { program.exitStatus() == QProcess::NormalExit ? program.exitCode() : -1,
        program.readAllStandardOutput(), program.readAllStandardError() };
}
