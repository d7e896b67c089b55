#pragma once

#include "translate/Format.h"
#include "translate/LineSource.h"
#include "translate/SiteHosts.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

#include <optional>

namespace vesk::translate {

/// A log in any of the formats as combined lines, those of one site or of all. One line is in
/// memory at a time.
///
/// The format is that of the first line that is an entry. Where a line is none in it, but is one in
/// another format that names hosts, the log goes on in that one: the web server was told to.
/// Other lines that are no entries are handed on as they are, so that they are counted, and blank
/// lines as well. What analytics::parseCombined() would take although it is no entry of the log is
/// handed on with round brackets in place of square ones, which it refuses. So a line comes out for
/// each line, but for those of other hosts.
class TranslatedLog
{
public:
    /// \a lines gives the lines of the log. Without \a hosts all are taken, as they are where the
    /// format, or a line's entry, names no host.
    explicit TranslatedLog(LineSource lines, std::optional<SiteHosts> hosts = {});

    /// The next line, valid until the next call; nothing after the last.
    std::optional<QByteArrayView> next();

    /// Those seen so far, in the order in which they begin.
    const QList<Format> &formats() const { return m_formats; }

    /// Lines taken from the log so far, blank ones too.
    qint64 lines() const { return m_lines; }
    /// Those of them that were left out, since they are of other hosts.
    qint64 othersLines() const { return m_othersLines; }
    /// Those of them that are no entries in the log's format. In formats that name no host only the
    /// parser tells, and they are not counted here.
    qint64 strangeLines() const { return m_strangeLines; }

private:
    std::optional<Entry> entryOf(QByteArrayView line);
    QByteArrayView refusable(QByteArrayView line);

    LineSource m_source;
    std::optional<SiteHosts> m_hosts;
    std::optional<Format> m_format; ///< that of the latest entry
    QList<Format> m_formats;
    QByteArray m_line; ///< the one handed out, if it is not the log's own
    qint64 m_lines = 0;
    qint64 m_othersLines = 0;
    qint64 m_strangeLines = 0;
};

} // namespace vesk::translate
