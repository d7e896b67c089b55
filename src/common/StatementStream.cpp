#include "common/StatementStream.h"

#include "common/Db.h"

#include <QSqlDatabase>
#include <QtEndian>

#include <algorithm>
#include <bit>
#include <memory>
#include <utility>

#include <libpq-fe.h>
#include <poll.h>

namespace vesk::db {

namespace {

/// 2000-01-01 00:00 UTC, where PostgreSQL's timestamps count from, in milliseconds since 1970.
constexpr qint64 kPostgresEpochMsecs = 946684800000;

/// Bounds what waits in memory on both sides when the sender is faster than the server.
constexpr size_t kMaxOutstanding = 32;

/// Bounds what the server keeps: a prepared statement of 4,200 placeholders takes 1.4 MB there.
/// Texts beyond are parsed each time.
constexpr qsizetype kMaxPrepared = 8;

/// \a sql with $1, $2, ... for its "?" placeholders.
QByteArray numbered(const QByteArray &sql)
{
    QByteArray result;
    result.reserve(sql.size() * 2);
    int number = 0;
    for (const char c : sql) {
        if (c == '?')
            result += '$' + QByteArray::number(++number);
        else
            result += c;
    }
    return result;
}

/// Whether a text is ASCII without U+0000, so that the server gets it as it is.
bool isPlain(QStringView text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() - 1U < 0x7fU; });
}

bool isPlain(QByteArrayView text)
{
    return std::all_of(text.begin(), text.end(),
        [](char c) { return static_cast<unsigned char>(c) - 1U < 0x7fU; });
}

/// A statement name that no other stream of this process uses.
QByteArray newName()
{
    static int last = 0;
    return "vesk_" + QByteArray::number(++last);
}

} // namespace

void Values::addNull()
{
    m_fields.push_back({ -1, 0, 0 });
}

void Values::addBool(bool value)
{
    addBigEndian(static_cast<quint8>(value));
}

void Values::addInt2(qint16 value)
{
    addBigEndian(value);
}

void Values::addInt4(qint32 value)
{
    addBigEndian(value);
}

void Values::addInt8(qint64 value)
{
    addBigEndian(value);
}

void Values::addFloat4(float value)
{
    addBigEndian(std::bit_cast<quint32>(value));
}

void Values::addTimestamp(qint64 msecs)
{
    addBigEndian((msecs - kPostgresEpochMsecs) * 1000);
}

void Values::addBytes(QByteArrayView bytes)
{
    std::copy(bytes.begin(), bytes.end(), append(bytes.size(), 1));
}

void Values::addText(QStringView text)
{
    if (isPlain(text)) { // nearly always, and needs no conversion
        std::transform(text.begin(), text.end(), append(text.size(), 0),
            [](QChar c) { return static_cast<char>(c.unicode()); });
    } else {
        appendText(text.toUtf8().replace('\0', "\xEF\xBF\xBD"));
    }
}

void Values::addLatin1(QByteArrayView text)
{
    if (isPlain(text))
        appendText(text);
    else
        addText(QString::fromLatin1(text));
}

void Values::addUtf8(QByteArrayView text)
{
    if (isPlain(text))
        appendText(text);
    else
        addText(QString::fromUtf8(text));
}

QByteArrayView Values::at(qsizetype index) const
{
    const Field &field = m_fields[static_cast<size_t>(index)];
    if (field.offset < 0)
        return {};
    return { m_bytes.data() + field.offset, field.length };
}

void Values::clear()
{
    m_used = 0;
    m_fields.clear();
}

template <typename Integer> void Values::addBigEndian(Integer value)
{
    qToBigEndian(value, append(sizeof value, 1));
}

/// Adds a value of \a length bytes; where they are to be written.
char *Values::append(qsizetype length, int format)
{
    const size_t offset = m_used;
    m_used += static_cast<size_t>(length) + 1;
    if (m_bytes.size() < m_used)
        m_bytes.resize(2 * m_used);
    m_fields.push_back({ static_cast<std::ptrdiff_t>(offset), static_cast<int>(length), format });
    m_bytes[m_used - 1] = '\0';
    return m_bytes.data() + offset;
}

void Values::appendText(QByteArrayView utf8)
{
    std::copy(utf8.begin(), utf8.end(), append(utf8.size(), 0));
}

QByteArray multiRow(const QByteArray &head, const QByteArray &tuple, qsizetype rows)
{
    QByteArray sql = head + tuple;
    sql.reserve(head.size() + rows * (tuple.size() + 2));
    for (qsizetype i = 1; i < rows; ++i)
        sql += ", " + tuple;
    return sql;
}

StatementStream::~StatementStream()
{
    finish();
}

