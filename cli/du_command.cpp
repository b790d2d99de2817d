// orvane du: sizes as du measures them, and what du could not read.
#include "cli/command.hpp"
#include "core/common/format.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane::cli {
namespace {

// A whole home folder can take minutes; beyond an hour something is wrong with the disk.
constexpr double kDuTimeout = 3600;

Result runDu(const std::vector<std::string>& typed, const Invocation& in) {
    std::vector<std::string> paths;
    for (const auto& p : typed) paths.push_back(absolutePath(p));
    in.progress.show("Measuring " + counted(static_cast<std::int64_t>(paths.size()), "path") + " with du…");
    const auto batch = duBatchMeasure(paths, kDuTimeout, in.facts);

    Result result;
    bool allMeasured = true;
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const auto& path : paths) {
        const std::int64_t bytes = batch.sizes.count(path) ? batch.sizes.at(path) : -1;
        allMeasured = allMeasured && bytes >= 0;
        rows.push_back({{"path", path}, {"bytes", bytes}, {"size", sizeText(bytes)}});
        result.line(path + ": " + sizeText(bytes));
    }
    if (!batch.denied.empty()) {
        result.line();
        result.line("Not counted: du was not allowed to read these folders, so the sizes above leave them out.");
        for (const auto& folder : batch.denied) result.line("  " + folder);
    }
    result.json = {{"paths", std::move(rows)}, {"denied", batch.denied}, {"allMeasured", allMeasured}};
    result.status = allMeasured ? kDone : kRefused;
    return result;
}

}  // namespace

void addDuCommand(Registry& registry) {
    auto paths = std::make_shared<std::vector<std::string>>();
    auto* du = registry.add(
        "du",
        "Measure the disk space each PATH takes, as du counts it (allocated bytes, one file system). "
        "A size that could not be measured is \"unknown\", never zero. Folders du could not read are "
        "listed as not counted. Exit 0 when every path was measured, 1 when one is unknown.",
        [paths](const Invocation& in) { return runDu(*paths, in); });
    du->add_option("PATH", *paths, "Files or folders to measure")->required();
}

}  // namespace orvane::cli
