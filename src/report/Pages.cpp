#include "report/Pages.h"

#include "common/Text.h"
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
    qCritical("%s: %s", qPrintable(clean(path)), qPrintable(file.errorString()));
    return false;
}

/// The folder of the pages of a site below \a dir. Hosts that are no name of a folder are encoded.
QString folderOf(const QString &host, const QDir &dir)
{
    for (const QString &name : dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (name != host && unescapeUnitName(name) == host)
            return name;
    }
    return host.startsWith(u'.') || host.contains(u'/')
        ? u'%' + QString::fromLatin1(host.toUtf8().toHex())
        : host;
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

bool writePagesBelow(const ReportedSite &site, const QString &folder, const Options &options)
{
    const QDir dir(folder);
    const QString name = folderOf(site.host, dir);
    const QString path = dir.filePath(name);
    if (!QFileInfo(path).isDir() && !dir.mkdir(name)) {
        qCritical("%s cannot be made (is there the folder above it, with the right to write?)",
            qPrintable(clean(path)));
        return false;
    }
    return writePages(site, path, options);
}

bool writeOverview(const QList<KnownSite> &sites, const QString &folder, const Options &options,
    const Limits &limits)
{
    constexpr struct
    {
        const char *file;
        const char *title;
        int days;
    } kPages[] = { { "index.html", "Last day", 1 }, { "last-7-days.html", "Last 7 days", 7 },
        { "last-30-days.html", "Last 30 days", 30 } };
    const QDir dir(folder);
    const QDate last = calendarOf(sites).lastComplete;
    for (const auto &page : kPages) {
        auto overview = readOverview(sites, daysUpTo(last, page.days), options, limits);
        if (!overview)
            return false;
        for (const auto &other : kPages)
            overview->pages += { QLatin1String(other.title),
                &other == &page ? QString() : QString::fromLatin1(other.file) };
        for (SiteLine &site : overview->sites) {
            const QString name = folderOf(site.host, dir);
            if (QFileInfo::exists(dir.filePath(name + QLatin1String("/index.html"))))
                site.folder = name;
        }
        if (!save(dir.filePath(QLatin1String(page.file)), toHtml(*overview)))
            return false;
    }
    return true;
}

} // namespace vesk::report
