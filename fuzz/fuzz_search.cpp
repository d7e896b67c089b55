// Search-console exports: the input is the JSON file.

#include "Check.h"

#include "analytics/SearchImport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <limits>

using namespace vesk;

namespace {

QString text(const QJsonObject &object, qsizetype i)
{
    const QJsonValue value = object.value(u"keys").toArray().at(i);
    return value.isString() ? value.toString() : QString();
}

/// What a whole number of 32 bits counts as; 0 for everything else.
int whole(const QJsonValue &value)
{
    const double number = value.isDouble() ? value.toDouble() : 0;
    const bool fits = number >= std::numeric_limits<int>::min()
        && number <= std::numeric_limits<int>::max() && number == std::floor(number);
    return fits ? static_cast<int>(number) : 0;
}

void checkDay(const analytics::SearchDay &day, const QJsonObject &object)
{
    fuzz::check(day.day == text(object, 0), "the day is the first key");
    fuzz::check(day.clicks == whole(object.value(u"clicks")), "clicks are whole");
    fuzz::check(day.impressions == whole(object.value(u"impressions")), "impressions are whole");
    fuzz::check(std::isfinite(day.position), "the position is a number");
    fuzz::check(object.value(u"position").isDouble() || day.position == 0, "no number is 0");
    fuzz::checkStorable(day.day);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QJsonObject file = QJsonDocument::fromJson(fuzz::view(data, size).toByteArray()).object();
    for (const QJsonValue total : file.value(u"totals").toArray())
        checkDay(analytics::readSearchDay(total.toObject()), total.toObject());
    for (const QJsonValue value : file.value(u"rows").toArray()) {
        const QJsonObject object = value.toObject();
        const analytics::SearchRow row = analytics::readSearchRow(object);
        checkDay(row, object);
        fuzz::check(row.query == text(object, 1), "the query is the second key");
        fuzz::check(row.path.size() <= text(object, 2).size(), "the path is part of the page");
        fuzz::check(row.country == text(object, 3).toLower(), "the country is in lower case");
        fuzz::check(row.device == text(object, 4).toLower(), "the device is in lower case");
        for (const QString &stored : { row.query, row.path, row.country, row.device })
            fuzz::checkStorable(stored);
    }
    return 0;
}
