#include "analytics/HitWriter.h"

#include <algorithm>
#include <limits>

namespace vesk::analytics {

namespace {

constexpr qsizetype kBatchRows = 200;
constexpr int kColumns = 21;

constexpr qsizetype kMaxMethodBytes = 16;
constexpr qsizetype kMaxPath = 2000; // UTF-16 code units
constexpr qsizetype kMaxReferrerBytes = 1000;

QByteArray insertStatement(qsizetype rows)
{
    return db::multiRow(
        "INSERT INTO vesk.hits (site_id, at, method, path, status, bytes, is_page, ip, visitor, "
        "session_id, country, source_kind, source, referrer, search_terms, device, browser, os, "
        "bot, engaged_secs, response_us) VALUES ",
        "(?, ?, ?, ?, ?, ?, ?, CAST(? AS inet), ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)", rows);
}

void addOptional(db::Values &values, QStringView text)
{
    if (text.isEmpty())
        values.addNull();
    else
        values.addText(text);
}

void addOptionalUtf8(db::Values &values, QByteArrayView text)
{
    if (text.isEmpty() || text == "\xEF\xBB\xBF") // a byte order mark alone decodes to nothing
        values.addNull();
    else
        values.addUtf8(text);
}

} // namespace

void addRow(db::Values &values, int siteId, const Row &row)
{
    values.addInt4(siteId);
    values.addTimestamp(row.log.at.toMSecsSinceEpoch());
    values.addLatin1(row.log.method.left(kMaxMethodBytes));
    values.addText(QStringView(row.path).left(kMaxPath));
    values.addInt2(static_cast<qint16>(row.log.status));
    values.addInt8(row.log.bytes);
    values.addBool(row.page);
    addOptional(values, row.ip);
    values.addBytes(row.visitor);
    values.addInt8(row.session);
    addOptional(values, row.country);
    values.addText(row.source.kind);
    addOptional(values, row.source.name);
    addOptionalUtf8(values, row.log.referrer.left(kMaxReferrerBytes));
    addOptional(values, row.source.searchTerms);
    values.addText(row.client.device);
    values.addText(row.client.browser);
    values.addText(row.client.os);
    addOptional(values, row.client.bot);
    if (row.engagedSecs)
        values.addFloat4(*row.engagedSecs);
    else
        values.addNull();
    if (row.log.responseUs >= 0 && row.log.responseUs < std::numeric_limits<qint32>::max())
        values.addInt4(static_cast<qint32>(row.log.responseUs));
    else
        values.addNull();
}

void HitWriter::send(int siteId, const QList<Row> &rows, db::StatementStream::Reports reports)
{
    m_stream.setReports(reports);
    for (qsizetype i = 0; i < rows.size(); i += kBatchRows)
        insertBatch(siteId, rows.begin() + i, rows.begin() + std::min(i + kBatchRows, rows.size()));
}

void HitWriter::insertBatch(
    int siteId, QList<Row>::const_iterator begin, QList<Row>::const_iterator end)
{
    m_values.clear();
    for (auto row = begin; row != end; ++row)
        addRow(m_values, siteId, *row);
    Q_ASSERT(m_values.size() == (end - begin) * kColumns);
    m_stream.send(insertStatement(end - begin), m_values);
    m_batchRows.append(static_cast<int>(end - begin));
}

int HitWriter::finish()
{
    const std::vector<bool> succeeded = m_stream.finish();
    int stored = 0;
    for (size_t i = 0; i < succeeded.size(); ++i)
        stored += succeeded[i] ? m_batchRows[static_cast<qsizetype>(i)] : 0;
    m_batchRows.clear();
    return stored;
}

} // namespace vesk::analytics
