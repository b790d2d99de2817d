// orvane janitors: the tools on this machine that clean their own caches, and running one of
// them with the user's confirmation. The tool does the deleting.
#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "cli/command.hpp"
#include "core/common/text.hpp"
#include "core/cleanup/vendor_janitors.hpp"
#include "core/common/byte_counts.hpp"
#include "core/common/path.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane::cli {
namespace {

// Some clean-ups (a large Docker build cache) take many minutes; an hour means it is stuck.
constexpr double kJanitorTimeout = 3600;
constexpr double kMeasureTimeout = 600;

struct JanitorsOptions {
    std::string runID;
    bool yes = false;
};

std::string commandLine(const std::string& binary, const std::vector<std::string>& args) {
    std::string line = binary;
    for (const auto& a : args) line += " " + a;
    return line;
}

Result listJanitors(const Invocation& in) {
    in.progress.show("Checking which janitors' tools are installed and run…");
    const auto found = detectVendorTools(in.facts);
    in.progress.clear();

    Result result;
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const auto& [tool, path] : found) {
        std::vector<std::string> command = {path};
        command.insert(command.end(), tool.args.begin(), tool.args.end());
        list.push_back({{"id", tool.id},
                        {"title", tool.title},
                        {"path", path},
                        {"command", command},
                        {"note", tool.note},
                        {"removesStoppedContainers", tool.removesStoppedContainers}});
    }
    result.json = {{"janitors", std::move(list)}};
    if (found.empty()) {
        result.line("No janitor's tool is installed and working on this machine.");
        return result;
    }
    for (const auto& [tool, path] : found) {
        result.line(tool.title + " (" + tool.id + ")");
        result.line("  tool:   " + path);
        result.line("  cleans: " + commandLine(path, tool.args));
        result.line("  " + tool.note);
        result.line();
    }
    result.line("Run one with: orvane janitors run ID");
    return result;
}

// The sizes of the cache folders this janitor empties; -1 when one could not be measured.
std::int64_t cacheBytes(const std::vector<std::string>& folders, const Facts& facts) {
    std::int64_t total = 0;
    for (const auto& folder : folders) {
        if (!facts.exists(folder)) continue;
        const std::int64_t bytes = duBatchSizes({folder}, kMeasureTimeout, facts)[folder];
        if (bytes < 0) return -1;
        total = addBytesOrUnknown(total, bytes);
        if (total < 0) return -1;
    }
    return total;
}

// The one exchange with a person in the middle of a command, so it is written as it happens.
bool confirmed(const JanitorConfirmation& confirmation) {
    std::cout << escapeControlCharacters(confirmation.title) << "\n\n"
              << escapeControlCharacters(confirmation.message) << "\n\nGo ahead? [y/N] " << std::flush;
    return answeredYes();
}

Result runJanitor(const JanitorsOptions& options, const Invocation& in) {
    const auto table = vendorToolTable(in.facts);
    auto row = std::find_if(table.begin(), table.end(), [&](const VendorTool& t) { return t.id == options.runID; });
    if (row == table.end())
        throw OVError("No janitor is called \"" + options.runID + "\"; orvane janitors lists the ones here.");
    // Asked before anything runs, even the harmless preflight.
    if (!options.yes && in.json) throw OVError("With --json, give --yes: the confirmation cannot be asked in JSON output.");
    if (!options.yes && !in.facts.recorded && !::isatty(STDIN_FILENO))
        throw OVError("Nothing was run: confirm on a terminal, or give --yes.");
    const auto found = detectVendorTools({*row}, in.facts);
    Result result;
    if (found.empty()) {
        result.status = kRefused;
        result.notes.push_back("The " + row->title + " janitor's tool is not installed here, or it did not pass its "
                               "harmless run (" +
                               commandLine(lastPathComponent(row->candidates.front()), row->preflightArgs) + ").");
        result.json = {{"id", row->id}, {"done", false}};
        return result;
    }
    const VendorTool& tool = found.front().tool;
    const std::string& binary = found.front().path;
    if (in.facts.recorded) return nothingChangedOnARecording({"Would run " + commandLine(binary, tool.args) + "."});

    if (!options.yes && !confirmed(vendorJanitorConfirmation(tool, binary))) {
        result.status = kRefused;
        result.line("Nothing was run.");
        result.json = {{"id", tool.id}, {"done", false}};
        return result;
    }

    const auto folders = vendorJanitorCachePaths(tool.id, in.facts);
    const std::int64_t before = cacheBytes(folders, in.facts);
    if (!in.json) std::cout << escapeControlCharacters("Running " + commandLine(binary, tool.args) + " …") << std::endl;
    const ToolRun run = runVendorJanitor(tool, binary, kJanitorTimeout, in.facts);
    const std::int64_t after = cacheBytes(folders, in.facts);
    const JanitorSpaceClaim claim = before > 0 && after >= 0 && before > after
                                        ? JanitorSpaceClaim::approximate(before - after)
                                        : JanitorSpaceClaim::none();

    const bool done = run.status == 0 && !run.timedOut;
    std::string message;
    if (done) message = janitorDoneStatus(claim);
    else if (run.timedOut) message = "✗ " + tool.title + "'s cleanup did not finish within an hour and was stopped.";
    else if (run.status < 0) message = "✗ " + tool.title + "'s cleanup could not be started.";
    else message = "✗ " + tool.title + "'s cleanup ended with status " + std::to_string(run.status) + ".";

    {
        nlohmann::ordered_json out;
        out["id"] = tool.id;
        out["path"] = binary;
        out["status"] = run.status;
        out["timedOut"] = run.timedOut;
        out["output"] = run.lines;
        out["done"] = done;
        out["approximateBytes"] = claim.bytes() ? nlohmann::ordered_json(*claim.bytes()) : nullptr;
        out["message"] = message;
        result.json = std::move(out);
    }
    for (const auto& line : run.lines) result.line("  " + line);
    result.line(message);
    result.status = done ? kDone : kRefused;
    return result;
}

}  // namespace

void addJanitorsCommand(Registry& registry) {
    auto options = std::make_shared<JanitorsOptions>();
    auto* janitors = registry.add(
        "janitors",
        "List the janitors usable here: developer tools with their own clean-up command (Homebrew, Docker, npm, "
        "pip, Go, ...) that are installed and pass a harmless run such as --version. Each shows the tool's path "
        "and the command that would clean. Nothing is run but those harmless runs; `orvane janitors run ID` runs "
        "one clean-up.",
        listJanitors);

    auto* run = registry.add(
        *janitors, "run",
        "Run janitor ID's own clean-up command, after showing what it does and asking for confirmation on a "
        "terminal. It deletes permanently: the tool does the removing, and nothing goes to the Trash. Exit 0 when "
        "the tool reported success, 1 when it failed or the answer was no, 2 when there was nothing to confirm "
        "on and --yes was not given. --json needs --yes.",
        [options](const Invocation& in) { return runJanitor(*options, in); });
    run->add_option("ID", options->runID, "The janitor's id, as orvane janitors lists it (npm, brew, docker, ...)")
        ->required();
    run->add_flag("--yes", options->yes, "Run without asking");
}

}  // namespace orvane::cli
