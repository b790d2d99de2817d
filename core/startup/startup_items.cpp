#include "core/startup/startup_items.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "core/common/path.hpp"
#include "core/common/property_list.hpp"
#include "core/common/json_files.hpp"
#include "core/ledger/action_log.hpp"
#include "core/startup/launchd_inventory.hpp"

namespace orvane {
namespace {

constexpr std::string_view kPlist = ".plist";
constexpr double kLaunchctlSeconds = 10;

std::string switchedOffEnding() { return std::string(kPlist) + std::string(disabledAgentSuffix); }

bool isLaunchPlistName(std::string_view name) { return name.ends_with(kPlist) || name.ends_with(switchedOffEnding()); }


std::optional<StartupItem> fromFolder(const std::string& folder, const FolderEntry& entry, StartupItem::Scope scope,
                                      bool isDaemon, const std::vector<AppRef>& apps, const Facts& facts) {
    // The listing's own type of the entry, links not followed, is asked before anything is read,
    // so that a link cannot make the page read a file elsewhere; one put in its place since is
    // refused by the read, which never follows a final link.
    if (entry.isLink) return std::nullopt;
    const std::string& name = entry.name;
    const std::string path = appendingPathComponent(folder, name);
    auto plist = readPropertyListDictionary(path, facts);
    if (!plist) return std::nullopt;
    const std::string label = plistString(*plist, "Label").value_or(name.substr(0, name.find(kPlist)));
    const auto program = launchItemProgram(*plist);
    if (isAppleLaunchItem(name, label, program)) return std::nullopt;
    std::vector<std::string> associated;
    if (auto many = plistStrings(*plist, "AssociatedBundleIdentifiers")) associated = std::move(*many);
    else if (auto one = plistString(*plist, "AssociatedBundleIdentifiers")) associated = {*one};
    StartupItem item;
    item.path = path;
    item.label = label;
    item.scope = scope;
    // A bare executable name cannot be looked for, so it is never called missing.
    item.ownerMissing = program && program->starts_with("/") && !facts.exists(*program);
    item.ownerName = launchItemOwner(program, associated, label, apps);
    item.enabled = !name.ends_with(disabledAgentSuffix);
    item.isDaemon = isDaemon;
    return item;
}

}  // namespace

nlohmann::ordered_json toJSON(const StartupItem& item) {
    nlohmann::ordered_json json;
    json["path"] = item.path;
    json["label"] = item.label;
    json["scope"] = rawValue(item.scope);
    if (item.ownerName) json["ownerName"] = *item.ownerName;
    json["ownerMissing"] = item.ownerMissing;
    json["enabled"] = item.enabled;
    json["isDaemon"] = item.isDaemon;
    json["fromTrash"] = item.fromTrash;
    if (item.launchLabel) json["launchLabel"] = *item.launchLabel;
    json["canSwitch"] = item.canSwitch();
    return json;
}

bool isAppleLaunchItem(std::string_view name, std::string_view label, const std::optional<std::string>& program) {
    if (name.starts_with("com.apple.") || label.starts_with("com.apple.")) return true;
    if (!program) return false;
    return program->starts_with("/System/") || program->starts_with("/usr/libexec/") ||
           program->starts_with("/usr/sbin/");
}

std::optional<std::string> launchItemProgram(const nlohmann::json& plist) {
    if (auto program = plistString(plist, "Program")) return program;
    if (auto arguments = plistStrings(plist, "ProgramArguments"); arguments && !arguments->empty())
        return arguments->front();
    return plistString(plist, "BundleProgram");
}

std::optional<std::string> launchItemOwner(const std::optional<std::string>& program,
                                           const std::vector<std::string>& associated, std::string_view label,
                                           const std::vector<AppRef>& apps) {
    if (program)
        for (const auto& app : apps)
            if (program->starts_with(app.path + "/")) return app.name;
    for (const auto& app : apps)
        if (std::find(associated.begin(), associated.end(), app.bundleID) != associated.end()) return app.name;
    std::vector<std::string_view> pieces;
    for (std::size_t start = 0; start <= label.size();) {
        const std::size_t dot = std::min(label.find('.', start), label.size());
        if (dot > start) pieces.push_back(label.substr(start, dot - start));
        start = dot + 1;
    }
    if (pieces.size() < 3) return std::nullopt;
    const std::string vendor = std::string(pieces[0]) + "." + std::string(pieces[1]) + ".";
    for (const auto& app : apps)
        if (app.bundleID.starts_with(vendor) && !app.bundleID.starts_with("com.apple.")) return app.name;
    return std::nullopt;
}

std::optional<std::string> insideAppLaunchLabel(const std::string& path, const Facts& facts) {
    if (path.ends_with(".app")) {
        std::string id = bundleIdentifier(path, facts);
        if (id.empty()) return std::nullopt;
        return id;
    }
    auto plist = readPropertyListDictionary(path, facts);
    if (!plist) return std::nullopt;
    return plistString(*plist, "Label");
}

std::vector<AppRef> trashedApps(const std::string& home, const Facts& facts) {
    std::vector<AppRef> apps;
    const std::string trash = appendingPathComponent(home, ".Trash");
    auto entries = facts.list(trash);
    if (!entries) return apps;
    for (const auto& entry : *entries) {
        if (!entry.name.ends_with(".app")) continue;
        const std::string path = appendingPathComponent(trash, entry.name);
        apps.push_back(AppRef{path, deletingPathExtension(entry.name), bundleIdentifier(path, facts)});
    }
    return apps;
}

std::vector<StartupItem> scanStartupItems(const std::vector<AppRef>& apps, const std::string& home, const Facts& facts) {
    struct Folder {
        std::string path;
        StartupItem::Scope scope;
        bool isDaemon;
    };
    const Folder folders[] = {
        {appendingPathComponent(home, "Library/LaunchAgents"), StartupItem::Scope::user, false},
        {"/Library/LaunchAgents", StartupItem::Scope::system, false},
        {"/Library/LaunchDaemons", StartupItem::Scope::system, true},
    };
    std::vector<StartupItem> items;
    for (const auto& folder : folders)
        for (const auto& entry : sortedEntries(folder.path, facts, isLaunchPlistName))
            if (auto item = fromFolder(folder.path, entry, folder.scope, folder.isDaemon, apps, facts))
                items.push_back(std::move(*item));

    const std::vector<AppRef> trashed = trashedApps(home, facts);
    std::vector<AppRef> all = apps;
    all.insert(all.end(), trashed.begin(), trashed.end());
    struct InsideFolder {
        const char* path;
        bool isDaemon;
    };
    constexpr InsideFolder inside[] = {
        {"Contents/Library/LaunchAgents", false},
        {"Contents/Library/LaunchDaemons", true},
        {"Contents/Library/LoginItems", false},
    };
    for (const auto& app : all) {
        if (app.bundleID.starts_with("com.apple.")) continue;
        const bool fromTrash = std::any_of(trashed.begin(), trashed.end(),
                                           [&](const AppRef& t) { return t.path == app.path; });
        for (const auto& folder : inside) {
            const std::string where = appendingPathComponent(app.path, folder.path);
            auto keep = [](std::string_view name) { return name.ends_with(kPlist) || name.ends_with(".app"); };
            for (const auto& entry : sortedEntries(where, facts, keep)) {
                const std::string& name = entry.name;
                StartupItem item;
                item.path = appendingPathComponent(where, name);
                item.label = deletingPathExtension(name);
                item.scope = StartupItem::Scope::insideApp;
                item.ownerName = fromTrash ? app.name + " (in the Trash)" : app.name;
                item.ownerMissing = fromTrash;
                item.enabled = true;
                item.isDaemon = folder.isDaemon;
                item.fromTrash = fromTrash;
                item.launchLabel = insideAppLaunchLabel(item.path, facts);
                items.push_back(std::move(item));
            }
        }
    }
    return items;
}

std::vector<DisabledAgent> disabledAgents(const std::vector<std::string>& folders, const Facts& facts) {
    const std::string ending = switchedOffEnding();
    std::vector<DisabledAgent> agents;
    auto keep = [](std::string_view name) {
        return name.ends_with(switchedOffEnding()) && !name.starts_with("com.apple.");
    };
    for (const auto& folder : folders)
        for (const auto& entry : sortedEntries(folder, facts, keep)) {
            const std::string& name = entry.name;
            const std::string path = appendingPathComponent(folder, name);
            std::string label = name.substr(0, name.size() - ending.size());
            if (auto plist = readPropertyListDictionary(path, facts))
                if (auto named = plistString(*plist, "Label"); named && !named->empty()) label = *named;
            agents.push_back(DisabledAgent{path, std::move(label)});
        }
    return agents;
}

AgentRestoreVerdict agentRestoreVerdict(const DisabledAgent& agent, const std::function<bool(const std::string&)>& exists,
                                        const std::function<bool(const std::string&)>& isSymlink) {
    if (!agent.path.ends_with(switchedOffEnding()))
        return {agent_restore::Refuse{"not a switched-off login item"}};
    if (isSymlink(agent.path)) return {agent_restore::Refuse{"it is a symbolic link"}};
    if (exists(agent.path.substr(0, agent.path.size() - disabledAgentSuffix.size()))) return {agent_restore::AlreadyBack{}};
    return {agent_restore::Restore{}};
}

AgentRestore restoreDisabledAgent(const DisabledAgent& agent, bool bootstrap, const Facts& facts) {
    const std::string bullet = "• " + agent.label;
    auto isSymlink = [&](const std::string& path) {
        auto entry = facts.lstat(path);
        return entry && entry->isSymlink();
    };
    const AgentRestoreVerdict verdict = agentRestoreVerdict(agent, facts.exists, isSymlink);
    if (auto* refuse = std::get_if<agent_restore::Refuse>(&verdict.value))
        return {false, bullet + ": not switched back on — " + refuse->reason + "."};
    if (std::holds_alternative<agent_restore::AlreadyBack>(verdict.value))
        return {false, bullet + ": the app has already put its own copy back; the old switched-off copy was left as it is."};
    const std::string target = agent.path.substr(0, agent.path.size() - disabledAgentSuffix.size());
    // Never over a copy that appeared since the verdict: the rename itself refuses to replace.
    if (int error = platform::renameNoReplace(AT_FDCWD, agent.path, AT_FDCWD, target); error != 0)
        return {false, bullet + ": couldn't be switched back on (" + std::strerror(error) + ")."};
    if (bootstrap && isAtOrBelow(target, facts.home("")))
        facts.run(kLaunchctlTool, {"bootstrap", "gui/" + std::to_string(facts.uid), target}, kLaunchctlSeconds, false,
                  ToolErrors::discarded);
    return {true, bullet + " — switched back on"};
}

AgentSwitchOff switchOffUserAgent(const std::string& path, const Facts& facts) {
    if (!path.ends_with(kPlist)) return {false, {}, "only a launch property list (\".plist\") can be switched off."};
    auto entry = facts.lstat(path);
    if (!entry) return {false, {}, path + " is not there any more."};
    if (entry->isSymlink()) return {false, {}, path + " is a symbolic link; it was left as it is."};
    if (!entry->isRegularFile()) return {false, {}, path + " is not a file; it was left as it is."};
    if (pathTraversesSymlink(deletingLastPathComponent(path), facts))
        return {false, {}, "a folder on the way to " + path + " is a symbolic link; nothing was renamed."};
    const std::string target = path + std::string(disabledAgentSuffix);
    if (int error = platform::renameNoReplace(AT_FDCWD, path, AT_FDCWD, target); error != 0) {
        if (error == EEXIST)
            return {false, {}, "a switched-off copy is already there (" + target + "); nothing was renamed."};
        return {false, {}, path + " couldn't be renamed (" + std::strerror(error) + ")."};
    }
    return {true, target, {}};
}

bool launchJobLoaded(std::string_view label, const Facts& facts) {
    if (!isLaunchdLabel(label)) return false;
    const std::string target = "gui/" + std::to_string(facts.uid) + "/" + std::string(label);
    return facts.run(kLaunchctlTool, {"print", target}, kLaunchctlSeconds, false, ToolErrors::discarded).status == 0;
}

bool stopLaunchJob(std::string_view label, const Facts& facts) {
    if (!isLaunchdLabel(label)) return false;
    const std::string target = "gui/" + std::to_string(facts.uid) + "/" + std::string(label);
    if (facts.run(kLaunchctlTool, {"bootout", target}, kLaunchctlSeconds, false, ToolErrors::discarded).status == 0)
        return true;
    return !launchJobLoaded(label, facts);
}

bool isEnvironmentName(std::string_view name) {
    if (name.empty() || (name[0] >= '0' && name[0] <= '9')) return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
    });
}

