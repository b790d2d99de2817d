// orvane cloud: per synced cloud folder, what lives only in the cloud, what is here, and which
// files are probably copies, with the evidence and the plain word that contents were not compared.
#include <fmt/format.h>

#include <memory>

#include "cli/command.hpp"
#include "core/cloud/cloud_folder.hpp"
#include "core/cloud/oauth.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane::cli {

namespace {

struct CloudOptions {
    std::vector<std::string> roots;
    std::string provider;
};

struct Looked {
    CloudInventory inventory;
    std::optional<std::string> account;  // the marker, never the address
};

nlohmann::ordered_json fileJSON(const CloudFile& file) {
    return {{"path", file.path},
            {"bytes", file.bytes},
            {"modified", iso8601(file.modified)},
            {"onDisk", file.onDisk},
            {"localBytes", file.localBytes}};
}

nlohmann::ordered_json lookedJSON(const Looked& looked) {
    const CloudInventory& inventory = looked.inventory;
    nlohmann::ordered_json largest = nlohmann::ordered_json::array(), groups = nlohmann::ordered_json::array();
    for (const auto& file : inventory.largest) largest.push_back(fileJSON(file));
    for (const auto& group : inventory.dupeGroups) {
        nlohmann::ordered_json files = nlohmann::ordered_json::array(), signals = nlohmann::ordered_json::array();
        for (const auto& file : group.files) files.push_back(fileJSON(file));
        for (const auto& signal : group.signals())
            signals.push_back({{"label", signal.label}, {"agrees", signal.agrees}, {"detail", signal.detail}});
        groups.push_back({{"id", group.id()},
                          {"confidence", rawValue(group.confidence)},
                          {"explanation", explanation(group.confidence)},
                          {"reclaimable", group.reclaimable()},
                          {"files", std::move(files)},
                          {"signals", std::move(signals)}});
    }
    return {{"provider", inventory.provider},
            {"account", looked.account ? nlohmann::ordered_json(*looked.account) : nlohmann::ordered_json()},
            {"root", inventory.root},
            {"files", inventory.files},
            {"cloudOnly", inventory.cloudOnly},
            {"remoteBytes", inventory.remoteBytes},
            {"localBytes", inventory.localBytes},
            {"opaque", inventory.opaque},
            {"largest", std::move(largest)},
            {"dupeGroups", std::move(groups)}};
}

// A file's path under the root it was found in, which is how a person knows it in that folder.
std::string underRoot(const CloudFile& file, const std::string& root) {
    return isAtOrBelow(file.path, root) && file.path.size() > root.size() + 1 ? file.path.substr(root.size() + 1)
                                                                                : file.path;
}

std::string whereText(const CloudFile& file) {
    return file.onDisk ? "here, " + sizeText(file.localBytes) : "only in the cloud";
}

void describe(const Looked& looked, Result& result) {
    const CloudInventory& inventory = looked.inventory;
    result.line(inventory.provider + (looked.account ? ", " + *looked.account : ""));
    result.line("  " + inventory.root);
    std::string files = "  " + counted(inventory.files, "file") + ", " + fmt::format("{}", inventory.cloudOnly) +
                        " only in the cloud";
    if (inventory.opaque > 0)
        files += ", " + counted(inventory.opaque, "cloud document") + " whose real size can't be read here";
    result.line(files);
    result.line("  In the cloud: " + sizeText(inventory.remoteBytes) + " · here: " + sizeText(inventory.localBytes));
    if (!inventory.largest.empty()) {
        result.line("  Largest:");
        Table table({Table::Align::right, Table::Align::left, Table::Align::left});
        for (const auto& file : inventory.largest)
            table.row({"    " + sizeText(file.bytes), underRoot(file, inventory.root), "(" + whereText(file) + ")"});
        for (auto& line : table.lines()) result.line(std::move(line));
    }
    if (inventory.dupeGroups.empty()) {
        result.line("  No probable duplicates.");
        return;
    }
    std::int64_t reclaimable = 0;
    for (const auto& group : inventory.dupeGroups) reclaimable += group.reclaimable();
    result.line("  Probable duplicates: " + counted(static_cast<std::int64_t>(inventory.dupeGroups.size()), "group") +
                "; removing the extra copies would give back up to " + sizeText(reclaimable) + " of your cloud plan");
    for (const auto& group : inventory.dupeGroups) {
        result.line();
        result.line(fmt::format("  {} — {} of {} each, {} reclaimable", rawValue(group.confidence),
                                counted(static_cast<std::int64_t>(group.files.size()), "file"),
                                sizeText(group.files.front().bytes), sizeText(group.reclaimable())));
        result.line("    " + std::string(explanation(group.confidence)));
        for (const auto& file : group.files)
            result.line("    " + underRoot(file, inventory.root) + "  (" + whereText(file) + ")");
        for (const auto& signal : group.signals())
            result.line(std::string("    ") + (signal.agrees ? "✓ " : "✗ ") + signal.label + ": " + signal.detail);
        result.line("    " + std::string(kCloudDupeCaveat));
    }
}

Result runCloud(const CloudOptions& options, const Invocation& in) {
    struct Target {
        std::string provider;
        std::optional<std::string> account;
        std::string root;
    };
    std::vector<Target> targets;
    if (options.roots.empty()) {
        // Without a ROOT the name picks among the folders, as a person with two drives would use it.
        for (auto& folder : cloudStorageFolders(in.facts))
            if (options.provider.empty() || lowercased(folder.provider) == lowercased(options.provider))
                targets.push_back({folder.provider,
                                   folder.account.empty() ? std::nullopt
                                                          : std::optional<std::string>(ledgerAccountMarker(folder.account)),
                                   folder.root});
    } else {
        for (const auto& typed : options.roots) {
            const std::string root = readableFolder(absolutePath(typed), in.facts);
            targets.push_back({options.provider.empty() ? lastPathComponent(root) : options.provider, std::nullopt, root});
        }
    }

    Result result;
    result.json = {{"providers", nlohmann::ordered_json::array()}, {"caveat", kCloudDupeCaveat}};
    if (targets.empty()) {
        result.line("No cloud folder " + (options.provider.empty() ? "" : "of " + options.provider + " ") + "in " +
                    in.facts.home("Library/CloudStorage") + ".");
        return result;
    }
    for (const auto& target : targets) {
        in.progress.show("Looking through " + target.provider + "…");
        Looked looked{takeCloudInventory(target.provider, target.root, in.facts,
                                         [&](std::int64_t files) {
                                             in.progress.show(fmt::format("Looking through {}… {} files",
                                                                          target.provider, files));
                                         }),
                      target.account};
        in.progress.clear();
        if (!result.lines.empty()) result.line();
        describe(looked, result);
        result.json["providers"].push_back(lookedJSON(looked));
    }
    return result;
}

}  // namespace

void addCloudCommands(Registry& registry) {
    auto options = std::make_shared<CloudOptions>();
    auto* cloud = registry.add(
        "cloud",
        "Look through synced cloud folders: without ROOT, every folder of ~/Library/CloudStorage (named "
        "\"Provider-account\"; the account is shown only by its domain). Per provider: its files, those only in the "
        "cloud (a placeholder here, less than a tenth of the file on this disk), the size in the cloud and here, "
        "native cloud documents whose size can't be read, the largest files, and the probable duplicates: files of "
        "1 MB or more with the same size and the same second of modification, with the evidence for and against. "
        "Contents are never compared, since that would mean downloading them. Nothing is changed. Exit 2 when a "
        "ROOT is not a folder.",
        [options](const Invocation& in) { return runCloud(*options, in); });
    cloud->add_option("ROOT", options->roots, "Cloud folders to look through instead of ~/Library/CloudStorage");
    cloud->add_option("--provider", options->provider,
                      "With ROOT, the provider's name to show (default: the folder's name); without, only that "
                      "provider's folders");
    addCloudFetchCommand(registry, *cloud);
}

}  // namespace orvane::cli
