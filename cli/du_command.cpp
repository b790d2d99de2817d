// orvane du: sizes as du measures them, and what du could not read.
#include <unistd.h>

#include <iostream>

#include "cli/context.hpp"
#include "core/common/format.hpp"
#include "core/common/path.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane::cli {
namespace {

// A whole home folder can take minutes; beyond an hour something is wrong with the disk.
constexpr double kDuTimeout = 3600;

struct DuOptions {
    std::vector<std::string> paths;
    bool json = false;
};

int runDu(const DuOptions& options) {
    std::vector<std::string> paths;
    for (const auto& p : options.paths) paths.push_back(absolutePath(p));

    const bool showProgress = !options.json && ::isatty(STDERR_FILENO);
    if (showProgress) std::cerr << "Measuring " << paths.size() << (paths.size() == 1 ? " path" : " paths") << " with du…" << std::flush;
    auto batch = duBatchMeasure(paths, kDuTimeout);
    if (showProgress) std::cerr << "\r\033[K" << std::flush;

    bool allMeasured = true;
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const auto& path : paths) {
        const std::int64_t bytes = batch.sizes.count(path) ? batch.sizes.at(path) : -1;
        allMeasured = allMeasured && bytes >= 0;
        const std::string size = bytes < 0 ? "unknown" : fmtBytes(bytes);
        if (options.json) rows.push_back({{"path", path}, {"bytes", bytes}, {"size", size}});
        else printLine(path + ": " + size);
    }
    if (options.json) {
        nlohmann::ordered_json out;
        out["paths"] = std::move(rows);
        out["denied"] = batch.denied;
        out["allMeasured"] = allMeasured;
        printJSON(out);
    } else if (!batch.denied.empty()) {
        printLine("");
        printLine("Not counted: du was not allowed to read these folders, so the sizes above leave them out.");
        for (const auto& folder : batch.denied) printLine("  " + folder);
    }
    return allMeasured ? kDone : kRefused;
}

}  // namespace

void addDuCommand(CLI::App& app, Context& context) {
    auto options = std::make_shared<DuOptions>();
    auto* du = app.add_subcommand(
        "du",
        "Measure the disk space each PATH takes, as du counts it (allocated bytes, one file system). "
        "A size that could not be measured is \"unknown\", never zero. Folders du could not read are "
        "listed as not counted. Exit 0 when every path was measured, 1 when one is unknown.");
    du->add_option("PATH", options->paths, "Files or folders to measure")->required();
    du->add_flag("--json", options->json, "Print the result as JSON");
    du->callback([options, &context] { context.exitCode = runDu(*options); });
}

}  // namespace orvane::cli
