#include "core/safety/delete_verdict.hpp"

#include <algorithm>
#include <deque>

#include "core/cleanup/project_artifacts.hpp"
#include "core/cleanup/vendor_janitors.hpp"
#include "core/common/format.hpp"
#include "core/common/folder_entries.hpp"
#include "core/common/path.hpp"
#include "core/common/path_rules.hpp"
#include "core/safety/path_kinds.hpp"

namespace orvane {
namespace {

// The depth and breadth of the project look inside a verdict.
constexpr int kVerdictProjectDepth = 2;
constexpr int kVerdictProjectEntries = 400;

// isStandardHomeContainer with the home the facts give, which may be a recorded Mac's.
bool isStandardHomeContainerIn(std::string_view path, const Facts& facts) {
    return std::any_of(standardHomeContainers.begin(), standardHomeContainers.end(),
                       [&](std::string_view name) { return path == facts.home(name); });
}

}  // namespace

std::string holdsProjectRefusal(std::string_view name) {
    return "it holds a project you're building (" + std::string(name) +
           "), and Velloran Orvane doesn't delete source trees. Their rebuildable parts are offered separately, and "
           "that is where the space actually is.";
}

std::string vendorCacheRefusal(std::string_view titleView) {
    const std::string title(titleView);
    return "this is " + title +
           "'s own cache, and it holds package manifests, so removing the folder wholesale isn't safe. Use the " +
           title + " janitor instead — My Clutter › Janitors runs " + title + "'s own cleanup, which empties it properly";
}

std::optional<std::string> DeleteVerdict::reason() const {
    if (auto refuse = std::get_if<Refuse>(&value)) return refuse->reason;
    return std::nullopt;
}

std::string describe(const DeleteVerdict& verdict) {
    if (auto reason = verdict.reason()) return "refuse(" + *reason + ")";
    return std::holds_alternative<DeleteVerdict::Trash>(verdict.value) ? "trash" : "removePermanently";
}

std::string describe(const RestoreVerdict& verdict) {
    if (auto abort = std::get_if<RestoreVerdict::Abort>(&verdict.value)) return "abort(" + abort->reason + ")";
    return "proceed";
}

std::optional<std::string> sourceProjectWithin(std::string_view pathView, int maxDepth, int maxEntries,
                                               const Facts& facts) {
    const std::string path(pathView);
    if (isRebuildableDirName(lastPathComponent(path))) return std::nullopt;
    const int depthLimit = isStandardHomeContainerIn(path, facts) ? 0 : maxDepth;
    std::deque<std::pair<std::string, int>> queue = {{path, 0}};
    std::int64_t entries = 0;
    while (!queue.empty()) {
        auto [dir, depth] = std::move(queue.front());
        queue.pop_front();
        if (entries >= maxEntries) return std::nullopt;
        // A folder that cannot be listed (or a file) shows no marker and leads nowhere.
        const auto listing = facts.list(dir).value_or(std::vector<FolderEntry>{});
        std::vector<std::string> names;
        names.reserve(listing.size());
        for (const auto& entry : listing) names.push_back(entry.name);
        entries += static_cast<std::int64_t>(names.size());
        if (projectMarker(names)) return dir;
        if (depth >= depthLimit) continue;
        for (const auto& entry : listing) {
            const std::string& name = entry.name;
            if (!entry.isFolder || name.starts_with('.') || isRebuildableDirName(name)) continue;
            queue.emplace_back(appendingPathComponent(dir, name), depth + 1);
        }
    }
    return std::nullopt;
}

DeleteVerdict deleteVerdict(std::string_view path, bool permanently, bool contentsOnly, bool isSymlink,
                            bool traversesSymlink, const Facts& facts) {
    if (!assertDeletable(path, facts.home(""), facts)) return DeleteVerdict::refuse(kProtectedRefusal);
    if (traversesSymlink) return DeleteVerdict::refuse(kViaShortcutRefusal);
    // A link alone may go, its target untouched; clearing its contents would reach through it.
    if (contentsOnly && isSymlink) return DeleteVerdict::refuse(kIsShortcutRefusal);
    if (auto root = sourceProjectWithin(path, kVerdictProjectDepth, kVerdictProjectEntries, facts)) {
        if (auto tool = vendorJanitor(path, facts)) return DeleteVerdict::refuse(vendorCacheRefusal(tool->title));
        if (*root == path) return DeleteVerdict::refuse(kProjectItselfRefusal);
        return DeleteVerdict::refuse(holdsProjectRefusal(lastPathComponent(*root)));
    }
    return permanently ? DeleteVerdict::removePermanently() : DeleteVerdict::trash();
}

DeleteVerdict onDiskDeleteVerdict(std::string_view path, bool permanently, const Facts& facts) {
    // Some rows carry a record's identifier where a path would stand.
    if (!path.starts_with('/') || path.find('\0') != std::string_view::npos)
        return DeleteVerdict::refuse(kNotOnDiskRefusal);
    auto entry = facts.lstat(std::string(path));
    const bool isSymlink = entry && entry->isSymlink();
    return deleteVerdict(path, permanently, false, isSymlink, pathTraversesSymlink(path, facts), facts);
}

std::vector<PathVerdict> leftoverCommitVerdict(const std::vector<std::string>& paths, const Facts& facts) {
    std::vector<PathVerdict> verdicts;
    verdicts.reserve(paths.size());
    for (const auto& path : paths) verdicts.push_back({path, onDiskDeleteVerdict(path, false, facts)});
    return verdicts;
}

std::optional<PathVerdict> autoEmptyTrashVerdict(std::string_view trashRoot, std::string_view entryName) {
    if (entryName.empty() || entryName == "." || entryName == ".." ||
        entryName.find('/') != std::string_view::npos || entryName.find('\0') != std::string_view::npos)
        return std::nullopt;
    std::string path = appendingPathComponent(trashRoot, entryName);
    auto verdict = onDiskDeleteVerdict(path, true);
    return PathVerdict{std::move(path), std::move(verdict)};
}

RestoreVerdict restoreVerdict(std::int64_t stagedFiles, std::int64_t sourceFiles, std::int64_t stagedBytes,
                              std::int64_t sourceBytes) {
    if (stagedFiles < 1) return RestoreVerdict::abort("the copy produced no files");
    if (stagedFiles != sourceFiles)
        return RestoreVerdict::abort("the copy came out at " + std::to_string(stagedFiles) + " files against " +
                                     std::to_string(sourceFiles) + " on the drive");
    if (sourceBytes < 1) return RestoreVerdict::proceed();  // nothing to compare with
    if (stagedBytes >= sourceBytes / 2) return RestoreVerdict::proceed();
    return RestoreVerdict::abort("the copy is " + fmtBytes(stagedBytes) + " against " + fmtBytes(sourceBytes) +
                                 " on the drive");
}

}  // namespace orvane
