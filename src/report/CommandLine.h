#pragma once

#include "report/Judgement.h"
#include "report/Task.h"

#include <optional>

class QCommandLineParser;

/// What the command line of vesk-report says.
namespace vesk::report {

void addOptions(QCommandLineParser &parser);

/// What the options for reports say. Nothing, after a message, when one has a wrong value.
std::optional<Options> optionsOf(const QCommandLineParser &parser);

/// The limits for what is wrong with a site. Nothing, after a message, when one has a wrong value.
std::optional<Limits> limitsOf(const QCommandLineParser &parser);

struct Arguments
{
    QString host; ///< empty when none is named
    QString period; ///< likewise
};

/// The arguments, as the options take them. Alone, one is a period when it reads as one. Nothing
/// when there are too many, or when options exclude each other.
std::optional<Arguments> argumentsOf(const QCommandLineParser &parser);

} // namespace vesk::report
