#pragma once

#include "report/Report.h"

#include <QByteArray>

/// A report for different readers. All results are UTF-8.
namespace vesk::report {

/// Lines of at most 80 columns, for a terminal.
QByteArray toText(const Report &report);

/// A web page in one file, without script, that loads nothing.
QByteArray toHtml(const Report &report);

/// Everything, as docs/reports.md describes it.
QByteArray toJson(const Report &report);

/// A page of an index: its file, and what it shows.
struct PageLink
{
    QString file;
    QString title;
};

/// A page of links to pages of reports.
QByteArray toIndex(const QString &title, const QList<PageLink> &links);

} // namespace vesk::report
