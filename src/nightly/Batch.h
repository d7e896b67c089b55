#pragma once

#include "analytics/RowBuilder.h"
#include "nightly/Portion.h"
#include "translate/MergedLines.h"
#include "translate/TranslatedLog.h"

namespace vesk::nightly {

/// A portion while it is read, and what became of its lines.
struct Reading
{
    Reading(Portion &of, const translate::SiteHosts &hosts);

    /// Whether it is a whole log, in which no line is an entry.
    bool isStrange() const { return isWhole && lines > 0 && skipped == lines; }
    /// "3 lines, 2 stored, 1 not log entries (combined)"
    QString summary() const;

    Portion &portion;
    const bool isWhole; ///< nothing of the log was imported before
    translate::TranslatedLog translated;
    int lines = 0; ///< that are not blank, and of no other host
    int stored = 0;
    int skipped = 0; ///< lines that are no entries
    Span span; ///< of the rows
};

/// The lines of portions that go into the database together, in the order of time, as lines of the
/// combined format. Several logs of one server follow each other in the order given.
class Batch
{
public:
    /// The portions live longer. Those that are not new are open; the others are opened when their
    /// turn comes, for each archive that is open has a program that reads it.
    Batch(const std::vector<Portion *> &portions, const translate::SiteHosts &hosts);
    Q_DISABLE_COPY_MOVE(Batch)

    /// The next line, valid until the next call; nothing after the last.
    std::optional<QByteArrayView> next();
    /// Counts what became of that line.
    void count(analytics::RowBuilder::Outcome outcome, const analytics::Row &row);

    const std::vector<std::unique_ptr<Reading>> &readings() const { return m_readings; }

private:
    /// The logs of one server.
    struct Chain
    {
        std::vector<Reading *> readings;
        size_t current = 0;

        std::optional<QByteArrayView> next();
    };

    std::vector<std::unique_ptr<Reading>> m_readings;
    std::vector<std::unique_ptr<Chain>> m_chains;
    std::optional<translate::MergedLines> m_lines;
};

} // namespace vesk::nightly
