#pragma once

#include "analytics/Classifier.h"
#include "analytics/LogParser.h"
#include "analytics/Memo.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QDate>
#include <QString>

#include <optional>

namespace vesk::analytics {

/// One request as vesk.hits stores it.
struct Row
{
    LogLine log; ///< a beacon has method BEACON and status 204, whatever was logged
    QString path; ///< decoded, without the query; for a beacon the page that it reports
    bool page = false; ///< a page view
    QString ip; ///< the client address; empty when it is none
    QByteArray visitor; ///< visitor hash, 8 bytes
    qint64 session = 0; ///< visit number; filled in by Ingest
    QString country; ///< two-letter code or empty; filled in by Ingest
    Source source;
    Client client;
    std::optional<float> engagedSecs; ///< seconds that a page was visible, for a beacon
};

/// The 8-byte hash that stands for a visitor on one site and one UTC day: the first bytes of
/// SHA-256 over the secret, the day, the site id, the address as logged and the user agent.
QByteArray visitorHash(const QByteArray &secret, int siteId, const QString &ip,
    const QByteArray &userAgent, QDate day);

/// Whether \a text is an IPv4 or IPv6 address in a form that PostgreSQL's inet reads too.
bool isAddress(const QString &text);

/// Turns the lines of one site's access log into rows, all but what only the database knows. It
/// remembers what repeats from line to line.
class RowBuilder
{
public:
    enum class Outcome {
        Blank, ///< nothing but white space
        NotAnEntry, ///< no access-log entry, or one that the database could not hold
        Dropped, ///< a beacon that reports nothing usable
        Row,
    };

    /// \a siteHost is the site's host name in lower case.
    RowBuilder(const QByteArray &secret, int siteId, const QString &siteHost);

    /// Fills \a row from \a line, given without its line feed, when the outcome is Row.
    Outcome build(QByteArrayView line, Row &row);

private:
    /// What address and user agent tell.
    struct Visitor
    {
        QString ip; ///< empty when it is no address
        QByteArray hash;
        Client client;
    };

    Source source(const LogLine &log);
    Visitor visitor(const LogLine &log);

    QByteArray m_secret;
    int m_siteId;
    QString m_siteHost;
    Memo<Client> m_clients;
    Memo<Source> m_referrers;
    Memo<Visitor> m_visitors; ///< of the UTC day m_visitorDay
    QDate m_visitorDay;
};

} // namespace vesk::analytics
