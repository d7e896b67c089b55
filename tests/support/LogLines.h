#pragma once

#include "analytics/Ingest.h"

#include <QByteArray>
#include <QList>

/// A line of a combined log, of March 2026: \a time begins with the day of the month, \a rest is
/// what follows the time.
QByteArray logLine(const QByteArray &address, const QByteArray &time = "10/12:00:00 +0000",
    const QByteArray &rest = R"("GET / HTTP/1.1" 200 5 "-" "UA")");

/// Imports \a lines for the site with id 1, example.org.
vesk::analytics::Ingest::Result importLines(const QList<QByteArray> &lines);
