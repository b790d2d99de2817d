// orvane compress-estimate: what rewriting the given files in compressed form would give back,
// from a few samples compressed on the spot. Nothing is rewritten or remembered.
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <set>

#include "cli/command.hpp"
#include "core/common/path.hpp"
#include "core/relocation/compact_estimate.hpp"

namespace orvane::cli {
namespace {

struct CompressOptions {
    std::vector<std::string> paths;
};

SpaceItem fileItem(const std::string& path, const platform::FileFacts& facts) {
    SpaceItem item;
    item.id = path;
    item.title = lastPathComponent(path);
    item.sizeBytes = facts.allocatedBytes;  // as the scanner values a file
    return item;
}

// The regular files under `root`, links not followed and the walk kept on the root's file system.
void addFilesUnder(const std::string& root, std::uint64_t device, const Facts& facts, std::vector<SpaceItem>& items,
                   std::set<std::string>& seen, Progress& progress) {
    std::vector<std::string> folders = {root};
    std::size_t shownAt = 0;
    while (!folders.empty()) {
        const std::string folder = std::move(folders.back());
        folders.pop_back();
        auto entries = facts.list(folder);
        if (!entries) continue;
        std::sort(entries->begin(), entries->end(), [](const auto& a, const auto& b) { return a.name < b.name; });
        for (auto it = entries->rbegin(); it != entries->rend(); ++it) {
            if (it->isLink) continue;
            const std::string path = appendingPathComponent(folder, it->name);
            const auto entry = facts.lstat(path);
            if (!entry || entry->device != device) continue;
            if (entry->isDirectory()) folders.push_back(path);
            else if (entry->isRegularFile() && seen.insert(path).second) items.push_back(fileItem(path, *entry));
        }
        if (items.size() >= shownAt + 1000) {
            shownAt = items.size();
            progress.show(fmt::format("Looking through {}… {} files", root, items.size()));
        }
    }
    progress.clear();
}

Result runCompressEstimate(const CompressOptions& options, const Invocation& in) {
    if (in.facts.recorded)
        throw OVError("The compress-estimate command compresses this machine's files, and a recorded Mac holds none of "
                      "their bytes.");
    Result result;
    std::vector<SpaceItem> items;
    std::set<std::string> seen;
    for (const auto& typed : options.paths) {
        const std::string path = standardizePath(absolutePath(typed), [](const std::string&) { return false; });
        const auto facts = in.facts.lstat(path);
        if (!facts) throw OVError(path + " does not exist.");
        if (facts->isDirectory())
            addFilesUnder(path, facts->device, in.facts, items, seen, in.progress);
        else if (facts->isRegularFile() && seen.insert(path).second)
            items.push_back(fileItem(path, *facts));
        else if (!facts->isRegularFile())
            result.notes.push_back(path + " is neither a file nor a folder, so it is left out: links are not followed.");
    }

    const CompactEstimate estimate = compactEstimate(items);
    const auto known = incompressibleKeys();
    const auto isKnown = [&](const std::string& path) {
        const auto key = incompressibleKey(path);
        return key && std::find(known.begin(), known.end(), *key) != known.end();
    };

    nlohmann::ordered_json sample = nlohmann::ordered_json::array();
    Table table({Table::Align::right, Table::Align::left, Table::Align::left});
    for (const auto& sampled : estimate.sample) {
        const bool knownIncompressible = isKnown(sampled.item.id);
        sample.push_back({{"path", sampled.item.id},
                          {"sizeBytes", sampled.item.sizeBytes},
                          {"estimate", sampled.estimate ? nlohmann::ordered_json(*sampled.estimate) : nlohmann::ordered_json()},
                          {"knownIncompressible", knownIncompressible}});
        table.row({sizeText(sampled.item.sizeBytes), sampled.item.id,
                   (sampled.estimate ? "→ about " + sizeText(*sampled.estimate) : std::string("→ no estimate")) +
                       (knownIncompressible ? " (known not to compress)" : "")});
    }
    result.json = {{"line", estimate.line},
                   {"total", estimate.total},
                   {"files", estimate.files},
                   {"sampled", estimate.sampled},
                   {"estimated", estimate.estimated},
                   {"percent", estimate.percent ? nlohmann::ordered_json(*estimate.percent) : nlohmann::ordered_json()},
                   {"sample", std::move(sample)}};

    std::string_view line = estimate.line;
    while (line.starts_with('\n')) line.remove_prefix(1);
    result.line(std::string(line));
    if (!table.empty()) {
        result.line();
        for (auto& row : table.lines()) result.line("  " + row);
    }
    return result;
}

}  // namespace

void addCompressEstimateCommand(Registry& registry) {
    auto options = std::make_shared<CompressOptions>();
    auto* command = registry.add(
        "compress-estimate",
        "What compressing the files at PATH in place would give back, estimated from samples of at most 20 of them "
        "compressed just now: each file counts with its allocated bytes, and a folder with the regular files under "
        "it (links not followed, on its own file system). Lists the sampled files, marking those already known not "
        "to compress. Nothing is changed. Exit 2 when a PATH does not exist.",
        [options](const Invocation& in) { return runCompressEstimate(*options, in); });
    command->add_option("PATH", options->paths, "Files and folders to estimate")->required();
}

}  // namespace orvane::cli
