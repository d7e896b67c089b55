#include "report/Json.h"

#include <cmath>

namespace vesk::report {

QJsonValue json(QDate day)
{
    return day.isValid() ? QJsonValue(day.toString(Qt::ISODate)) : QJsonValue();
}

QJsonValue json(Value value)
{
    if (!value)
        return {};
    if (*value == std::trunc(*value))
        return qint64(*value);
    return *value;
}

QJsonObject json(const Period &period)
{
    return { { QStringLiteral("first"), json(period.first) },
        { QStringLiteral("last"), json(period.last) }, { QStringLiteral("days"), period.days() } };
}

QString levelName(Level level)
{
    switch (level) {
    case Level::Fine:
        return QStringLiteral("fine");
    case Level::Warning:
        return QStringLiteral("warning");
    case Level::Critical:
        break;
    }
    return QStringLiteral("critical");
}

QJsonArray json(const QList<Finding> &findings)
{
    QJsonArray array;
    for (const Finding &finding : findings)
        array += QJsonObject { { QStringLiteral("kind"), finding.kind },
            { QStringLiteral("level"), levelName(finding.level) },
            { QStringLiteral("text"), finding.text } };
    return array;
}

} // namespace vesk::report
