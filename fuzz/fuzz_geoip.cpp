// Country files: the input is a file, of which every line is read.

#include "Check.h"

#include "analytics/GeoIp.h"
#include "common/StatementStream.h"

#include <QByteArray>
#include <QList>
#include <QString>

using namespace vesk;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    for (const QByteArrayView line : fuzz::lines(data, size)) {
        const std::optional<analytics::CountryRange> range = analytics::parseCountryRange(line);

        const QList<QByteArray> fields = line.toByteArray().trimmed().split(',');
        const bool usable = fields.size() >= 3 && fields[2].size() == 2 && fields[2] != "ZZ";
        fuzz::check(range.has_value() == usable, "a range has three fields and a country");
        if (!range)
            continue;
        fuzz::check(
            range->first == fields[0] && range->last == fields[1] && range->country == fields[2],
            "the fields stand between commas");
        for (const QByteArrayView field : { range->first, range->last, range->country }) {
            db::Values values;
            values.addLatin1(field);
            values.addText(QString::fromLatin1(field));
            fuzz::checkStorableBytes(values.at(0));
            fuzz::check(values.at(0) == values.at(1), "a field is Latin-1");
        }
    }
    return 0;
}
