#pragma once

#include "common/Sites.h"

namespace vesk::nightly {

/// Notes in vesk_nightly.runs how a run for a site ended: when, since when runs fail, and the first
/// thing that this one said was wrong. While the object lives it listens to messages; one at a time
/// may.
class RunNote
{
public:
    explicit RunNote(const Site &site);
    ~RunNote();
    Q_DISABLE_COPY_MOVE(RunNote)

    /// Notes the end. False, after a message, when that is not kept.
    bool save(bool done);

private:
    const Site &m_site;
    QString m_complaint;
};

} // namespace vesk::nightly
