#pragma once

#include <QByteArray>
#include <QHash>

namespace vesk::analytics {

/// Remembers what a pure function gave for texts that come again and again, such as user agents.
/// Its memory is bounded: it forgets everything when it is full and never keeps long texts, of
/// which a hostile client can send any number.
template <typename Value> class Memo
{
public:
    explicit Memo(qsizetype maxEntries)
        : m_maxEntries(maxEntries)
    {
    }

    /// The value remembered for \a text, else what \a compute() gives.
    template <typename Compute> Value get(const QByteArray &text, Compute compute)
    {
        const auto known = m_values.constFind(text);
        if (known != m_values.constEnd())
            return *known;
        Value value = compute();
        if (text.size() <= kMaxTextBytes) {
            if (m_values.size() >= m_maxEntries)
                m_values.clear();
            m_values.insert(text, value);
        }
        return value;
    }

    void clear() { m_values.clear(); }

private:
    static constexpr qsizetype kMaxTextBytes = 512;

    QHash<QByteArray, Value> m_values;
    qsizetype m_maxEntries;
};

} // namespace vesk::analytics
