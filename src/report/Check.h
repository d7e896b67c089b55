#pragma once

#include "report/Judgement.h"

#include <QByteArray>

/// What vesk-report --check tells monitoring programs.
namespace vesk::report {

struct CheckedSite
{
    QString host;
    Facts facts;
    QList<Finding> findings;
};

/// As monitoring programs know them.
inline constexpr int kUnknownStatus = 3;

/// 0 when all is well, 1 for a warning, 2 when something is critical.
int statusOf(const QList<CheckedSite> &sites);

/// A line for each site, the worst first.
QByteArray toLines(QList<CheckedSite> sites);

/// The same as JSON.
QByteArray toJson(QList<CheckedSite> sites);

} // namespace vesk::report
