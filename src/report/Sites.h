#pragma once

#include "report/Format.h"
#include "report/Judgement.h"
#include "report/Period.h"

#include <QByteArray>
#include <QStringList>

/// What there is to say about all sites, as plain values.
namespace vesk::report {

/// A site in a period, or all of them together.
struct SiteLine
{
    QString host;
    QString name {};
    QString folder {}; ///< of its pages, below that of the overview; empty when there is none
    QDate newest {}; ///< the newest day with requests
    int days = 0; ///< of the period that have a report; without any no figure is known
    Value visitors {};
    Value visits {};
    Value pageviews {};
    Value requests {};
    Value botRequests {};
    Value bytes {}; ///< unknown where requests have been deleted or may not be read
    Value errors {}; ///< server errors; likewise
    Value compared {}; ///< the visitors that may be compared, and those before
    Value visitorsBefore {};
    QList<Finding> findings {};

    Value botShare() const;
};

/// A page with another period.
struct OtherPage
{
    QString title;
    QString file; ///< empty for the page itself
};

struct Overview
{
    Period period;
    bool everyone = false; ///< figures count unverified browsers, too
    QStringList notes {};
    QList<SiteLine> sites {}; ///< the worst first, then the busiest
    SiteLine total {}; ///< without a host and findings
    QList<OtherPage> pages {};
};

/// Puts the sites in order and adds them up. Rates are those of the sums.
void arrange(Overview &overview);

/// Of how many days of a period the figures of a site are; empty when of all or there are none.
QString gapOf(const SiteLine &site, const Period &period);

/// "Data and server errors are not known of 2 sites." and the like.
QStringList gapsOf(const Overview &overview);

/// For a terminal, at most 80 columns but for what is wrong.
QByteArray toText(const Overview &overview);

/// A web page in one file, without script, that loads nothing.
QByteArray toHtml(const Overview &overview);

/// Everything, as docs/reports.md describes it.
QByteArray toJson(const Overview &overview);

} // namespace vesk::report
