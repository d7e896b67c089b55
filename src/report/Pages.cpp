#include "report/Pages.h"

#include "report/Writers.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QSaveFile>

namespace vesk::report {

namespace {

constexpr int kSettledAfterDays = 31;

bool save(const QString &path, const QByteArray &content)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.commit())
        return true;
    qCritical("%s: %s", qPrintable(path), qPrintable(file.errorString()));
    return false;
}

/// A page, and what it is about.
struct Page
{
    QString file;
    QString title;
    Period period;
};

QList<Page> pagesOf(const ReportedSite &site)
{
    const QDate last = site.calendar.lastComplete;
    QList<Page> pages;
    for (const auto &[file, title, days] : { std::tuple("last-day.html", "Last day: %1", 1),
             std::tuple("last-7-days.html", "Last 7 days: %1", 7),
             std::tuple("last-30-days.html", "Last 30 days: %1", 30) }) {
        const Period period = daysUpTo(last, days);
        pages
            += { QLatin1String(file), QString::fromLatin1(title).arg(periodName(period)), period };
    }
    for (const QDate month : readMonths(site))
        pages += { month.toString(QStringLiteral("yyyy-MM")) + QLatin1String(".html"),
            QLocale::c().toString(month, QStringLiteral("MMMM yyyy")),
            { month, month.addMonths(1).addDays(-1) } };
    return pages;
}

} // namespace

bool writePages(const ReportedSite &site, const QString &folder, const Options &options)
{
    const QDir dir(folder);
    QList<PageLink> links;
    for (const Page &page : pagesOf(site)) {
        const QString path = dir.filePath(page.file);
        links += { page.file, page.title };
        const QDate settled = page.period.last.addDays(kSettledAfterDays);
        if (settled < site.calendar.lastComplete && QFileInfo::exists(path))
            continue;
        const auto report = readReport(site, page.period, options);
        if (!report || !save(path, toHtml(*report)))
            return false;
    }
    return save(dir.filePath(QStringLiteral("index.html")), toIndex(site.host, links));
}

} // namespace vesk::report
