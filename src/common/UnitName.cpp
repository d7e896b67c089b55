#include "common/UnitName.h"

#include <QRegularExpression>

namespace vesk {

QString unescapeUnitName(const QString &text)
{
    static const QRegularExpression escape(QStringLiteral(R"(\\x([0-9a-f]{2}))"));
    QByteArray bytes;
    qsizetype end = 0;
    for (auto it = escape.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        bytes += QStringView(text).sliced(end, match.capturedStart() - end).toUtf8();
        bytes += QByteArray::fromHex(match.capturedView(1).toLatin1());
        end = match.capturedEnd();
    }
    return QString::fromUtf8(bytes) + text.sliced(end);
}

} // namespace vesk
