#include "core/cloud/cloud_folder.hpp"

#include <algorithm>
#include <array>

#include "core/common/checked.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {

namespace {

// Smaller files never group as probable copies, so the walk keeps no record of them.
constexpr std::int64_t kGroupedFromBytes = 1'000'000;

bool largerFirst(const CloudFile& a, const CloudFile& b) {
    return a.bytes != b.bytes ? a.bytes > b.bytes : a.path < b.path;
}

void keepIfLargest(std::vector<CloudFile>& largest, const CloudFile& file) {
    if (largest.size() == kCloudLargestKept && !largerFirst(file, largest.back())) return;
    largest.insert(std::upper_bound(largest.begin(), largest.end(), file, largerFirst), file);
    if (largest.size() > kCloudLargestKept) largest.pop_back();
}

}  // namespace

std::vector<CloudStorageFolder> cloudStorageFolders(const Facts& facts) {
    const std::string base = facts.home("Library/CloudStorage");
    auto entries = facts.list(base);
    if (!entries) return {};
    std::vector<CloudStorageFolder> folders;
    for (const auto& entry : *entries) {
        if (!entry.isFolder || entry.name.starts_with(".")) continue;
        const auto dash = entry.name.find('-');
        CloudStorageFolder folder{entry.name.substr(0, dash),
                                  dash == std::string::npos ? "" : entry.name.substr(dash + 1),
                                  appendingPathComponent(base, entry.name)};
        folders.push_back(std::move(folder));
    }
    std::sort(folders.begin(), folders.end(),
              [](const CloudStorageFolder& a, const CloudStorageFolder& b) { return a.root < b.root; });
    return folders;
}

bool isPointerDocument(std::string_view path) {
    static constexpr std::array<std::string_view, 12> kPointerExtensions = {
        "gdoc", "gsheet", "gslides", "gdraw", "gform", "gmap", "gsite", "gjam", "gtable", "gscript", "glink", "icloud"};
    const std::string extension = lowercased(pathExtension(path));
    return std::find(kPointerExtensions.begin(), kPointerExtensions.end(), extension) != kPointerExtensions.end();
}

CloudFile cloudFileOf(const std::string& path, const platform::FileFacts& stat) {
    CloudFile file;
    file.path = path;
    file.bytes = stat.size;
    file.modified = Clock::from_time_t(stat.modifiedSeconds) + std::chrono::microseconds(stat.modifiedNanoseconds / 1000);
    file.localBytes = stat.allocatedBytes;
    // A tenth, as the duplicate watch judges a placeholder: a file the system keeps compressed
    // still holds far more than that.
    const bool sparse = stat.allocatedBytes < stat.size / 10;
    file.onDisk = !sparse && !(stat.flags & platform::kFlagDataless);
    return file;
}

CloudInventory takeCloudInventory(const std::string& provider, const std::string& root, const Facts& facts,
                                  const std::function<void(std::int64_t files)>& progress) {
    CloudInventory inventory(provider, root);
    const auto top = facts.lstat(root);
    if (!top || !top->isDirectory()) return inventory;

    std::vector<CloudFile> candidates;
    std::vector<std::string> pending{root};
    while (!pending.empty()) {
        const std::string folder = std::move(pending.back());
        pending.pop_back();
        auto entries = facts.list(folder);
        if (!entries) continue;
        // Names in order, and sub-folders after the files beside them, so that the first file of a
        // group is the same from one run to the next.
        std::sort(entries->begin(), entries->end(),
                  [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
        std::vector<std::string> subfolders;
        for (const auto& entry : *entries) {
            if (entry.isLink) continue;
            const std::string path = appendingPathComponent(folder, entry.name);
            const auto stat = facts.lstat(path);
            if (!stat || stat->device != top->device) continue;
            if (stat->isDirectory()) {
                subfolders.push_back(path);
                continue;
            }
            if (!stat->isRegularFile()) continue;
            ++inventory.files;
            if (progress && inventory.files % 4096 == 0) progress(inventory.files);
            if (isPointerDocument(path)) {
                ++inventory.opaque;
                continue;
            }
            CloudFile file = cloudFileOf(path, *stat);
            if (!file.onDisk) ++inventory.cloudOnly;
            inventory.remoteBytes = checkedAdd(inventory.remoteBytes, file.bytes);
            inventory.localBytes = checkedAdd(inventory.localBytes, file.localBytes);
            keepIfLargest(inventory.largest, file);
            if (file.bytes >= kGroupedFromBytes) candidates.push_back(std::move(file));
        }
        pending.insert(pending.end(), subfolders.rbegin(), subfolders.rend());
    }
    inventory.dupeGroups = CloudInventory::groupProbableDupes(candidates, provider);
    return inventory;
}

}  // namespace orvane
