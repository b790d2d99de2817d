// One walk of a folder measured as `du` measures: allocated bytes, one file system, a file with
// several hard links counted once, links never followed. It gives every folder's size at once,
// which the picture of a report needs, where `du` would be asked once per folder.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "core/common/facts.hpp"
#include "core/ledger/items_cache.hpp"

namespace orvane {

struct WalkedFolder {
    std::int64_t bytes = 0;      // everything below, the folder's own blocks included
    std::int64_t fileBytes = 0;  // the entries directly inside that are not folders
    std::int64_t files = 0;      // entries below that are not folders
    std::vector<std::string> folders;  // direct subfolders on the same file system, by name
    std::vector<std::string> markers;  // entries that show a project lies here ("package.json", ".git")
    int depth = 0;                     // 0 for the root
    bool operator==(const WalkedFolder&) const = default;
};

struct DiskWalk {
    std::string root;
    std::map<std::string, WalkedFolder> folders;  // by path
    std::vector<std::string> unreadable;          // folders that could not be listed, by path
    std::vector<std::string> otherFileSystems;    // mount points below the root, not entered
    std::int64_t files = 0;
    bool operator==(const DiskWalk&) const = default;

    std::int64_t totalBytes() const;
};

// `progress` hears the count of files seen now and then. A root that cannot be listed gives a
// walk with its one unreadable folder.
DiskWalk walkAsDuMeasures(const std::string& root, const Facts& facts,
                          const std::function<void(std::int64_t files)>& progress = {});

// The folders down to `maxDepth` below the root, each with its subfolders as items (largest first):
// what the next report of the same place compares with.
Ledger::DiskTree diskTreeOf(const DiskWalk& walk, int maxDepth);

// How much each folder kept in both trees grew, largest growth first, at most `limit`.
struct FolderGrowth {
    std::string path;
    std::int64_t before = 0;
    std::int64_t now = 0;
    bool operator==(const FolderGrowth&) const = default;
};
std::vector<FolderGrowth> folderGrowth(const Ledger::DiskTree& before, const Ledger::DiskTree& now, std::size_t limit);

// The rebuildable folders of the projects the walk passed (a "node_modules" beside its
// "package.json"), largest first; one inside another is part of it and not listed again.
struct WalkedArtifact {
    std::string path;
    std::string what;
    std::string rebuild;
    std::int64_t bytes = 0;
    bool operator==(const WalkedArtifact&) const = default;
};
std::vector<WalkedArtifact> projectArtifactsOf(const DiskWalk& walk);

}  // namespace orvane
