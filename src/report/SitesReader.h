#pragma once

#include "report/SiteReader.h"
#include "report/Sites.h"
#include "report/Task.h"

/// Reads what is known of all sites.
namespace vesk::report {

struct KnownSite
{
    ReportedSite site;
    Facts facts;
};

/// What is known of \a sites. Nothing, after a message, when it cannot be read.
std::optional<QList<KnownSite>> readFacts(const QList<Site> &sites);

/// What the words for periods go by when several sites are meant: the last complete day of any.
Calendar calendarOf(const QList<KnownSite> &sites);

/// The figures of \a sites in a period, and what is wrong with them. Nothing, after a message, when
/// they cannot be read.
std::optional<Overview> readOverview(const QList<KnownSite> &sites, const Period &period,
    const Options &options, const Limits &limits);

} // namespace vesk::report
