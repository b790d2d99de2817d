// The startup page: what third-party software set to run at login or at boot, from the three
// launch folders and from inside installed apps, whose it is, and switching an item off and back
// on. Switching off is a rename that launchd ignores, so the item comes back exactly.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/path_rules.hpp"
#include "core/common/raw_value.hpp"
#include "core/startup/startup_owner.hpp"

namespace orvane {

struct StartupItem {
    enum class Scope { user, system, insideApp };
    std::string path;  // the property list or helper app
    std::string label;
    Scope scope = Scope::user;
    std::optional<std::string> ownerName;
    bool ownerMissing = false;
    bool enabled = true;
    bool isDaemon = false;
    bool fromTrash = false;
    std::optional<std::string> launchLabel;  // inside an app: the label to stop it with

    // What lies inside an app is the app's to switch: renaming it would break its signature.
    bool canSwitch() const { return scope != Scope::insideApp; }
    bool operator==(const StartupItem&) const = default;
};
template <>
struct RawValues<StartupItem::Scope> {
    static constexpr std::array<std::pair<StartupItem::Scope, std::string_view>, 3> table = {{
        {StartupItem::Scope::user, "user"},
        {StartupItem::Scope::system, "system"},
        {StartupItem::Scope::insideApp, "insideApp"},
    }};
};
// Its field names with "canSwitch"; none fields left out.
nlohmann::ordered_json toJSON(const StartupItem& item);

struct DisabledAgent {
    std::string path;  // the switched-off (suffixed) path
    std::string label;
    bool operator==(const DisabledAgent&) const = default;
};

namespace agent_restore {
struct Refuse {
    std::string reason;
    bool operator==(const Refuse&) const = default;
};
struct Restore {
    bool operator==(const Restore&) const = default;
};
struct AlreadyBack {
    bool operator==(const AlreadyBack&) const = default;
};
}  // namespace agent_restore
struct AgentRestoreVerdict {
    std::variant<agent_restore::Refuse, agent_restore::Restore, agent_restore::AlreadyBack> value;
    bool operator==(const AgentRestoreVerdict&) const = default;
};

// The label of the agent that keeps a variable over logins: "local.orvane.env.<name>".
inline constexpr std::string_view kPersistentEnvLabelPrefix = "local.orvane.env.";

// The third-party items: the user's LaunchAgents, /Library's LaunchAgents and LaunchDaemons, then
// what the apps (and the apps in the Trash) carry inside. Whatever cannot be read is left off.
std::vector<StartupItem> scanStartupItems(const std::vector<AppRef>& apps, const std::string& home,
                                          const Facts& facts = Facts::real());

// Apple's own, even when a plist in /Library carries it.
bool isAppleLaunchItem(std::string_view name, std::string_view label, const std::optional<std::string>& program);
// Program, the first of ProgramArguments, then BundleProgram.
std::optional<std::string> launchItemProgram(const nlohmann::json& plist);
// The name of the app an item belongs to for display: the app its program lies in, one it
// declares, or one of the label's vendor.
std::optional<std::string> launchItemOwner(const std::optional<std::string>& program,
                                           const std::vector<std::string>& associated, std::string_view label,
                                           const std::vector<AppRef>& apps);
// For a helper app its bundle identifier, for a plist its Label.
std::optional<std::string> insideAppLaunchLabel(const std::string& path, const Facts& facts = Facts::real());
// The apps at the top of the user's Trash, in listing order.
std::vector<AppRef> trashedApps(const std::string& home, const Facts& facts = Facts::real());

// The switched-off items of these folders, Apple's left out; a file that does not parse is still
// listed, by its name.
std::vector<DisabledAgent> disabledAgents(const std::vector<std::string>& folders, const Facts& facts = Facts::real());

AgentRestoreVerdict agentRestoreVerdict(const DisabledAgent& agent, const std::function<bool(const std::string&)>& exists,
                                        const std::function<bool(const std::string&)>& isSymlink);

struct AgentRestore {
    bool ok = false;
    std::string line;  // "• <label> — switched back on", or why not
    bool operator==(const AgentRestore&) const = default;
};
// Takes the suffix off, never over a copy the app put back. With `bootstrap`, an item under the
// home is loaded at once; otherwise it loads at the next login.
AgentRestore restoreDisabledAgent(const DisabledAgent& agent, bool bootstrap, const Facts& facts = Facts::real());

struct AgentSwitchOff {
    bool ok = false;
    std::string path;  // the switched-off path when ok
    std::string problem;  // why not, a sentence
};
// Renames a plist of the user's own launch folder to "<name>.plist.disabled-by-orvane": never
// through a link, never over an existing name.
AgentSwitchOff switchOffUserAgent(const std::string& path, const Facts& facts = Facts::real());

// Through `launchctl print gui/<uid>/<label>`; false without a run for a label unfit for it.
bool launchJobLoaded(std::string_view label, const Facts& facts = Facts::real());
// A job that was not loaded counts as stopped.
bool stopLaunchJob(std::string_view label, const Facts& facts = Facts::real());

// [A-Za-z_][A-Za-z0-9_]*: the only names the two below accept, since a name becomes part of a
// file name.
bool isEnvironmentName(std::string_view name);

// A variable for this login and every later one: launchctl now, and an agent that sets it at
// each login.
void setPersistentGUIEnv(const std::string& name, const std::string& value, const Facts& facts = Facts::real());
void clearPersistentGUIEnv(const std::string& name, const Facts& facts = Facts::real());

}  // namespace orvane
