#pragma once

#include "report/Task.h"

/// What only the single requests tell.
namespace vesk::report {

/// The part of the server, as far as there are requests to read. \a lines gets all that they tell,
/// also of visits.
Server readServer(Task &task, Lines &lines);

/// By what people were told from programs, among \a lines.
PeopleBy peopleByOf(const Lines &lines);

/// The lists of visits among \a lines.
QMap<ListId, List> visitLists(const Lines &lines);

} // namespace vesk::report
