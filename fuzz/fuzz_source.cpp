// Traffic sources: the input's first line is the referrer, its second one the request target, its
// third one the host of the site.

#include "Check.h"
#include "Vocabulary.h"

#include "analytics/Classifier.h"

#include <QByteArray>
#include <QString>

using namespace vesk;

namespace {

bool same(const analytics::Source &a, const analytics::Source &b)
{
    return a.kind == b.kind && a.name == b.name && a.searchTerms == b.searchTerms;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QList<QByteArrayView> lines = fuzz::lines(data, size);
    const QByteArray referrer = lines[0].toByteArray();
    const QByteArray target = lines.value(1).toByteArray();
    QString host = QString::fromUtf8(lines.value(2)).toLower();
    if (host.isEmpty())
        host = QStringLiteral("example.org");

    const analytics::Source source = analytics::classifySource(referrer, target, host);
    fuzz::checkSource(source);

    const analytics::Source campaign = analytics::classifySource({}, target, host);
    const analytics::Source byReferrer = analytics::classifySource(referrer, {}, host);
    fuzz::checkSource(byReferrer);
    fuzz::check(byReferrer.kind != QLatin1String("campaign"), "no referrer is a campaign");
    if (!analytics::namesCampaign(target)) {
        fuzz::check(
            campaign.kind == QLatin1String("direct"), "no campaign and no referrer is direct");
        fuzz::check(same(source, byReferrer), "without a campaign the referrer decides");
    } else {
        fuzz::check(campaign.kind == QLatin1String("campaign") && target.contains('?'),
            "a campaign stands in the query");
        fuzz::check(same(source, campaign), "the campaign comes first");
    }
    fuzz::check(
        !referrer.isEmpty() || byReferrer.kind == QLatin1String("direct"), "no referrer is direct");
    return 0;
}
