#pragma once

#include "report/Report.h"
#include "report/SiteReader.h"
#include "report/Task.h"

#include <optional>

/// Reads reports from the database, which it never changes.
namespace vesk::report {

/// A read-only transaction: all that is read in it is of one moment. It works on a standby, too.
class Snapshot
{
public:
    Snapshot();
    ~Snapshot();
    Q_DISABLE_COPY_MOVE(Snapshot)

    /// False, after a message, when it could not begin.
    bool isOpen() const { return m_open; }

private:
    bool m_open = false;
};

/// The report of a period. Nothing, after a message, when there is none.
std::optional<Report> readReport(
    const ReportedSite &site, const Period &period, const Options &options);

} // namespace vesk::report
