#pragma once

#include "nightly/LogContent.h"
#include "nightly/Tonight.h"
#include "translate/TimeSpan.h"

#include <memory>
#include <vector>

namespace vesk::nightly {

/// What of a log is to be taken.
struct Portion
{
    Tonight::Log *log = nullptr;
    Entry entry; ///< what is imported of the log, or a new one
    QByteArray firstLine; ///< of the log
    QList<Entry> relatives; ///< the entries that begin with it
    /// Where the lines begin that are to be taken; null as long as that is not open.
    std::unique_ptr<LogContent> content;

    bool isNew() const { return entry.id == 0; }
    const RotatedLog &file() const { return log->file; }

    /// Opens it at the first line that is to be taken. False when the log does not begin any more
    /// with what was imported.
    bool open();

    /// LogContent::beginnings() of all of the log, which is read for it the first time. Not while
    /// it is open.
    const QByteArray &beginnings();

private:
    std::optional<QByteArray> m_beginnings;
};

/// Which of \a portions have to be merged by the time of their lines, since they are of several web
/// servers at the same time: by their indices, each in one group, in their order. A log's time may
/// be read for that, for which none may be open if there are several.
std::vector<std::vector<size_t>> groups(const std::vector<Portion> &portions);

/// From when to when a log of a web server goes.
struct Stretch
{
    translate::TimeSpan span;
    QString server; ///< what is different for each
};

/// Whether the lines of two logs have to be merged. Logs of one server follow each other. So do
/// those of two that are rotated one after the other, as long as they have a few minutes in common.
bool mustMerge(const Stretch &a, const Stretch &b);

} // namespace vesk::nightly
