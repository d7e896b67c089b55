#pragma once

#include "report/Format.h"
#include "report/Judgement.h"
#include "report/Period.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>

/// The forms that all JSON of the program shares.
namespace vesk::report {

/// 2026-03-02; null without a day.
QJsonValue json(QDate day);

/// Whole numbers without a fraction, null where there is nothing to tell.
QJsonValue json(Value value);

QJsonObject json(const Period &period);

/// "fine", "warning" or "critical"
QString levelName(Level level);

QJsonArray json(const QList<Finding> &findings);

} // namespace vesk::report
