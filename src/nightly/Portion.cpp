#include "nightly/Portion.h"

#include <algorithm>
#include <numeric>

namespace vesk::nightly {

namespace {

/// What two servers have in common that are rotated at about the same time.
constexpr qint64 kFewSecs = 300;

using Stretches = std::vector<std::optional<Stretch>>;

bool contains(const translate::TimeSpan &a, const translate::TimeSpan &b)
{
    return a.first <= b.first && b.last <= a.last;
}

/// Between the first line and the last change of the file; nothing when that cannot be said.
std::optional<Stretch> roughly(const Portion &portion)
{
    const qint64 changed = portion.file().state().modified / FileState::kNanoseconds;
    const auto first = translate::timeOf(portion.firstLine);
    if (!portion.isNew() || !first || changed < *first)
        return {};
    return Stretch { { *first, changed }, lineage(portion.file().path()) };
}

/// As the lines say; nothing of a log that cannot be read to its end, or it would take the others
/// along.
std::optional<Stretch> exactly(const Portion &portion)
{
    LogContent content(portion.file());
    if (!portion.isNew() && !content.skip(portion.entry))
        return {};
    const auto span = translate::timeSpan([&content] { return content.next(); });
    if (!span || !content.intact())
        return {};
    return Stretch { *span, lineage(portion.file().path()) };
}

/// The number of its group for each, which is the least index in it.
std::vector<size_t> grouped(const Stretches &stretches)
{
    std::vector<size_t> group(stretches.size());
    std::iota(group.begin(), group.end(), size_t { 0 });
    for (size_t i = 0; i < stretches.size(); ++i) {
        for (size_t j = 0; j < i; ++j) {
            if (stretches[i] && stretches[j] && mustMerge(*stretches[i], *stretches[j])) {
                const auto [to, from] = std::minmax({ group[i], group[j] });
                std::replace(group.begin(), group.end(), size_t { from }, size_t { to });
            }
        }
    }
    return group;
}

} // namespace

bool Portion::open()
{
    if (content)
        return true;
    content = std::make_unique<LogContent>(log->file);
    return isNew() || content->skip(entry);
}

const QByteArray &Portion::beginnings()
{
    if (!m_beginnings) {
        LogContent all(log->file);
        all.skipRest();
        m_beginnings = all.beginnings();
    }
    return *m_beginnings;
}

bool mustMerge(const Stretch &a, const Stretch &b)
{
    const qint64 common = std::min(a.span.last, b.span.last) - std::max(a.span.first, b.span.first);
    return a.server != b.server && common >= 0
        && (common > kFewSecs || contains(a.span, b.span) || contains(b.span, a.span));
}

std::vector<std::vector<size_t>> groups(const std::vector<Portion> &portions)
{
    Stretches stretches(portions.size());
    std::vector<size_t> group(portions.size());
    if (portions.size() > 1) {
        for (size_t i = 0; i < portions.size(); ++i) {
            stretches[i] = roughly(portions[i]);
            if (!stretches[i])
                stretches[i] = exactly(portions[i]);
        }
        group = grouped(stretches);
        for (size_t i = 0; i < portions.size(); ++i) {
            if (std::count(group.begin(), group.end(), group[i]) > 1)
                stretches[i] = exactly(portions[i]);
        }
        group = grouped(stretches);
    }
    std::vector<std::vector<size_t>> result(portions.size());
    for (size_t i = 0; i < portions.size(); ++i)
        result[group[i]].push_back(i);
    std::erase_if(result, [](const std::vector<size_t> &indices) { return indices.empty(); });
    return result;
}

} // namespace vesk::nightly
