#include "core/scan/unreadable.hpp"

#include <algorithm>

#include "core/common/path.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane {
void UnreadableLog::record(const std::vector<std::string>& paths) {
    std::lock_guard guard(lock_);
    for (const auto& path : paths)
        if (std::find(paths_.begin(), paths_.end(), path) == paths_.end()) paths_.push_back(path);
}

void UnreadableLog::recordBrowser(const std::string& name, const std::string& path) {
    std::lock_guard guard(lock_);
    if (std::find(paths_.begin(), paths_.end(), path) == paths_.end()) paths_.push_back(path);
    browsers_[path] = name;
}

void UnreadableLog::reset() {
    std::lock_guard guard(lock_);
    paths_.clear();
    browsers_.clear();
}

UnreadableLog::Snapshot UnreadableLog::snapshot() const {
    std::lock_guard guard(lock_);
    return {paths_, browsers_};
}

std::string UnreadableFolder::explanation() const {
    switch (reason) {
        case UnreadableReason::needsFullDiskAccess:
            return "macOS didn't let Velloran Orvane look inside. Its size isn't included, so totals that contain it "
                   "are a floor.";
        case UnreadableReason::browserNeedsFullDiskAccess:
            return browser.value_or("Browser") +
                   " data couldn't be checked: needs Full Disk Access. Its size isn't included anywhere in this "
                   "scan.";
        case UnreadableReason::protectedByMacOS:
            return "macOS keeps this folder from every app, even with Full Disk Access. Nothing to do; it's part of "
                   "System Data.";
    }
    return {};
}

std::optional<std::string> UnreadableFolder::fix() const {
    if (reason == UnreadableReason::protectedByMacOS) return std::nullopt;
    return "Turn on Full Disk Access";
}

std::string_view SkippedLocation::explanation() const {
    switch (kind) {
        case Kind::cloud:
            return "Not scanned, so macOS doesn't ask you for permission for each cloud drive. Most of its files "
                   "live in the cloud, not on this Mac.";
        case Kind::otherDrive:
            return "Another drive. The startup-disk scan never goes onto it; choose it from the drives list to scan "
                   "it.";
        case Kind::networkShare:
            return "A network share. Never scanned automatically; choose it from the drives list to scan it.";
    }
    return {};
}

std::vector<UnreadableFolder> unreadableFolders(const std::vector<std::string>& paths,
                                                const std::map<std::string, std::string>& browsers,
                                                bool fdaGranted) {
    std::vector<UnreadableFolder> folders;
    for (const auto& path : topmostPaths(paths)) {
        UnreadableFolder folder{path, UnreadableReason::needsFullDiskAccess, std::nullopt};
        if (fdaGranted) {
            folder.reason = UnreadableReason::protectedByMacOS;
        } else if (auto exact = browsers.find(path); exact != browsers.end()) {
            folder.reason = UnreadableReason::browserNeedsFullDiskAccess;
            folder.browser = exact->second;
        } else {
            for (const auto& [browserPath, name] : browsers) {
                if (!isAtOrBelow(path, browserPath)) continue;
                folder.reason = UnreadableReason::browserNeedsFullDiskAccess;
                folder.browser = name;
                break;
            }
        }
        folders.push_back(std::move(folder));
    }
    return folders;
}

std::vector<BrowserDataFolder> browserDataFolders(const std::string& home) {
    static constexpr std::pair<std::string_view, std::string_view> kBrowsers[] = {
        {"Chrome", "Library/Application Support/Google/Chrome"},
        {"Edge", "Library/Application Support/Microsoft Edge"},
        {"Brave", "Library/Application Support/BraveSoftware/Brave-Browser"},
        {"Firefox", "Library/Application Support/Firefox"},
        {"Arc", "Library/Application Support/Arc"},
        {"Vivaldi", "Library/Application Support/Vivaldi"},
        {"Opera", "Library/Application Support/com.operasoftware.Opera"},
        {"Chromium", "Library/Application Support/Chromium"},
    };
    std::vector<BrowserDataFolder> folders;
    for (const auto& [name, below] : kBrowsers)
        folders.push_back({std::string(name), appendingPathComponent(home, below)});
    return folders;
}

