#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QStringView>

#include <cstddef>
#include <deque>
#include <vector>

struct pg_conn;

namespace vesk::db {

/// The values of one execution of a statement, in the order of its placeholders. Numbers, times and
/// bytes travel in the binary form of the named PostgreSQL type, which must be the type that the
/// server expects at that place; texts are read by the input function of whatever type stands
/// there.
class Values
{
public:
    void addNull();
    void addBool(bool value);
    void addInt2(qint16 value);
    void addInt4(qint32 value);
    void addInt8(qint64 value);
    void addFloat4(float value);
    /// \a msecs since 1970-01-01 00:00 UTC, as timestamptz.
    void addTimestamp(qint64 msecs);
    void addBytes(QByteArrayView bytes);
    /// U+0000, which no text in PostgreSQL can hold, becomes U+FFFD.
    void addText(QStringView text);
    /// \a text, of which each byte is a character of Latin-1; null bytes become U+FFFD.
    void addLatin1(QByteArrayView text);

    /// \a text in UTF-8, of which null bytes and malformed sequences become U+FFFD.
    void addUtf8(QByteArrayView text);

    qsizetype size() const { return static_cast<qsizetype>(m_fields.size()); }
    /// The bytes that the server gets for the value \a index, null for NULL; valid until the next
    /// change. There is a null byte behind them, which libpq wants of texts.
    QByteArrayView at(qsizetype index) const;
    /// libpq's code for the form of the value \a index: 0 text, 1 binary.
    int format(qsizetype index) const { return m_fields[static_cast<size_t>(index)].format; }
    void clear();

private:
    struct Field
    {
        std::ptrdiff_t offset; ///< into m_bytes, -1 for NULL
        int length;
        int format;
    };

    template <typename Integer> void addBigEndian(Integer value);
    char *append(qsizetype length, int format);
    void appendText(QByteArrayView utf8);

    std::vector<char> m_bytes;
    size_t m_used = 0; ///< of m_bytes
    std::vector<Field> m_fields;
};

/// \a head, which ends in "VALUES ", followed by \a rows times the group of placeholders \a tuple.
QByteArray multiRow(const QByteArray &head, const QByteArray &tuple, qsizetype rows);

/// Executes statements on the default connection without waiting for one before sending the next
/// (libpq's pipeline mode). From the first send() to finish() nothing else may use the connection.
/// A statement text is prepared on the server once and then executed by name. Each statement
/// succeeds or fails by itself, as if sent alone; failures are reported as by exec().
class StatementStream
{
public:
    enum Reports {
        ReportEach,
        ReportFirst, ///< what follows the first failure only repeats that the transaction is lost
    };

    explicit StatementStream(Reports reports = ReportEach)
        : m_reports(reports)
    {
    }
    ~StatementStream();
    Q_DISABLE_COPY_MOVE(StatementStream)

    /// Of the failures from now on.
    void setReports(Reports reports) { m_reports = reports; }

    /// Sends \a sql, written with "?" placeholders, with its values. Waits only when many
    /// statements are on their way already.
    void send(const QByteArray &sql, const Values &values);

    /// Sends and receives as much as is possible without waiting. A caller that does other work
    /// between send() and finish() should call it now and then.
    void poll();

    /// Whether any statement is known to have failed. The first send() after finish() starts anew.
    bool failed() const { return m_failed; }

    /// Waits for all results. Whether each statement sent since the last finish() succeeded, in
    /// order.
    std::vector<bool> finish();

private:
    struct Outstanding
    {
        QByteArray prepares; ///< the statement text, if it is prepared on the way
        bool failed = false;
    };

    void begin();
    void wait();
    void takeResults();
    void settle();
    void giveUp();
    QByteArray prepare(const QByteArray &sql);
    void fail(const QString &errorText, const QString &sqlState);

    Reports m_reports;
    bool m_failed = false; ///< any statement since begin()

    pg_conn *m_connection = nullptr; ///< null between finish() and send()
    bool m_lost = false; ///< the connection, since the last finish()
    int m_server = 0; ///< process that m_prepared is about; a new one after a lost connection
    QHash<QByteArray, QByteArray> m_prepared; ///< statement text to its name on the server
    std::deque<Outstanding> m_outstanding; ///< statements whose results are not complete, in order
    std::vector<bool> m_succeeded; ///< of the statements whose results are
};

} // namespace vesk::db
