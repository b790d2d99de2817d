// orvane trash-apps: the apps in the Trash, which of them macOS still starts jobs for, and removing
// them for good by name, through the helper for those the user cannot remove alone.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "cli/command.hpp"
#include "core/apps/app_bundle_inventory.hpp"
#include "core/apps/trash_apps.hpp"
#include "core/common/path.hpp"
#include "core/common/property_list.hpp"
#include "core/privileged/client.hpp"
#include "core/startup/launchd_inventory.hpp"
#include "core/startup/startup_items.hpp"

namespace orvane::cli {
namespace {

// A bundle with more entries than this is taken to need an administrator rather than walked on.
constexpr int kNeedsAdminWalkLimit = 20000;

struct TrashAppsOptions {
    std::vector<std::string> names;
    bool admin = false;
    std::string socket = kDefaultHelperSocket;
};

// Every background job seen from outside: what launchd has registered, and the launch plists.
std::vector<BackgroundReference> backgroundReferences(const Facts& facts) {
    std::vector<BackgroundReference> references;
    const std::string home = facts.home("");
    for (const auto& item :
         LaunchdInventory::registeredItems(installedApps(facts).apps, velloranOwnBundleIDs, home, facts.uid, true, facts))
        references.push_back({item.job.label, item.job.parentBundleID, item.program});
    for (const std::string& folder : {facts.home("Library/LaunchAgents"), std::string("/Library/LaunchAgents"),
                                      std::string("/Library/LaunchDaemons")})
        for (const auto& entry : sortedEntries(folder, facts, [](std::string_view name) { return name.ends_with(".plist"); })) {
            const auto plist = readPropertyListDictionary(appendingPathComponent(folder, entry.name), facts);
            if (!plist) continue;
            const auto label = plistString(*plist, "Label");
            if (!label || label->empty()) continue;
            references.push_back({*label, std::nullopt, launchItemProgram(*plist)});
        }
    return references;
}

Result runTrashApps(const Invocation& in) {
    const Facts& facts = in.facts;
    in.progress.show("Looking in the Trash…");
    // Off macOS nothing withholds the Trash from a program; on a Mac the app asks for the access.
    const TrashApps::ScanReport report = TrashApps::scanDetailed(facts.home(""), true, facts);
    in.progress.show("Reading what launchd runs…");
    const auto stale = staleTrashApps(report.apps, backgroundReferences(facts));

    Result result;
    if (!report.readable && !facts.lstat(facts.home(".Trash")))
        result.line("There is no Trash folder (" + facts.home(".Trash") + "), so no apps in it.");
    else if (!report.readable)
        result.line("The Trash (" + facts.home(".Trash") + ") could not be read, so its apps are unknown" +
                    (report.linkCount && *report.linkCount > 2 ? ", though it holds something." : "."));
    else if (report.apps.empty()) result.line("No apps in the Trash.");
    // The walk reads this disk; a recorded Mac's bundles are not here to walk.
    if (facts.recorded && !report.apps.empty())
        result.notes.push_back("Whether an administrator is needed is not known on a recorded Mac.");

    nlohmann::ordered_json apps = nlohmann::ordered_json::array();
    for (const auto& app : report.apps) {
        const auto found = std::find_if(stale.begin(), stale.end(), [&](const StaleTrashApp& s) { return s.app.path == app.path; });
        std::optional<bool> needsAdmin;
        if (!facts.recorded) needsAdmin = trashAppNeedsAdmin(app.path, kNeedsAdminWalkLimit);

        std::string line = "• " + app.displayName() + "  (" + app.name + ")";
        if (!app.bundleID.empty()) line += "  " + app.bundleID;
        result.line(line);
        if (needsAdmin && *needsAdmin) result.line("    needs an administrator to remove (--admin)");
        if (found != stale.end())
            result.line(std::string(found->confirmed ? "    macOS still runs or registers: " : "    can start, though nothing was seen running: ") +
                        fmt::format("{}", fmt::join(found->labels, ", ")));

        nlohmann::ordered_json item = toJSON(app);
        item["displayName"] = app.displayName();
        if (needsAdmin) item["needsAdmin"] = *needsAdmin;
        if (found != stale.end()) item["stale"] = {{"labels", found->labels}, {"confirmed", found->confirmed}};
        apps.push_back(std::move(item));
    }
    result.line();
    result.line(report.summary());
    result.json = {{"apps", std::move(apps)}, {"readable", report.readable}};
    if (report.listed) result.json["listed"] = *report.listed;
    if (report.linkCount) result.json["linkCount"] = *report.linkCount;
    result.json["summary"] = report.summary();
    return result;
}

Result runDelete(const TrashAppsOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    if (facts.recorded) {
        std::vector<std::string> plan;
        for (const auto& name : options.names) plan.push_back("Would delete " + facts.home(".Trash/" + name) + " for good.");
        return nothingChangedOnARecording(plan);
    }
    std::vector<TrashAppDeleteOutcome> outcomes = TrashApps::deleteAsUser(options.names, facts.home(""));
    if (options.admin)
        for (auto& outcome : outcomes) {
            if (outcome.deleted || !outcome.needsAdmin) continue;
            const HelperAnswer answer = performThroughHelper(op::DeleteTrashedApp{outcome.name}, options.socket);
            if (answer.kind == HelperAnswer::Kind::done) outcome = {outcome.name, true, true, std::nullopt};
            else outcome.reason = answer.sentence;
        }

    Result result;
    nlohmann::ordered_json json = nlohmann::ordered_json::array();
    bool allDeleted = true;
    for (const auto& outcome : outcomes) {
        allDeleted = allDeleted && outcome.deleted;
        result.line(outcome.name + (outcome.deleted ? ": deleted" : ": not deleted — " + outcome.reason.value_or("unknown")));
        if (!outcome.deleted && outcome.needsAdmin && !options.admin)
            result.line("    an administrator may remove it: give --admin to ask the helper");
        json.push_back(toJSON(outcome));
    }
    result.json = {{"outcomes", std::move(json)}};
    result.status = allDeleted ? kDone : kRefused;
    return result;
}

}  // namespace

void addTrashAppsCommands(Registry& registry) {
    auto options = std::make_shared<TrashAppsOptions>();
    auto* trashApps = registry.add(
        "trash-apps",
        "List the apps in your Trash (also those the Finder renamed), whether removing each needs an "
        "administrator, and which of them macOS still starts background jobs for: an app in the Trash is not "
        "gone until it is deleted.",
        runTrashApps);
    auto* remove = registry.add(
        *trashApps, "delete",
        "Delete apps in the Trash for good, by their name there (as trash-apps prints it). Links are never "
        "followed. Exit 1 when one stayed.",
        [options](const Invocation& in) { return runDelete(*options, in); });
    remove->add_option("NAME", options->names, "An app's name in the Trash, such as \"Name.app\"")->required();
    remove->add_flag("--admin", options->admin, "Ask the helper to delete those that need an administrator");
    remove->add_option("--socket", options->socket, "The helper's socket, with --admin")
        ->type_name("PATH")
        ->capture_default_str();
}

}  // namespace orvane::cli
