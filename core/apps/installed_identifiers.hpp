// Identifiers that count as installed beside the apps' own: plug-ins a host loads, and apps that
// are running, so that a host's or a running app's data is never taken for a leftover.
#pragma once

#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

// The lower-case identifiers of the plug-ins in `folders` (relative ones under `home`): a plug-in
// directly in a folder or one level down in a vendor's folder, never deeper; hidden entries
// skipped.
std::set<std::string> installedPluginBundleIDs(std::span<const std::string_view> folders,
                                               std::string_view home,
                                               const Facts& facts = Facts::real());

struct RunningApp {
    std::optional<std::string> bundleID;
    std::optional<std::string> path;
    bool operator==(const RunningApp&) const = default;
};
// The lower-case identifiers of running apps, except those running from a Trash; an app with no
// path counts. The running apps are the caller's: nothing runs on a system that is not macOS.
std::set<std::string> installedRunningBundleIDs(const std::vector<RunningApp>& apps,
                                                std::string_view home);

}  // namespace orvane
