#include "core/apps/app_bundle_inventory.hpp"

#include <algorithm>

#include "core/common/path.hpp"
#include "core/common/property_list.hpp"

namespace orvane {
namespace {

void walk(const std::string& folder, int depth, int maxDepth, int budget, int& visits, const Facts& facts,
          AppBundleInventory& found) {
    if (depth > maxDepth) return;
    if (visits >= budget) {
        found.complete = false;
        return;
    }
    ++visits;
    auto entries = facts.list(folder);
    if (!entries) {
        if (facts.exists(folder)) found.complete = false;
        return;
    }
    std::sort(entries->begin(), entries->end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    for (const auto& entry : *entries) {
        if (entry.name.starts_with(".")) continue;
        const std::string path = appendingPathComponent(folder, entry.name);
        if (entry.name.ends_with(".app")) {
            found.paths.push_back(path);
            continue;
        }
        // A listing's folder flag is the entry's own, never a link's target.
        if (entry.isFolder) walk(path, depth + 1, maxDepth, budget, visits, facts, found);
    }
}

}  // namespace

AppBundleInventory appBundleInventory(const std::string& root, int maxDepth, int budget, const Facts& facts) {
    AppBundleInventory found;
    int visits = 0;
    walk(root, 1, maxDepth, budget, visits, facts, found);
    return found;
}

InstalledApps installedApps(const Facts& facts) {
    InstalledApps installed;
    for (const std::string& root : {std::string("/Applications"), facts.home("Applications")}) {
        const auto found = appBundleInventory(root, kInstalledAppsMaxDepth, kInstalledAppsBudget, facts);
        installed.complete = installed.complete && found.complete;
        for (const auto& path : found.paths) {
            const std::string name = lastPathComponent(path);
            installed.apps.push_back(AppRef{path, name.substr(0, name.size() - 4), bundleIdentifier(path, facts)});
        }
    }
    return installed;
}

}  // namespace orvane
