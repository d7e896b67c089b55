// Rows of vesk.hits: the input is a log, of which every line is built and bound as for storing.

#include "Check.h"
#include "Vocabulary.h"

#include "analytics/HitWriter.h"
#include "analytics/RowBuilder.h"

#include <QByteArray>
#include <QString>

#include <arpa/inet.h>

#include <algorithm>

using namespace vesk;
using analytics::Row;
using analytics::RowBuilder;

namespace {

constexpr int kSite = 17;
const QByteArray kSecret = QByteArrayLiteral("secret");
const QString kHost = QStringLiteral("example.org");

/// Places in the insert statement.
enum Column { Method = 2, Path = 3, Visitor = 8, Referrer = 13, ResponseUs = 20, Columns = 21 };

/// Checks that the database takes \a text as an inet.
void checkAddress(const QString &text)
{
    if (!analytics::isAddress(text))
        return;
    fuzz::check(std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x80; }),
        "an address is ASCII");
    if (!text.contains(u':'))
        return; // PostgreSQL reads leading zeros as decimal, as isAddress does
    in6_addr address {};
    fuzz::check(
        inet_pton(AF_INET6, text.toLatin1().constData(), &address) == 1, "an address is IPv6");
}

db::Values valuesOf(const Row &row)
{
    db::Values values;
    analytics::addRow(values, kSite, row);
    return values;
}

/// What the lines before told must make no difference.
void checkMemory(QByteArrayView line, RowBuilder::Outcome outcome, const Row &row)
{
    Row alone;
    fuzz::check(RowBuilder(kSecret, kSite, kHost).build(line, alone) == outcome,
        "the outcome is that of the line alone");
    if (outcome != RowBuilder::Outcome::Row)
        return;
    const db::Values with = valuesOf(row);
    const db::Values without = valuesOf(alone);
    for (qsizetype i = 0; i < Columns; ++i)
        fuzz::check(with.at(i) == without.at(i) && with.at(i).isNull() == without.at(i).isNull(),
            "the row is that of the line alone");
}

void checkStored(const Row &row)
{
    const db::Values values = valuesOf(row);
    fuzz::check(values.size() == Columns, "a value for each column");
    const auto codeUnits
        = [&values](Column column) { return QString::fromUtf8(values.at(column)).size(); };
    fuzz::check(codeUnits(Method) <= 16, "the method is at most 16 characters");
    fuzz::check(codeUnits(Path) <= 2000, "the path is at most 2000 code units");
    fuzz::check(codeUnits(Referrer) <= 1000, "the referrer is at most 1000 bytes");
    fuzz::check(values.at(Visitor).size() == 8, "the visitor hash has 8 bytes");
    fuzz::check(values.at(ResponseUs).isNull()
            != (row.log.responseUs >= 0 && row.log.responseUs <= 2147483646),
        "the duration fits its column");
    QString referrer = QString::fromUtf8(row.log.referrer.left(1000));
    fuzz::check(values.at(Referrer).isNull() == referrer.isEmpty(), "no referrer is NULL");
    fuzz::check(values.at(Referrer) == referrer.replace(u'\0', u'\ufffd').toUtf8(),
        "the referrer is stored as sent");
    for (const Column column : { Method, Path, Referrer })
        fuzz::checkStorableBytes(values.at(column));
}

void checkRow(const Row &row)
{
    fuzz::check(row.log.status >= -32768 && row.log.status <= 32767, "the status fits smallint");
    fuzz::check(row.ip.isEmpty() || row.ip == row.log.ip, "the address is as logged");
    fuzz::check(row.ip.isEmpty() != analytics::isAddress(row.log.ip), "an address is stored");
    fuzz::check(row.visitor
            == analytics::visitorHash(
                kSecret, kSite, row.log.ip, row.log.userAgent, row.log.at.date()),
        "the visitor is the hash");
    fuzz::check(!row.page || row.log.method == "GET" || row.log.method == "HEAD",
        "a page is asked for by GET or HEAD");
    fuzz::check(
        row.page == analytics::isPage(row.log.method, row.path), "a page is one by its path");

    const QByteArray &target = row.log.target;
    const bool beacon = target == "/vesk-b" || target.startsWith("/vesk-b?");
    fuzz::check(row.engagedSecs.has_value() == beacon, "a beacon has seconds");
    if (beacon) {
        fuzz::check(
            row.log.method == "BEACON" && row.log.status == 204, "a beacon is stored as one");
        fuzz::check(*row.engagedSecs > 0 && *row.engagedSecs <= 21600, "0 to six hours");
        fuzz::check(!row.path.isEmpty() && row.path.size() <= 2000, "a beacon names its page");
    }
    fuzz::checkClient(row.client);
    fuzz::checkSource(row.source);
    const analytics::Source source
        = analytics::classifySource(row.log.referrer, row.log.target, kHost);
    fuzz::check(row.source.kind == source.kind && row.source.name == source.name
            && row.source.searchTerms == source.searchTerms,
        "the source is the classifier's");
    const analytics::Client client = analytics::classifyClient(row.log.userAgent);
    fuzz::check(row.client.bot == client.bot && row.client.device == client.device
            && row.client.browser == client.browser && row.client.os == client.os,
        "the client is the classifier's");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    RowBuilder builder(kSecret, kSite, kHost);
    for (const QByteArrayView line : fuzz::lines(data, size)) {
        checkAddress(QString::fromLatin1(line.first(std::min<qsizetype>(line.size(), 64))));
        Row row;
        const RowBuilder::Outcome outcome = builder.build(line, row);
        fuzz::check((outcome == RowBuilder::Outcome::Blank) == line.trimmed().isEmpty(),
            "blank is what has nothing but white space");
        checkMemory(line, outcome, row);
        if (outcome != RowBuilder::Outcome::Row)
            continue;
        checkAddress(row.ip);
        checkRow(row);
        checkStored(row);
    }
    return 0;
}