namespace {

std::string persistentEnvPlist(const std::string& name, const Facts& facts) {
    return facts.home("Library/LaunchAgents/" + std::string(kPersistentEnvLabelPrefix) + name + ".plist");
}

}  // namespace

void setPersistentGUIEnv(const std::string& name, const std::string& value, const Facts& facts) {
    // The name becomes part of a file name; anything but a variable's name could leave the folder.
    if (!isEnvironmentName(name)) return;
    facts.run(kLaunchctlTool, {"setenv", name, value}, kLaunchctlSeconds, false, ToolErrors::discarded);
    const nlohmann::json agent = {
        {"Label", std::string(kPersistentEnvLabelPrefix) + name},
        {"ProgramArguments", {kLaunchctlTool, "setenv", name, value}},
        {"RunAtLoad", true},
    };
    std::error_code ignored;
    std::filesystem::create_directories(facts.home("Library/LaunchAgents"), ignored);
    if (auto xml = propertyListData(agent, PropertyListFormat::xml)) writeFileAtomically(persistentEnvPlist(name, facts), *xml);
    Ledger::log("ENV " + name + "=" + value + " (launchctl + LaunchAgent)");
}

void clearPersistentGUIEnv(const std::string& name, const Facts& facts) {
    if (!isEnvironmentName(name)) return;
    facts.run(kLaunchctlTool, {"unsetenv", name}, kLaunchctlSeconds, false, ToolErrors::discarded);
    std::error_code ignored;
    std::filesystem::remove(persistentEnvPlist(name, facts), ignored);
    Ledger::log("ENV " + name + " cleared (launchctl + LaunchAgent removed)");
}

}  // namespace orvane
