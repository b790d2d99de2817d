// orvane startup: what third-party software starts at login or at boot and whose it is, the jobs
// apps registered with launchd, the ghosts of the background-task database, and switching an item
// off and back on exactly.
#include "core/apps/app_bundle_inventory.hpp"
#include "core/common/path.hpp"
#include "core/privileged/client.hpp"
#include "core/startup/btm_audit.hpp"
#include "core/startup/launchd_inventory.hpp"
#include "core/startup/startup_items.hpp"
#include "cli/command.hpp"

namespace orvane::cli {
namespace {

constexpr double kDumpSeconds = 120;

struct StartupOptions {
    std::string id;
    std::string socket = kDefaultHelperSocket;
    bool reset = false;
    std::string name;
    std::string value;
};

std::string ownerCell(const StartupItem& item) {
    std::string owner = item.ownerName.value_or("unknown owner");
    if (item.ownerMissing && !item.fromTrash) owner += " (program missing)";
    return owner;
}

std::string scopeCell(StartupItem::Scope scope) {
    switch (scope) {
        case StartupItem::Scope::user: return "login";
        case StartupItem::Scope::system: return "all users";
        case StartupItem::Scope::insideApp: return "inside app";
    }
    return {};
}

Result runList(const Invocation& in) {
    const Facts& facts = in.facts;
    in.progress.show("Reading the launch folders and the apps…");
    const auto apps = installedApps(facts).apps;
    const auto items = scanStartupItems(apps, facts.home(""), facts);
    in.progress.show("Asking launchd what apps registered…");
    const auto registered = LaunchdInventory::registeredItems(apps, velloranOwnBundleIDs, facts.home(""), facts.uid,
                                                              true, facts);
    Result result;
    result.json = {{"items", nlohmann::ordered_json::array()}, {"registered", nlohmann::ordered_json::array()}};
    for (const auto& item : items) result.json["items"].push_back(toJSON(item));
    for (const auto& item : registered) result.json["registered"].push_back(toJSON(item));

    if (items.empty()) {
        result.line("No third-party item starts at login or at boot.");
    } else {
        result.line(counted(items.size(), "item") + (items.size() == 1 ? " starts" : " start") + " at login or at boot:");
        Table table({Table::Align::left, Table::Align::left, Table::Align::left, Table::Align::left, Table::Align::left});
        for (const auto& item : items)
            table.row({item.enabled ? "on" : "off", scopeCell(item.scope), item.label, ownerCell(item), item.path});
        result.add(table);
    }
    result.line();
    if (registered.empty()) {
        result.line("No app registered a background job with launchd.");
    } else {
        result.line(counted(registered.size(), "job") + " registered by apps:");
        Table table({Table::Align::left, Table::Align::left, Table::Align::left, Table::Align::left});
        for (const auto& item : registered)
            table.row({item.id(), describe(item.owner), item.running() ? "running" : "not running",
                       item.isStale() ? "stale" : ""});
        result.add(table);
    }
    return result;
}

// The items ID names: by path as printed, or by a label one item alone has.
template <typename T>
std::vector<T> named(const std::vector<T>& candidates, const std::string& id,
                     const std::function<bool(const T&)>& pathMatches) {
    std::vector<T> byPath, byLabel;
    for (const auto& c : candidates) {
        if (pathMatches(c)) byPath.push_back(c);
        else if (c.label == id) byLabel.push_back(c);
    }
    return byPath.empty() ? byLabel : byPath;
}

template <typename T>
T theOne(const std::vector<T>& found, const std::string& id, std::string_view what) {
    if (found.empty())
        throw OVError("No " + std::string(what) + " is called " + id + "; orvane startup lists them by path and label.");
    if (found.size() > 1) {
        std::string paths;
        for (const auto& f : found) paths += (paths.empty() ? "" : ", ") + f.path;
        throw OVError("Several items have the label " + id + ": " + paths + ". Give the path of the one you mean.");
    }
    return found.front();
}

Result helperAnswer(const HelperAnswer& answer, const std::string& doneLine) {
    Result result;
    const bool done = answer.kind == HelperAnswer::Kind::done;
    if (done) result.line(doneLine);
    else result.notes.push_back(answer.sentence);
    result.status = done ? kDone : kRefused;
    result.json = {{"done", done}};
    if (!done) result.json["sentence"] = answer.sentence;
    return result;
}

std::vector<std::string> launchFolders(const Facts& facts) {
    return {facts.home("Library/LaunchAgents"), "/Library/LaunchAgents", "/Library/LaunchDaemons"};
}

Result runOff(const StartupOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    const auto items = scanStartupItems(installedApps(facts).apps, facts.home(""), facts);
    const std::string typed = absolutePath(options.id);
    const StartupItem item = theOne<StartupItem>(
        named<StartupItem>(items, options.id, [&](const StartupItem& i) { return i.path == typed; }), options.id,
        "startup item");
    Result refused;
    refused.status = kRefused;
    refused.json = {{"done", false}};
    if (!item.canSwitch()) {
        refused.line("• " + item.label + " lies inside " + item.ownerName.value_or("its app") +
                     ": only the app itself can switch it off, or uninstalling the app.");
        return refused;
    }
    if (!item.enabled) {
        refused.line("• " + item.label + " is already switched off.");
        return refused;
    }
    const std::string switchedOff = item.path + std::string(disabledAgentSuffix);
    if (item.scope == StartupItem::Scope::system) {
        if (facts.recorded)
            return nothingChangedOnARecording({"Would ask the helper to rename " + item.path + " to " + switchedOff + "."});
        return helperAnswer(performThroughHelper(op::SetLaunchItemEnabled{item.path, false}, options.socket),
                            "• " + item.label + " — switched off");
    }
    if (facts.recorded)
        return nothingChangedOnARecording(
            {"Would rename " + item.path + " to " + switchedOff + " and stop " + item.label + "."});
    const AgentSwitchOff renamed = switchOffUserAgent(item.path, facts);
    if (!renamed.ok) {
        refused.notes.push_back(renamed.problem);
        return refused;
    }
    Result result;
    result.line("• " + item.label + " — switched off");
    if (!stopLaunchJob(item.label, facts))
        result.notes.push_back(item.label + " is still running now; it will not start at the next login.");
    result.json = {{"done", true}, {"path", renamed.path}};
    return result;
}

Result runOn(const StartupOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    const auto agents = disabledAgents(launchFolders(facts), facts);
    const std::string typed = absolutePath(options.id);
    const DisabledAgent agent = theOne<DisabledAgent>(
        named<DisabledAgent>(agents, options.id,
                             [&](const DisabledAgent& a) {
                                 return a.path == typed || a.path == typed + std::string(disabledAgentSuffix);
                             }),
        options.id, "switched-off item");
    const std::string restored = agent.path.substr(0, agent.path.size() - disabledAgentSuffix.size());
    if (!isAtOrBelow(agent.path, facts.home(""))) {
        if (facts.recorded)
            return nothingChangedOnARecording({"Would ask the helper to rename " + agent.path + " to " + restored + "."});
        return helperAnswer(performThroughHelper(op::SetLaunchItemEnabled{agent.path, true}, options.socket),
                            "• " + agent.label + " — switched back on");
    }
    if (facts.recorded)
        return nothingChangedOnARecording({"Would rename " + agent.path + " to " + restored + " and load it."});
    const AgentRestore restore = restoreDisabledAgent(agent, true, facts);
    Result result;
    result.line(restore.line);
    result.status = restore.ok ? kDone : kRefused;
    result.json = {{"done", restore.ok}, {"line", restore.line}};
    return result;
}

Result runAudit(const StartupOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    in.progress.show("Reading the background-task database…");
    const ToolResult dump = facts.run(kBackgroundTaskDumpTool, {"dumpbtm"}, kDumpSeconds, false, ToolErrors::discarded);
    if (dump.lines.empty()) {
        Result result;
        result.status = kRefused;
        const std::string why = dump.timedOut            ? "did not finish within two minutes"
                                : dump.status == -1      ? "could not be run"
                                                         : "printed nothing";
        result.line(std::string(kBackgroundTaskDumpTool) + " " + why +
                    ", so the background-task database could not be read.");
        result.json = {{"read", false}, {"reason", result.lines.front()}};
        return result;
    }
    const auto assessment = assessBTMDump(parseBTMDump(dump.lines), facts.uid, facts.home(""), facts.exists);
    const std::string description = describeBTMUnjudged(assessment.unjudgedReasons);
    Result result;
    result.json = {{"records", assessment.records},
                   {"ghosts", assessment.ghosts},
                   {"unjudged", assessment.unjudged},
                   {"unjudgedReasons", nlohmann::ordered_json::object()},
                   {"description", description}};
    for (const auto& [reason, count] : assessment.unjudgedReasons)
        if (count != 0) result.json["unjudgedReasons"][std::string(rawValue(reason))] = count;
    result.line("The background-task database holds " + counted(assessment.records, "record") + ".");
    if (assessment.ghosts.empty()) {
        result.line("None of them is a ghost: every one that names a place still has it.");
    } else {
        result.line(counted(assessment.ghosts.size(), "ghost") +
                    ", whose files are all gone (System Settings still lists them):");
        for (const auto& ghost : assessment.ghosts) result.line("  " + ghost);
    }
    if (assessment.unjudged > 0)
        result.line(counted(assessment.unjudged, "record") + " could not be judged: " + description + ".");
    if (!options.reset) return result;

    result.line();
    const std::string plan = "Would ask the helper to reset the background-task database.";
    if (facts.recorded) {
        Result recorded = nothingChangedOnARecording({plan});
        recorded.lines.insert(recorded.lines.begin(), result.lines.begin(), result.lines.end());
        recorded.json["audit"] = result.json;
        return recorded;
    }
    const HelperAnswer answer = performThroughHelper(op::ResetBackgroundItems{}, options.socket);
    if (answer.kind == HelperAnswer::Kind::done) {
        result.line("The background-task database was reset; macOS rebuilds it as apps start, and asks again for "
                    "the items they add.");
    } else {
        result.status = kRefused;
        result.notes.push_back(answer.sentence);
    }
    result.json["reset"] = answer.kind == HelperAnswer::Kind::done;
    return result;
}

void requireEnvironmentName(const std::string& name) {
    if (!isEnvironmentName(name))
        throw OVError("\"" + name + "\" is not a variable name: letters, digits and _, not beginning with a digit.");
}

Result runSetEnv(const StartupOptions& options, const Invocation& in) {
    requireEnvironmentName(options.name);
    const std::string agent =
        in.facts.home("Library/LaunchAgents/" + std::string(kPersistentEnvLabelPrefix) + options.name + ".plist");
    const std::string plan = "Would set " + options.name + "=" + options.value + " with launchctl and write " + agent + ".";
    if (in.facts.recorded) return nothingChangedOnARecording({plan});
    setPersistentGUIEnv(options.name, options.value, in.facts);
    Result result;
    // The library lets a failed write pass; the person must not be told the variable will last.
    const auto written = in.facts.lstat(agent);
    if (!written || !written->isRegularFile()) {
        result.status = kRefused;
        result.line("• " + options.name + "=" + options.value + " — set for this login only: " + agent +
                    " could not be written, so it will not be set again at the next login");
        result.json = {{"done", false}, {"agent", agent}};
        return result;
    }
    result.line("• " + options.name + "=" + options.value + " — set for this login and every later one (" + agent + ")");
    result.json = {{"done", true}, {"agent", agent}};
    return result;
}

Result runUnsetEnv(const StartupOptions& options, const Invocation& in) {
    requireEnvironmentName(options.name);
    const std::string agent =
        in.facts.home("Library/LaunchAgents/" + std::string(kPersistentEnvLabelPrefix) + options.name + ".plist");
    if (in.facts.recorded)
        return nothingChangedOnARecording({"Would unset " + options.name + " with launchctl and remove " + agent + "."});
    clearPersistentGUIEnv(options.name, in.facts);
    Result result;
    result.line("• " + options.name + " — cleared, and its agent removed");
    result.json = {{"done", true}};
    return result;
}

}  // namespace

void addStartupCommand(Registry& registry) {
    auto options = std::make_shared<StartupOptions>();
    auto* startup = registry.add(
        "startup",
        "List what third-party software starts at login or at boot: the launch folders (on or off, for this user "
        "or all users, or inside an app), whose each item is, and the jobs apps registered with launchd, with "
        "their owner, whether they run and whether their app is gone.",
        runList);
    auto withSocket = [&](CLI::App* command) {
        command->add_option("--socket", options->socket, "The helper's socket, for items under /Library")
            ->type_name("PATH")
            ->capture_default_str();
    };

    auto* off = registry.add(
        *startup, "off",
        "Switch an item off: a plist of your own LaunchAgents is renamed to NAME.plist.disabled-by-orvane and its "
        "job stopped; one under /Library is renamed by the helper. Items inside an app are the app's to switch "
        "(exit 1). Exit 2 when ID names no item, or several.",
        [options](const Invocation& in) { return runOff(*options, in); });
    off->add_option("ID", options->id, "The item's path as orvane startup prints it, or its label")->required();
    withSocket(off);

    auto* on = registry.add(
        *startup, "on",
        "Switch a switched-off item back on, exactly as it was: never over a copy its app has put back (exit 1).",
        [options](const Invocation& in) { return runOn(*options, in); });
    on->add_option("ID", options->id, "The item's path (with or without .disabled-by-orvane), or its label")->required();
    withSocket(on);

    auto* audit = registry.add(
        *startup, "audit",
        "Read the background-task database (sfltool dumpbtm) and say how many records it holds, which are ghosts "
        "of apps that are gone, and which cannot be judged. --reset then asks the helper to reset it.",
        [options](const Invocation& in) { return runAudit(*options, in); });
    audit->add_flag("--reset", options->reset, "Reset the database through the helper after the audit");
    withSocket(audit);

    auto* setenv = registry.add(*startup, "setenv",
                                "Set an environment variable for every app, now and at each login (launchctl "
                                "setenv, and an agent in ~/Library/LaunchAgents that sets it again).",
                                [options](const Invocation& in) { return runSetEnv(*options, in); });
    setenv->add_option("NAME", options->name, "The variable's name: letters, digits and _")->required();
    setenv->add_option("VALUE", options->value, "Its value")->required();

    auto* unsetenv = registry.add(*startup, "unsetenv", "Clear a variable set with startup setenv, and remove its agent.",
                                  [options](const Invocation& in) { return runUnsetEnv(*options, in); });
    unsetenv->add_option("NAME", options->name, "The variable's name")->required();
}

}  // namespace orvane::cli
