#include "figures/Figures.h"

#include "common/Db.h"
#include "figures/Statements.h"

namespace vesk::figures {

namespace {

std::optional<QList<QDate>> daysOf(const char *statement, const QVariantMap &values)
{
    auto q = db::runNamed(statementText(statement), values);
    if (!q)
        return {};
    QList<QDate> days;
    while (q->next())
        days += q->value(0).toDate();
    return db::allRead(*q) ? std::optional(days) : std::nullopt;
}

} // namespace

std::optional<QSet<QDate>> validDays(int siteId, QDate first, QDate last)
{
    const auto days = daysOf("valid_days.sql",
        { { QStringLiteral(":site"), siteId }, { QStringLiteral(":first"), first },
            { QStringLiteral(":last"), last } });
    return days ? std::optional(QSet<QDate>(days->begin(), days->end())) : std::nullopt;
}

std::optional<QList<QDate>> missingDays(int siteId)
{
    return daysOf("missing_days.sql", { { QStringLiteral(":site"), siteId } });
}

bool store(int siteId, QDate day)
{
    const QString requests = requestRelations({ day });
    if (requests.isEmpty())
        return false;
    QString error;
    if (!db::execScript(QLatin1String(kSettings), &error)) {
        db::reportFailure(error);
        return false;
    }
    QString sql = statementText("store.sql");
    sql.replace(QLatin1String("{requests}"), requests);
    sql.replace(QLatin1String("{durations}"), statementText("durations.sql"));
    return db::runNamed(sql,
        { { QStringLiteral(":site"), siteId }, { QStringLiteral(":day"), day },
            { QStringLiteral(":scopes"), QStringLiteral("{people,all}") },
            { QStringLiteral(":addresses"), false } })
        .has_value();
}

} // namespace vesk::figures
