// What could not be read and where a scan does not go, shown the same way by `unreadable` and
// by `storage`, which lists them below its figures.
#pragma once

#include "cli/command.hpp"
#include "core/scan/unreadable.hpp"

namespace orvane::cli {

void addRefusalLines(Result& result, const RefusalSurvey& survey);
nlohmann::ordered_json unreadableJSON(const RefusalSurvey& survey);
nlohmann::ordered_json skippedJSON(const RefusalSurvey& survey);

}  // namespace orvane::cli