std::vector<SkippedLocation> cloudSkipRoots(const std::string& home) {
    return {
        {SkippedLocation::Kind::cloud, "iCloud Drive", appendingPathComponent(home, "Library/Mobile Documents")},
        {SkippedLocation::Kind::cloud, "Cloud drives (OneDrive, Dropbox, Google Drive…)",
         appendingPathComponent(home, "Library/CloudStorage")},
    };
}

bool isInSkippedCloudRoot(const std::string& path, const std::string& home) {
    for (const auto& root : cloudSkipRoots(home))
        if (isAtOrBelow(path, root.path)) return true;
    return false;
}

namespace FDA {

std::vector<std::string> probePaths(const std::string& home) {
    std::vector<std::string> paths;
    for (const char* below : {"Library/Safari", "Library/Cookies", "Library/Mail", "Library/Messages"})
        paths.push_back(appendingPathComponent(home, below));
    return paths;
}

bool verdict(const std::vector<FolderProbe>& probes) {
    bool anyExists = false;
    for (const auto& probe : probes) {
        if (!probe.exists) continue;
        if (probe.listable) return true;
        anyExists = true;
    }
    return !anyExists;
}

FolderProbe probe(const std::string& path, const Facts& facts) {
    if (!isDirectory(path, facts)) return {};
    return {true, facts.list(path).has_value()};
}

bool granted(const Facts& facts) {
    std::vector<FolderProbe> probes;
    for (const auto& path : probePaths(facts.home(""))) probes.push_back(probe(path, facts));
    return verdict(probes);
}

}  // namespace FDA

nlohmann::ordered_json toJSON(const UnreadableFolder& folder) {
    const auto fix = folder.fix();
    return {{"path", folder.path},
            {"reason", rawValue(folder.reason)},
            {"browser", folder.browser ? nlohmann::ordered_json(*folder.browser) : nullptr},
            {"explanation", folder.explanation()},
            {"fix", fix ? nlohmann::ordered_json(*fix) : nullptr}};
}

nlohmann::ordered_json toJSON(const SkippedLocation& location) {
    return {{"kind", rawValue(location.kind)},
            {"title", location.title},
            {"path", location.path},
            {"explanation", location.explanation()}};
}

RefusalSurvey surveyRefusals(const std::string& path, const Facts& facts) {
    const std::string home = facts.home("");
    UnreadableLog log;
    std::vector<std::string> denied;
    for (auto& folder : duMeasure(path, facts).denied)
        if (!isInSkippedCloudRoot(folder, home)) denied.push_back(std::move(folder));
    log.record(denied);
    for (const auto& browser : browserDataFolders(home))
        if (isAtOrBelow(browser.path, path) && listingRefused(browser.path, facts) == true &&
            !isInSkippedCloudRoot(browser.path, home))
            log.recordBrowser(browser.name, browser.path);

    RefusalSurvey survey;
    survey.refused = log.snapshot();
    survey.fdaGranted = FDA::granted(facts);
    survey.unreadable = unreadableFolders(survey.refused.paths, survey.refused.browsers, survey.fdaGranted);
    for (auto& root : cloudSkipRoots(home))
        if (isAtOrBelow(root.path, path) && facts.exists(root.path)) survey.skipped.push_back(std::move(root));
    for (const auto& volume : facts.volumes()) {
        if (volume.path == path || !isAtOrBelow(volume.path, path)) continue;
        survey.skipped.push_back({volume.isLocal ? SkippedLocation::Kind::otherDrive : SkippedLocation::Kind::networkShare,
                                  volume.name.empty() ? lastPathComponent(volume.path) : volume.name, volume.path});
    }
    return survey;
}

}  // namespace orvane
