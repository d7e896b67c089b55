#pragma once

#include "report/Format.h"
#include "report/Period.h"

#include <QDate>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

/// What there is to say about a site in a period, as plain values. The reader fills it, the writers
/// show it. Texts are as stored: each writer makes them safe for its medium.
namespace vesk::report {

/// A total, of people and of everyone (people and unverified browsers), next to the period before.
struct Figure
{
    QString id; ///< the name in JSON
    QString name;
    Unit unit = Unit::Count;
    Value people {};
    Value peopleBefore {};
    Value everyone {};
    Value everyoneBefore {};
    QString meaning {}; ///< of totals that are the same for both
};

/// The lists of a report, and lines from which no list is made: requests and bytes of each day,
/// names of campaigns, and by what people were told from programs.
// clang-format off
enum class ListId {
    Pages, EntryPages, ExitPages, VisitLengths, VisitPages,
    SourceKinds, Sources, SearchTerms, Campaigns, TermsAndCampaigns,
    Countries, Devices, Browsers, Systems, Crawlers, MissingPages,
    StatusClasses, Statuses, Clients, FileTypes, MissingFiles, Errors, SlowPaths, Downloads,
    ScannerAddresses, Queries, Days, CampaignNames, PeopleBy
};
// clang-format on

struct Column
{
    QString id; ///< the name in JSON
    QString head;
    Unit unit = Unit::Count;
};

struct ListRow
{
    QString key; ///< a path, a code, a name
    QString name; ///< how it is shown when that is not the key
    QString detail; ///< what is shown with it: the kind of a source, where a missing file is linked
    QList<Value> values; ///< one for each column
    Value before {}; ///< the first one in the period before

    const QString &shown() const { return name.isEmpty() ? key : name; }
};

/// The first rows of a table, the most important ones first.
struct List
{
    QString id; ///< the name in JSON
    QString title;
    Column key {}; ///< of the rows' keys; its unit means nothing
    QString detailId {}; ///< the name of details in JSON; empty when there are none
    QList<Column> columns {};
    QList<ListRow> rows {};
    qint64 total = 0; ///< how many rows there are
    qint64 summedUp = 0; ///< those of them of which only the sum is kept
    QString note {};
    bool isLinked = false; ///< details are addresses that link to the key

    QStringList heads() const; ///< of the keys and of the columns
};

/// The course of something, as bars. The first column is a bar, a second one of the same unit
/// stands on top of it.
struct Chart
{
    List numbers; ///< rows without values are gaps
    bool stacked = true;
    QStringList ticks {}; ///< below the bars; empty where there is none

    /// Of a bar: the height of its lower part, and of all of it.
    std::pair<double, double> heights(const ListRow &row) const;
};

/// What days had, for a chart with as many bars as a medium has room for.
struct DaySeries
{
    List numbers; ///< without rows
    Period period {};
    QMap<QDate, QList<Value>> values {}; ///< of the days of which anything is known
    bool stacked = true;
};

/// By what the visitors of a period were told from programs: each counts once, by the first of
/// these that it showed.
struct PeopleBy
{
    double beacon = 0; ///< a time on page
    double styleSheet = 0; ///< or a script or a font
    double referrer = 0; ///< which anybody can make up
};

/// What the web server did, from the single requests.
struct Server
{
    bool known = false; ///< false when there are no requests to read
    bool complete = false; ///< no request of the period has been deleted
    QString note {}; ///< why not
    QList<Figure> totals {}; ///< in everyone
    DaySeries days {};
    QMap<ListId, List> lists {};
};

struct SearchEngine
{
    QString name;
    QDate newest; ///< engines report days later
    int days = 0; ///< of the period that there are figures of
    QList<Figure> figures; ///< in everyone and everyoneBefore
};

struct Search
{
    QString note {}; ///< why nothing is known
    Period period {};
    QList<SearchEngine> engines {};
    List queries {};
};

struct Report
{
    QString host;
    QString siteName;
    Period period;
    Period before;
    int days = 0; ///< of the period that have a report
    bool compared = false; ///< with the period before
    QStringList notes; ///< on gaps, on the newest day, on what it is compared with
    bool everyone = false; ///< the lists count unverified browsers, too

    QList<Figure> totals;
    QList<Figure> requests;
    DaySeries visitors; ///< of a single day also of those before
    QList<Chart> charts; ///< weekdays for four weeks or more, hours
    QMap<ListId, List> lists; ///< of the roll-up, and of visits when there are requests to read
    std::optional<PeopleBy> peopleBy; ///< known when there are requests to read
    Server server;
    Search search;
};

/// Those of \a lists that are there, in the order of \a ids.
QList<List> pick(const QMap<ListId, List> &lists, std::initializer_list<ListId> ids);

/// Which of the rows that \a list leaves out can be had, and which cannot: " (--rows all)".
QString hintOn(const List &list);

/// A referrer as it is shown: a page of the site itself by its path, decoded as paths are.
QString shownLink(const QString &referrer, const QString &site);

/// "People by a style sheet 12, by a beacon 3, by a referrer alone 4."
QString peopleLine(const PeopleBy &people);

/// "example.org · Garden notes"
QString siteTitle(const QString &host, const QString &name);

/// "Monday, 2 March 2026", "1 to 3 March 2026 (3 days)"
QString periodTitle(const Report &report);

} // namespace vesk::report
