#include "support/LogLines.h"

using vesk::analytics::Ingest;

QByteArray logLine(const QByteArray &address, const QByteArray &time, const QByteArray &rest)
{
    return address + " - - [" + time.first(3) + "Mar/2026:" + time.sliced(3) + "] " + rest;
}

Ingest::Result importLines(const QList<QByteArray> &lines)
{
    Ingest ingest;
    if (!ingest.init())
        qFatal("no secret");
    return ingest.ingest(1, "example.org", lines);
}
