#include "analytics/RollUp.h"

#include "common/Db.h"

#include <QDate>
#include <QSqlQuery>
#include <QVariant>

namespace vesk::analytics {

bool rollUpDay(int siteId, QDate day)
{
    return db::run(QStringLiteral("SELECT vesk.rollup_day(?, ?)"), { siteId, day }).has_value();
}

} // namespace vesk::analytics
