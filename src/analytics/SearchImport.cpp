#include "analytics/SearchImport.h"

#include "analytics/PercentEncoding.h"
#include "common/Db.h"
#include "common/StatementStream.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonValue>
#include <QUrl>

#include <algorithm>

namespace vesk::analytics {

namespace {

constexpr qsizetype kRowsAtOnce = 500;

QString storingError()
{
    return QStringLiteral("database error while storing");
}

/// The site and engine that data is stored for, and its range of days.
struct Target
{
    int site;
    QString engine;
    QString first;
    QString last;
};

/// Element \a i of an object's keys; empty when it is missing or no text.
QString key(const QJsonObject &object, qsizetype i)
{
    return object.value(QLatin1String("keys")).toArray().at(i).toString();
}

/// The decoded path of a page's URL.
QString pathOf(const QString &url)
{
    const QByteArray text = withStrayPercentsEscaped(url.toUtf8());
    return QUrl(QString::fromUtf8(text), QUrl::TolerantMode).path(QUrl::FullyDecoded);
}

Target target(int site, const QString &engine, const QJsonArray &totals)
{
    Target target { site, engine, QStringLiteral("9999"), {} };
    for (const auto &total : totals) {
        const QString day = key(total.toObject(), 0);
        if (day <= target.first)
            target.first = day;
        if (day > target.last)
            target.last = day;
    }
    return target;
}

/// Deletes what is stored for the range in \a table.
void clearRange(db::StatementStream &stream, const QByteArray &table, const Target &target)
{
    db::Values values;
    values.addInt4(target.site);
    values.addText(target.engine);
    values.addText(target.first);
    values.addText(target.last);
    stream.send("DELETE FROM " + table
            + " WHERE site_id = ? AND engine = ? "
              "AND day BETWEEN CAST(? AS date) AND CAST(? AS date)",
        values);
}

void addFigures(db::Values &values, const SearchDay &figures)
{
    values.addInt4(figures.clicks);
    values.addInt4(figures.impressions);
    // As text: a number beyond the column's range is for the database to refuse.
    values.addText(QString::number(figures.position, 'g', 17));
}

void sendTotals(db::StatementStream &stream, const Target &target, const QJsonArray &totals)
{
    db::Values values;
    for (const auto &total : totals) {
        const SearchDay day = readSearchDay(total.toObject());
        values.clear();
        values.addInt4(target.site);
        values.addText(target.engine);
        values.addText(day.day);
        addFigures(values, day);
        stream.send("INSERT INTO vesk.search_days VALUES (?, ?, CAST(? AS date), ?, ?, ?)", values);
    }
}

QByteArray insertRowsStatement(qsizetype rows)
{
    return db::multiRow("INSERT INTO vesk.search_rows VALUES ",
        "(?, ?, CAST(? AS date), ?, ?, "
        "(SELECT alpha2 FROM vesk.country_codes WHERE alpha3 = ?), ?, ?, ?, ?)",
        rows);
}

void addRow(db::Values &values, const Target &target, const SearchRow &row)
{
    values.addInt4(target.site);
    values.addText(target.engine);
    values.addText(row.day);
    values.addText(row.query);
    values.addText(row.path);
    values.addText(row.country);
    values.addText(row.device);
    addFigures(values, row);
}

void sendRows(db::StatementStream &stream, const Target &target, const QJsonArray &rows,
    const ProgressCallback &progress)
{
    db::Values values;
    for (qsizetype i = 0; i < rows.size() && !stream.failed(); i += kRowsAtOnce) {
        progress(QLatin1String("rows"), i, rows.size());
        const qsizetype end = std::min(i + kRowsAtOnce, rows.size());
        values.clear();
        for (qsizetype row = i; row < end; ++row)
            addRow(values, target, readSearchRow(rows.at(row).toObject()));
        stream.send(insertRowsStatement(end - i), values);
    }
}

} // namespace

SearchDay readSearchDay(const QJsonObject &object)
{
    return { key(object, 0), object.value(QLatin1String("clicks")).toInt(),
        object.value(QLatin1String("impressions")).toInt(),
        object.value(QLatin1String("position")).toDouble() };
}

SearchRow readSearchRow(const QJsonObject &object)
{
    return { readSearchDay(object), key(object, 1), pathOf(key(object, 2)),
        key(object, 3).toLower(), key(object, 4).toLower() };
}

QString importSearchData(int site, const QString &engine, const QJsonObject &data, bool *ok,
    const ProgressCallback &progress)
{
    *ok = false;
    const QJsonArray totals = data.value(QLatin1String("totals")).toArray();
    const QJsonArray rows = data.value(QLatin1String("rows")).toArray();
    if (totals.isEmpty())
        return QStringLiteral("no daily totals in the data");
    const Target range = target(site, engine, totals);

    db::Transaction transaction;
    if (!transaction.isOpen())
        return storingError();
    db::StatementStream stream(db::StatementStream::ReportFirst);
    clearRange(stream, "vesk.search_days", range);
    clearRange(stream, "vesk.search_rows", range);
    sendTotals(stream, range, totals);
    sendRows(stream, range, rows, progress);
    stream.finish();
    if (stream.failed() || !transaction.commit())
        return storingError();
    *ok = true;
    return QStringLiteral("%1 days (%2 to %3), %4 detail rows")
        .arg(QString::number(totals.size()), range.first, range.last, QString::number(rows.size()));
}

} // namespace vesk::analytics