void StatementStream::send(const QByteArray &sql, const Values &values)
{
    if (!m_connection)
        begin();
    while (m_outstanding.size() >= kMaxOutstanding)
        wait();
    if (m_lost) {
        m_succeeded.push_back(false);
        return;
    }

    const auto count = static_cast<size_t>(values.size());
    std::vector<const char *> data(count);
    std::vector<int> lengths(count);
    std::vector<int> formats(count);
    for (size_t i = 0; i < count; ++i) {
        const QByteArrayView value = values.at(static_cast<qsizetype>(i));
        data[i] = value.data();
        lengths[i] = static_cast<int>(value.size());
        formats[i] = values.format(static_cast<qsizetype>(i));
    }
    m_outstanding.emplace_back();
    const QByteArray name = prepare(sql);
    const bool sent = PQsendQueryPrepared(m_connection, name.constData(), static_cast<int>(count),
                          data.data(), lengths.data(), formats.data(), 0)
        && PQpipelineSync(m_connection);
    if (!sent)
        giveUp();
}

void StatementStream::poll()
{
    if (m_outstanding.empty())
        return;
    PQflush(m_connection);
    PQconsumeInput(m_connection);
    takeResults();
}

std::vector<bool> StatementStream::finish()
{
    while (!m_outstanding.empty())
        wait();
    if (m_connection) {
        PQexitPipelineMode(m_connection);
        PQsetnonblocking(m_connection, 0);
        m_connection = nullptr;
    }
    m_lost = false;
    return std::exchange(m_succeeded, {});
}

void StatementStream::begin()
{
    m_connection = nativeConnection(
        QSqlDatabase::database(QLatin1String(QSqlDatabase::defaultConnection), false));
    if (const int server = PQbackendPID(m_connection); server != m_server) {
        m_server = server;
        m_prepared.clear();
    }
    m_failed = false;
    PQsetnonblocking(m_connection, 1);
    PQenterPipelineMode(m_connection);
}

/// The server's name for \a sql, which is sent to be prepared first when it is new. The empty name
/// once all names are taken.
QByteArray StatementStream::prepare(const QByteArray &sql)
{
    const auto known = m_prepared.constFind(sql);
    if (known != m_prepared.constEnd())
        return *known;
    QByteArray name;
    if (m_prepared.size() < kMaxPrepared) {
        name = newName();
        m_prepared.insert(sql, name);
        m_outstanding.back().prepares = sql;
    }
    PQsendPrepare(m_connection, name.constData(), numbered(sql).constData(), 0, nullptr);
    return name;
}

/// Waits until the server takes or gives something.
void StatementStream::wait()
{
    const bool unsent = PQflush(m_connection) == 1;
    pollfd socket {};
    socket.fd = PQsocket(m_connection);
    socket.events = static_cast<short>(unsent ? POLLIN | POLLOUT : POLLIN);
    if (PQisBusy(m_connection))
        ::poll(&socket, 1, -1);
    poll();
}

void StatementStream::takeResults()
{
    while (!m_outstanding.empty() && !PQisBusy(m_connection)) {
        const std::unique_ptr<PGresult, decltype(&PQclear)> result(
            PQgetResult(m_connection), &PQclear);
        if (!result) { // the end of one statement's results, or of the connection
            if (PQstatus(m_connection) != CONNECTION_OK)
                giveUp();
            continue;
        }
        switch (PQresultStatus(result.get())) {
        case PGRES_PIPELINE_SYNC:
            settle();
            break;
        case PGRES_FATAL_ERROR: {
            const auto state
                = QString::fromLatin1(PQresultErrorField(result.get(), PG_DIAG_SQLSTATE));
            fail(presentable(QString::fromUtf8(PQresultErrorMessage(result.get())), state), state);
            break;
        }
        case PGRES_PIPELINE_ABORTED: // not executed, because it could not be prepared
            m_outstanding.front().failed = true;
            break;
        default:
            break;
        }
    }
}

/// Notes the outcome of the statement whose results are complete.
void StatementStream::settle()
{
    const Outstanding &statement = m_outstanding.front();
    if (statement.failed && !statement.prepares.isEmpty())
        m_prepared.remove(statement.prepares);
    m_succeeded.push_back(!statement.failed);
    m_outstanding.pop_front();
}

/// The statement whose results are due has failed; only its first error is reported.
void StatementStream::fail(const QString &errorText, const QString &sqlState)
{
    Outstanding &statement = m_outstanding.front();
    if (!statement.failed && (m_reports == ReportEach || !m_failed))
        reportFailure(errorText, m_failed ? QString() : sqlState); // may follow from the first
    statement.failed = true;
    m_failed = true;
}

/// The connection is lost, and with it whatever has no result yet or is still to be sent.
void StatementStream::giveUp()
{
    fail(presentable(QString::fromUtf8(PQerrorMessage(m_connection)), {}), {});
    m_lost = true;
    m_succeeded.insert(m_succeeded.end(), m_outstanding.size(), false);
    m_outstanding.clear();
    m_prepared.clear();
}

} // namespace vesk::db
