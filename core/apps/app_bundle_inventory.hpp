// The apps installed on the Mac: every ".app" bundle found by a bounded walk, and the listing of
// /Applications and ~/Applications that every app command shares.
#pragma once

#include <string>
#include <vector>

#include "core/common/facts.hpp"
#include "core/startup/startup_owner.hpp"

namespace orvane {

struct AppBundleInventory {
    std::vector<std::string> paths;
    // False when the walk was cut short or a folder that exists could not be listed: then the
    // absence of a path proves nothing.
    bool complete = true;
    bool operator==(const AppBundleInventory&) const = default;
};

// Depth-first from `root` (depth 1), names in order, hidden ones skipped; a bundle is listed and
// not entered, a link never followed. At most `budget` folders are listed and none deeper than
// `maxDepth`.
AppBundleInventory appBundleInventory(const std::string& root, int maxDepth, int budget,
                                      const Facts& facts = Facts::real());

// The product's own bundle identifiers: its jobs are not third-party items, and its permissions
// are never reset.
inline const std::vector<std::string> velloranOwnBundleIDs = {"com.velloran.orvane", "com.velloran.orvane.helper"};

inline constexpr int kInstalledAppsMaxDepth = 4;
inline constexpr int kInstalledAppsBudget = 4000;

struct InstalledApps {
    std::vector<AppRef> apps;  // each named by its file name without ".app"; bundleID "" when unknown
    bool complete = true;
};
// /Applications, then the user's Applications.
InstalledApps installedApps(const Facts& facts = Facts::real());

}  // namespace orvane
