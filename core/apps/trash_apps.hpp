// The apps in the user's Trash, including those the Finder renamed on a name clash: which still
// have a background job pointing at them, when removing one needs an administrator, and removal
// by name without following a link.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/apps/trash_app_delete.hpp"
#include "core/common/facts.hpp"

namespace orvane {

struct TrashAppInfo {
    std::string name;  // its name in the Trash
    std::string path;
    std::string bundleID;  // "" when unknown
    std::vector<std::string> embeddedLabels;  // what the bundle can start
    std::optional<std::string> appName;       // from its Info.plist

    // appName trimmed of spaces and tabs if that leaves anything, else the name without the
    // Finder's renaming.
    std::string displayName() const;
    bool operator==(const TrashAppInfo&) const = default;
};
nlohmann::ordered_json toJSON(const TrashAppInfo& app);  // appName left out when none

// One background job as seen from outside.
struct BackgroundReference {
    std::string label;
    std::optional<std::string> parentBundleID;
    std::optional<std::string> path;
    bool operator==(const BackgroundReference&) const = default;
};

struct StaleTrashApp {
    TrashAppInfo app;
    std::vector<std::string> labels;
    // True when a registered job was matched; false when the bundle only carries labels that
    // nothing was seen to use.
    bool confirmed = false;
    bool operator==(const StaleTrashApp&) const = default;
};

// The name without ".app" and the Finder's time stamp: "Foo.app 12-04-33" and "Foo 12-04-33" give
// "Foo".
std::string trashedAppBaseName(std::string_view name);

// At most one per app, in the apps' order.
std::vector<StaleTrashApp> staleTrashApps(const std::vector<TrashAppInfo>& trashApps,
                                          const std::vector<BackgroundReference>& references);

// Whether removing the tree at `path` will need an administrator: a locked or unwritable entry,
// an unlistable folder, or more than `limit` entries. Links are not followed.
bool trashAppNeedsAdmin(const std::string& path, int limit);

namespace TrashApps {

struct ScanReport {
    std::vector<TrashAppInfo> apps;
    bool readable = false;            // the folder could be listed
    std::optional<int> listed;        // names in the folder; none when it couldn't be listed
    std::optional<int> linkCount;     // the folder's link count; none when lstat failed
    bool fdaGranted = false;          // given by the caller

    // "listed <n|refused>, apps <n>, links <n|?>, Full Disk Access <yes|no>, readable <yes|no>"
    std::string summary() const;
    bool operator==(const ScanReport&) const = default;
};

struct ScanResult {
    std::vector<TrashAppInfo> apps;
    bool readable = false;
    bool operator==(const ScanResult&) const = default;
};

ScanReport scanDetailed(const std::string& home, bool fdaGranted, const Facts& facts = Facts::real());
ScanResult scan(const std::string& home, const Facts& facts = Facts::real());

// Each name in order through deleteTrashedApp, in <home>/.Trash owned by the real user.
std::vector<TrashAppDeleteOutcome> deleteAsUser(const std::vector<std::string>& names, const std::string& home);

}  // namespace TrashApps

}  // namespace orvane
