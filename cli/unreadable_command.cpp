// orvane unreadable: what a scan of a folder could not read, why, and what would fix it; and
// where a scan of the startup disk does not go.
#include "cli/refusals.hpp"

namespace orvane::cli {

void addRefusalLines(Result& result, const RefusalSurvey& survey) {
    if (survey.unreadable.empty()) {
        result.line("Every folder could be read.");
    } else {
        result.line(counted(static_cast<std::int64_t>(survey.unreadable.size()), "folder") +
                    " could not be read; no total includes them:");
        for (const auto& folder : survey.unreadable) {
            result.line("  " + folder.path);
            result.line("    " + folder.explanation());
            if (auto fix = folder.fix()) result.line("    Fix: " + *fix);
        }
    }
    if (!survey.skipped.empty()) {
        result.line();
        result.line("Not scanned:");
        for (const auto& place : survey.skipped) {
            result.line("  " + place.title + ": " + place.path);
            result.line("    " + std::string(place.explanation()));
        }
    }
    result.line();
    result.line(survey.fdaGranted ? "Full Disk Access counts as granted: the private folders it guards can be read."
                                  : "Full Disk Access is not granted: the private folders it guards cannot be read.");
}

nlohmann::ordered_json unreadableJSON(const RefusalSurvey& survey) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const auto& folder : survey.unreadable) list.push_back(toJSON(folder));
    return list;
}

nlohmann::ordered_json skippedJSON(const RefusalSurvey& survey) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const auto& place : survey.skipped) list.push_back(toJSON(place));
    return list;
}

namespace {

Result runUnreadable(const std::string& typed, const Invocation& in) {
    const std::string folder = readableFolder(typed, in.facts);
    in.progress.show("Looking for folders under " + folder + " that cannot be read…");
    const RefusalSurvey survey = surveyRefusals(folder, in.facts);

    Result result;
    addRefusalLines(result, survey);
    result.json = {{"fullDiskAccess", survey.fdaGranted},
                   {"unreadable", unreadableJSON(survey)},
                   {"skipped", skippedJSON(survey)}};
    result.status = survey.unreadable.empty() ? kDone : kRefused;
    return result;
}

}  // namespace

void addUnreadableCommand(Registry& registry) {
    auto path = std::make_shared<std::string>();
    auto* command = registry.add(
        "unreadable",
        "List the folders under PATH (the home when none is given) that this user may not read, with why and "
        "what would fix it, the places a scan of the startup disk does not enter (cloud drives, other drives "
        "and network shares), and whether Full Disk Access counts as granted. Nothing is scanned. Exit 0 when "
        "every folder could be read, 1 when one could not.",
        [path](const Invocation& in) { return runUnreadable(*path, in); });
    command->add_option("PATH", *path, "The folder to look into (default: the home)");
}

}  // namespace orvane::cli
