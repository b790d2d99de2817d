#include "core/report/disk_walk.hpp"

#include <algorithm>
#include <set>
#include <utility>

#include "core/cleanup/project_artifacts.hpp"
#include "core/common/path.hpp"

namespace orvane {

std::int64_t DiskWalk::totalBytes() const {
    const auto found = folders.find(root);
    return found == folders.end() ? -1 : found->second.bytes;
}

DiskWalk walkAsDuMeasures(const std::string& root, const Facts& facts, const std::function<void(std::int64_t)>& progress) {
    DiskWalk walk;
    walk.root = root;
    const auto top = facts.lstat(root);
    if (!top || !top->isDirectory()) {
        walk.unreadable.push_back(root);
        return walk;
    }
    std::set<std::pair<std::uint64_t, std::uint64_t>> linkedSeen;
    std::vector<std::string> order;  // parents before children
    std::vector<std::string> pending = {root};
    walk.folders[root] = WalkedFolder{top->allocatedBytes, 0, 0, {}, {}, 0};
    while (!pending.empty()) {
        const std::string folder = std::move(pending.back());
        pending.pop_back();
        order.push_back(folder);
        const auto entries = facts.list(folder);
        if (!entries) {
            walk.unreadable.push_back(folder);
            continue;
        }
        const int depth = walk.folders[folder].depth;
        for (const auto& entry : *entries) {
            const std::string path = appendingPathComponent(folder, entry.name);
            const auto seen = facts.lstat(path);
            if (!seen) continue;
            if (isProjectMarkerName(entry.name)) walk.folders[folder].markers.push_back(entry.name);
            if (seen->isDirectory()) {
                if (seen->device != top->device) {
                    walk.otherFileSystems.push_back(path);
                    continue;
                }
                walk.folders[folder].folders.push_back(entry.name);
                walk.folders[path] = WalkedFolder{seen->allocatedBytes, 0, 0, {}, {}, depth + 1};
                pending.push_back(path);
                continue;
            }
            if (seen->linkCount > 1 && !linkedSeen.insert({seen->device, seen->inode}).second) continue;
            auto& here = walk.folders[folder];
            here.fileBytes += std::max<std::int64_t>(seen->allocatedBytes, 0);
            ++here.files;
            if (++walk.files % 4096 == 0 && progress) progress(walk.files);
        }
    }
    // Children were reached after their parents: adding up backwards finishes each folder before
    // its parent takes its sum.
    for (auto it = order.rbegin(); it != order.rend(); ++it) {
        auto& folder = walk.folders[*it];
        folder.bytes += folder.fileBytes;
        for (const auto& name : folder.folders) {
            const auto& child = walk.folders[appendingPathComponent(*it, name)];
            folder.bytes += child.bytes;
            folder.files += child.files;
        }
    }
    std::sort(walk.unreadable.begin(), walk.unreadable.end());
    std::sort(walk.otherFileSystems.begin(), walk.otherFileSystems.end());
    return walk;
}

Ledger::DiskTree diskTreeOf(const DiskWalk& walk, int maxDepth) {
    Ledger::DiskTree tree;
    for (const auto& [path, folder] : walk.folders) {
        if (folder.depth >= maxDepth) continue;
        std::vector<SpaceItem> children;
        for (const auto& name : folder.folders) {
            const std::string childPath = appendingPathComponent(path, name);
            SpaceItem item;
            item.id = childPath;
            item.title = name;
            item.category = std::string(catBig);
            item.isDir = true;
            item.sizeBytes = walk.folders.at(childPath).bytes;
            children.push_back(std::move(item));
        }
        std::stable_sort(children.begin(), children.end(),
                         [](const SpaceItem& a, const SpaceItem& b) { return a.sizeBytes > b.sizeBytes; });
        tree[path] = std::move(children);
    }
    return tree;
}

std::vector<FolderGrowth> folderGrowth(const Ledger::DiskTree& before, const Ledger::DiskTree& now, std::size_t limit) {
    std::map<std::string, std::int64_t> old;
    for (const auto& [parent, children] : before)
        for (const auto& child : children) old[child.id] = child.sizeBytes;
    std::vector<FolderGrowth> grown;
    for (const auto& [parent, children] : now)
        for (const auto& child : children) {
            const auto was = old.find(child.id);
            if (was != old.end() && was->second >= 0 && child.sizeBytes > was->second)
                grown.push_back({child.id, was->second, child.sizeBytes});
        }
    std::stable_sort(grown.begin(), grown.end(), [](const FolderGrowth& a, const FolderGrowth& b) {
        return a.now - a.before > b.now - b.before;
    });
    if (grown.size() > limit) grown.resize(limit);
    return grown;
}

std::vector<WalkedArtifact> projectArtifactsOf(const DiskWalk& walk) {
    std::vector<WalkedArtifact> found;
    for (const auto& [path, folder] : walk.folders) {
        if (folder.markers.empty()) continue;
        const std::set<std::string, std::less<>> siblings(folder.markers.begin(), folder.markers.end());
        for (const auto& name : folder.folders) {
            const auto rule = projectArtifactRule(name, siblings);
            if (!rule) continue;
            const std::string child = appendingPathComponent(path, name);
            found.push_back({child, rule->what, rule->rebuild, walk.folders.at(child).bytes});
        }
    }
    std::set<std::string> paths;
    for (const auto& artifact : found) paths.insert(artifact.path);
    auto insideAnother = [&](const std::string& path) {
        for (std::string above = deletingLastPathComponent(path); above.size() > 1 && above != walk.root;
             above = deletingLastPathComponent(above))
            if (paths.count(above)) return true;
        return false;
    };
    std::vector<WalkedArtifact> outermost;
    for (auto& artifact : found)
        if (!insideAnother(artifact.path)) outermost.push_back(std::move(artifact));
    std::stable_sort(outermost.begin(), outermost.end(),
                     [](const WalkedArtifact& a, const WalkedArtifact& b) { return a.bytes > b.bytes; });
    return outermost;
}

}  // namespace orvane
