#include "nightly/RunNote.h"

#include "common/Db.h"
#include "nightly/LedgerTables.h"

namespace vesk::nightly {

namespace {

constexpr qsizetype kMostLetters = 500;

constexpr auto kTable = "CREATE TABLE IF NOT EXISTS vesk_nightly.runs ("
                        "site_id integer PRIMARY KEY REFERENCES vesk.sites (id) ON DELETE CASCADE,"
                        "at timestamptz NOT NULL DEFAULT now(),"
                        "failing_since timestamptz,"
                        "complaint text NOT NULL)";

QtMessageHandler g_handler = nullptr; // the one before ours
QString *g_complaint = nullptr; // of the note that listens

void listen(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (g_complaint->isEmpty() && (type == QtWarningMsg || type == QtCriticalMsg))
        *g_complaint = message.left(kMostLetters);
    g_handler(type, context, message);
}

/// Made apart from the other tables, for databases that have those already.
bool makeTable()
{
    QString error;
    const bool done = lockLedgerTables() && db::execScript(QLatin1String(kTable), &error);
    if (!error.isEmpty())
        db::reportFailure(error);
    return done;
}

} // namespace

RunNote::RunNote(const Site &site)
    : m_site(site)
{
    g_complaint = &m_complaint;
    g_handler = qInstallMessageHandler(listen);
}

RunNote::~RunNote()
{
    qInstallMessageHandler(g_handler);
}

bool RunNote::save(bool done)
{
    if (!createLedgerTables())
        return false;
    db::Transaction transaction;
    return transaction.isOpen() && makeTable()
        && db::run(
            QStringLiteral(
                "INSERT INTO vesk_nightly.runs AS r (site_id, failing_since, complaint)"
                " VALUES (?, CASE WHEN ? THEN NULL ELSE now() END, ?)"
                " ON CONFLICT (site_id) DO UPDATE SET at = now(), failing_since ="
                " CASE WHEN excluded.failing_since IS NOT NULL"
                " THEN coalesce(r.failing_since, now()) END, complaint = excluded.complaint"),
            { m_site.id, done, done ? QStringLiteral("") : m_complaint })
               .has_value()
        && transaction.commit();
}

} // namespace vesk::nightly
