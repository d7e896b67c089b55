// User agents: any bytes.

#include "Check.h"
#include "Vocabulary.h"

#include "analytics/Classifier.h"

#include <QByteArray>
#include <QString>

#include <algorithm>

using namespace vesk;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray ua = fuzz::view(data, size).toByteArray();
    const analytics::Client client = analytics::classifyClient(ua);
    fuzz::checkClient(client);
    fuzz::check((client.bot == QLatin1String("No user agent")) == ua.isEmpty(),
        "only an empty user agent is none");

    const bool ascii = std::all_of(ua.begin(), ua.end(), [](char c) { return c >= 0; });
    if (ascii && !ua.isEmpty()) {
        const QString upperBot = analytics::classifyClient(ua.toUpper()).bot;
        fuzz::check(client.bot == upperBot, "letter case does not make a crawler");
    }
    // An attribute is the first of its words in the text, so more text cannot take a sign of a
    // crawler away. A blank does not touch the word boundary after "bot" either.
    if (!client.bot.isNull() && !ua.isEmpty())
        fuzz::check(!analytics::classifyClient(ua + " Mozilla/5.0").bot.isNull(),
            "a crawler stays one with more text behind it");
    return 0;
}
