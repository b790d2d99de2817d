// What the running launchd has loaded, read from the text `launchctl print` writes, reduced to the
// background items other apps registered with the system, each joined with its owner.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/raw_value.hpp"
#include "core/startup/startup_owner.hpp"

namespace orvane {

inline constexpr const char* kLaunchctlTool = "/bin/launchctl";

struct LaunchdServiceRow {
    std::optional<std::int32_t> pid;  // none when not running
    std::string label;
    bool operator==(const LaunchdServiceRow&) const = default;
};

struct LaunchdJob {
    std::string label;  // the label asked for, never read from the text
    std::optional<std::string> path;
    std::optional<std::string> type;
    std::optional<std::string> managedBy;
    bool running = false;
    std::optional<std::int32_t> pid;
    std::optional<std::string> program;
    std::optional<std::string> parentBundleID;
    std::optional<std::string> teamID;  // always passes isTeamID

    // Registered by an app through the system rather than by a property list on disk.
    bool registeredByApp() const;
    bool operator==(const LaunchdJob&) const = default;
};
// Fields that are none are left out.
nlohmann::ordered_json toJSON(const LaunchdJob& job);

struct RegisteredBackgroundItem {
    enum class Domain { user, system };
    Domain domain = Domain::user;
    LaunchdJob job;
    std::optional<std::string> program;  // the path the owner was judged by
    StartupOwner owner;

    std::string id() const;  // "gui/com.example.agent"
    bool running() const;
    bool runsFromTrash() const;
    bool stoppableAsUser() const;
    // The owner is gone, trashed or not installed. A missing program alone is not stale: launchd's
    // own state can lag behind the disk.
    bool isStale() const;
    bool operator==(const RegisteredBackgroundItem&) const = default;
};
template <>
struct RawValues<RegisteredBackgroundItem::Domain> {
    static constexpr std::array<std::pair<RegisteredBackgroundItem::Domain, std::string_view>, 2> table = {{
        {RegisteredBackgroundItem::Domain::user, "gui"},
        {RegisteredBackgroundItem::Domain::system, "system"},
    }};
};
// {"id","domain","job":{…},"program","owner","running","isStale","runsFromTrash","stoppableAsUser"}.
nlohmann::ordered_json toJSON(const RegisteredBackgroundItem& item);

// The rows of a domain's "services = {" block, in the text's order.
std::vector<LaunchdServiceRow> parseLaunchctlServiceList(std::string_view text);
// One job as `launchctl print <domain>/<label>` prints it; never fails, an unusable text giving a
// job with only its label.
LaunchdJob parseLaunchctlPrint(std::string_view text, std::string label);

// A developer team id: ten ASCII upper-case letters or digits.
bool isTeamID(std::string_view text);
// Safe to put on a command line or to trust from a file: ASCII letters, digits, ".", "-", "_",
// with a dot inside, at most 255 characters.
bool isLaunchdLabel(std::string_view label);
// The looser test for labels only displayed or matched: non-ASCII letters allowed, no dot needed.
bool isPlausibleLaunchdLabel(std::string_view label);
// Not Apple's, and not one of `own` (compared exactly).
bool isThirdPartyLabel(std::string_view label, const std::vector<std::string>& own);

namespace LaunchdInventory {

// The jobs apps registered (and any job still running out of the Trash), in the user's domain and
// with `includeSystem` the system's: trashed first, then by label. One process per third-party
// label, so never on an interactive thread. Silence from launchctl is nothing registered.
std::vector<RegisteredBackgroundItem> registeredItems(const std::vector<AppRef>& installedApps,
                                                      const std::vector<std::string>& own, const std::string& home,
                                                      std::uint32_t uid, bool includeSystem,
                                                      const Facts& facts = Facts::real());
// Boots a job of the user's domain out; false without running anything for a bad label.
bool stop(std::string_view label, std::uint32_t uid, const Facts& facts = Facts::real());
bool isLoaded(std::string_view label, RegisteredBackgroundItem::Domain domain, std::uint32_t uid,
              const Facts& facts = Facts::real());
// The executable of a running process; none when it cannot be read (or on a recorded Mac).
std::optional<std::string> processPath(std::int32_t pid, const Facts& facts = Facts::real());

}  // namespace LaunchdInventory
}  // namespace orvane
