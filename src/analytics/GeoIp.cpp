#include "analytics/GeoIp.h"

#include "common/Db.h"
#include "common/Gzip.h"
#include "common/StatementStream.h"

#include <QByteArray>
#include <QDate>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QThread>
#include <QUrl>
#include <QVariant>

#include <algorithm>
#include <array>
#include <optional>

namespace vesk::analytics {

namespace {

constexpr int kRows = 1000; // lines per statement
constexpr int kMaxThreadMsecs = 1000; // to wait for a thread's end

/// A real file has hundreds of thousands of lines. One that splits at line feeds into fewer parts
/// is something else, an error page for example.
constexpr qsizetype kMinimumParts = 1000;

QString notACountryFile()
{
    return QStringLiteral("that does not look like a DB-IP country file");
}

QString loadingError()
{
    return QStringLiteral("database error while loading");
}

QString currentMonth()
{
    return QDate::currentDate().toString(QStringLiteral("yyyy-MM"));
}

/// Whether the network's own thread, which has a name of Qt's, is still there.
bool haveNetworkThread()
{
    const QDir tasks(QStringLiteral("/proc/self/task"));
    const QStringList ids = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return std::any_of(ids.begin(), ids.end(), [&tasks](const QString &id) {
        QFile name(tasks.filePath(id + QLatin1String("/comm")));
        return name.open(QIODevice::ReadOnly) && name.readAll().startsWith("QNetworkAccess");
    });
}

/// The current month's file, compressed; nothing, and the reason in \a error, when it cannot be
/// had. Leaves a thread that is about to end.
std::optional<QByteArray> fetch(QString *error, const ProgressCallback &progress)
{
    const auto report = [&progress](qint64 done, qint64 total) {
        progress(QLatin1String("bytes"), done, std::max(total, qint64 { 0 }));
    };
    report(0, 0);
    QNetworkAccessManager network;
    const QUrl url(QStringLiteral("https://download.db-ip.com/free/dbip-country-lite-%1.csv.gz")
                       .arg(currentMonth()));
    QNetworkReply *reply = network.get(QNetworkRequest(url));
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply, report);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        *error = reply->errorString();
        return {};
    }
    return reply->readAll();
}

/// The same, without the thread. Qt does not wait until it has freed what OpenSSL keeps for it, and
/// a process that ends right then frees that twice.
std::optional<QByteArray> download(QString *error, const ProgressCallback &progress)
{
    std::optional<QByteArray> body = fetch(error, progress);
    for (int i = 0; i < kMaxThreadMsecs && haveNetworkThread(); ++i)
        QThread::msleep(1);
    return body;
}

QByteArray insertOfRanges(qsizetype rows)
{
    return db::multiRow("INSERT INTO vesk.geo_country (ip_from, ip_to, country) VALUES ",
               "(CAST(? AS inet), CAST(? AS inet), ?)", rows)
        + " ON CONFLICT DO NOTHING";
}

/// Sends the ranges of all lines of \a csv; their number, or nothing when a statement failed.
std::optional<qint64> insertRanges(QByteArrayView csv, const ProgressCallback &progress)
{
    const qint64 lines = csv.count('\n') + 1;
    qint64 done = 0;
    db::StatementStream stream(db::StatementStream::ReportFirst);
    db::Values values;
    qint64 stored = 0;
    for (bool more = true; more && !stream.failed(); done += kRows) {
        progress(QLatin1String("lines"), done, lines);
        int rows = 0;
        values.clear();
        for (int i = 0; i < kRows && more; ++i) {
            const qsizetype lineFeed = csv.indexOf('\n');
            more = lineFeed >= 0;
            if (const auto range = parseCountryRange(more ? csv.first(lineFeed) : csv)) {
                for (const QByteArrayView field : { range->first, range->last, range->country })
                    values.addLatin1(field);
                ++rows;
            }
            csv = csv.sliced(more ? lineFeed + 1 : csv.size());
        }
        if (rows > 0)
            stream.send(insertOfRanges(rows), values);
        stored += rows;
    }
    stream.finish();
    return stream.failed() ? std::nullopt : std::optional(stored);
}

void rememberMonth()
{
    db::run(QStringLiteral("INSERT INTO vesk.settings VALUES ('geoip_month', ?) "
                           "ON CONFLICT (key) DO UPDATE SET value = excluded.value"),
        { currentMonth() });
}

} // namespace

std::optional<CountryRange> parseCountryRange(QByteArrayView line)
{
    std::array<QByteArrayView, 3> fields;
    line = line.trimmed();
    for (size_t i = 0; i < fields.size(); ++i) {
        const qsizetype comma = line.indexOf(',');
        if (comma < 0 && i + 1 < fields.size())
            return {};
        fields[i] = comma < 0 ? line : line.first(comma);
        line = comma < 0 ? QByteArrayView() : line.sliced(comma + 1);
    }
    if (fields[2].size() != 2 || fields[2] == "ZZ")
        return {};
    return CountryRange { fields[0], fields[1], fields[2] };
}

QString updateGeoIp(const QString &file, bool *ok, const ProgressCallback &progress)
{
    *ok = false;
    QByteArray csv;
    bool intact = false;
    if (file.isEmpty()) {
        QString error;
        const std::optional<QByteArray> body = download(&error, progress);
        if (!body)
            return QLatin1String("download failed: ") + error;
        csv = gunzip(*body, &intact);
    } else {
        csv = readMaybeGzip(file, &intact);
    }
    if (!intact || csv.count('\n') + 1 < kMinimumParts)
        return notACountryFile();

    db::Transaction transaction;
    if (!transaction.isOpen())
        return loadingError();
    QSqlQuery clear;
    if (!clear.exec(QStringLiteral("TRUNCATE vesk.geo_country"))) {
        db::reportFailure(db::presentable(clear.lastError()));
        return loadingError();
    }
    const std::optional<qint64> stored = insertRanges(csv, progress);
    if (!stored)
        return loadingError();
    if (*stored == 0)
        return notACountryFile();
    rememberMonth();
    if (!transaction.commit())
        return loadingError();
    *ok = true;
    return QStringLiteral("loaded %1 country ranges (IP data by DB-IP, CC BY 4.0)").arg(*stored);
}

bool geoIpIsStale()
{
    QSqlQuery q;
    q.exec(QStringLiteral("SELECT value FROM vesk.settings WHERE key = 'geoip_month'"));
    return !q.next() || q.value(0).toString() != currentMonth();
}

} // namespace vesk::analytics
