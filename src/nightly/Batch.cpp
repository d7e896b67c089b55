#include "nightly/Batch.h"

#include <algorithm>

namespace vesk::nightly {

using analytics::RowBuilder;

Reading::Reading(Portion &of, const translate::SiteHosts &hosts)
    : portion(of)
    , isWhole(of.isNew())
    , translated([&of] { return of.open() ? of.content->next() : std::nullopt; }, hosts)
{
}

QString Reading::summary() const
{
    QStringList remarks;
    for (const translate::Format format : translated.formats())
        remarks += translate::formatName(format);
    if (remarks.isEmpty())
        remarks += QStringLiteral("no known format");
    if (translated.othersLines() > 0)
        remarks += QStringLiteral("%1 lines of other hosts").arg(translated.othersLines());
    return QStringLiteral("%1 lines, %2 stored, %3 not log entries (%4)")
        .arg(lines)
        .arg(stored)
        .arg(skipped)
        .arg(remarks.join(QLatin1String(", ")));
}

Batch::Batch(const std::vector<Portion *> &portions, const translate::SiteHosts &hosts)
{
    std::vector<QString> servers; // of the chains
    for (Portion *portion : portions) {
        m_readings.push_back(std::make_unique<Reading>(*portion, hosts));
        const QString server = lineage(portion->file().path());
        const auto known = std::find(servers.begin(), servers.end(), server);
        const auto index = static_cast<size_t>(known - servers.begin());
        if (known == servers.end()) {
            servers.push_back(server);
            m_chains.push_back(std::make_unique<Chain>());
        }
        m_chains[index]->readings.push_back(m_readings.back().get());
    }
    std::vector<translate::LineSource> sources;
    for (const auto &chain : m_chains)
        sources.emplace_back([&chain = *chain] { return chain.next(); });
    m_lines.emplace(sources);
}

std::optional<QByteArrayView> Batch::next()
{
    return m_lines->next();
}

std::optional<QByteArrayView> Batch::Chain::next()
{
    for (; current < readings.size(); ++current) {
        if (const auto line = readings[current]->translated.next())
            return line;
    }
    return {};
}

void Batch::count(RowBuilder::Outcome outcome, const analytics::Row &row)
{
    const Chain &chain = *m_chains[m_lines->latest()];
    Reading &reading = *chain.readings[chain.current];
    reading.lines += outcome != RowBuilder::Outcome::Blank;
    reading.skipped += outcome == RowBuilder::Outcome::NotAnEntry;
    if (outcome == RowBuilder::Outcome::Row) {
        ++reading.stored;
        reading.span.add(row.log.at.toSecsSinceEpoch());
    }
}

} // namespace vesk::nightly
