// orvane apps: which apps take the space and which are never used, grouped as a person would file
// them; the apps installed twice, the kernel extensions that are not Apple's, and resetting the
// privacy permissions of an app that is gone.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "cli/command.hpp"
#include "core/apps/app_bundle_inventory.hpp"
#include "core/apps/app_copies.hpp"
#include "core/apps/app_list.hpp"
#include "core/apps/tcc_permissions.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/property_list.hpp"
#include "core/scan/disk_measure.hpp"
#include "core/startup/launchd_inventory.hpp"
#include "core/startup/startup_items.hpp"

namespace orvane::cli {
namespace {

constexpr double kMeasureSeconds = 180;

struct AppsOptions {
    std::string sort = "sizeDesc";
    std::string filter = "all";
    std::string search;
    bool group = false;
    std::string bundleID;
    std::string excluding;
};

// What the list shows of one app beyond its record.
struct AppDetails {
    std::optional<std::string> version;
    std::optional<std::string> category;
    std::set<std::string> architectures;
    Macos27Verdict macos27 = Macos27Verdict::unknown;
};

std::optional<TimePoint> modifiedTime(const std::string& path, const Facts& facts) {
    const auto found = facts.lstat(path);
    if (!found) return std::nullopt;
    return Clock::from_time_t(found->modifiedSeconds);
}

// The newest change among the places an app keeps its data: a sign of use where the system's own
// record of it cannot be read.
std::optional<TimePoint> newestActivity(const std::string& bundleID, const Facts& facts) {
    if (bundleID.empty() || bundleID.find('/') != std::string::npos) return std::nullopt;
    std::optional<TimePoint> newest;
    for (const std::string& place :
         {"Library/Application Support/" + bundleID, "Library/Containers/" + bundleID, "Library/Caches/" + bundleID,
          "Library/Preferences/" + bundleID + ".plist"})
        if (auto changed = modifiedTime(facts.home(place), facts); changed && (!newest || *changed > *newest))
            newest = changed;
    return newest;
}

// The apps that start by themselves: an enabled launch item or login item of theirs, or a job an
// app registered with launchd.
std::set<std::string> appsThatStartThemselves(const std::vector<AppRef>& apps, const Facts& facts) {
    std::set<std::string> starting;
    const std::string home = facts.home("");
    for (const auto& item : scanStartupItems(apps, home, facts)) {
        if (!item.enabled || item.fromTrash) continue;
        for (const auto& app : apps)
            if ((item.ownerName && *item.ownerName == app.name) || isAtOrBelow(item.path, app.path))
                starting.insert(app.path);
    }
    for (const auto& item : LaunchdInventory::registeredItems(apps, velloranOwnBundleIDs, home, facts.uid, true, facts))
        if (const auto* owner = std::get_if<startup_owner::App>(&item.owner.value)) starting.insert(owner->app.path);
    return starting;
}

nlohmann::ordered_json dateJSON(const std::optional<TimePoint>& date) { return date ? nlohmann::ordered_json(iso8601(*date)) : nullptr; }

nlohmann::ordered_json appJSON(const AppListRow& row, const InstalledApp& app, const AppDetails& details, TimePoint now) {
    nlohmann::ordered_json json = {{"id", row.id()}, {"path", app.id}, {"name", app.name}, {"bundleID", app.bundleID},
                                   {"size", app.size}};
    if (app.lastUsed) json["lastUsed"] = dateJSON(app.lastUsed);
    json["loginItem"] = app.loginItem;
    if (app.activity) json["activity"] = dateJSON(app.activity);
    if (app.installed) json["installed"] = dateJSON(app.installed);
    if (auto chip = appUsageChip(app, false, now)) json["chip"] = {{"text", chip->text}, {"tone", toneName(chip->tone)}};
    if (details.version) json["version"] = *details.version;
    if (details.category) json["category"] = *details.category;
    json["architectures"] = details.architectures;  // a set: sorted
    json["macos27"] = rawValue(details.macos27);
    return json;
}

std::string sizeCell(std::int64_t bytes) { return bytes < 0 ? "?" : fmtBytes(bytes); }

Result runApps(const AppsOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    const std::vector<std::pair<std::string, AppSortOrder>> sorts = {
        {"sizeDesc", AppSortOrder::sizeDesc}, {"sizeAsc", AppSortOrder::sizeAsc},     {"nameAsc", AppSortOrder::nameAsc},
        {"nameDesc", AppSortOrder::nameDesc}, {"forgotten", AppSortOrder::forgotten}, {"recent", AppSortOrder::recent}};
    const auto sort = std::find_if(sorts.begin(), sorts.end(), [&](const auto& s) { return s.first == options.sort; });
    if (sort == sorts.end())
        throw OVError("--sort must be sizeDesc, sizeAsc, nameAsc, nameDesc, forgotten or recent, not \"" + options.sort + "\".");
    const AppSortOrder order = sort->second;
    if (options.filter != "all" && options.filter != "unused") throw OVError("--filter must be all or unused, not \"" + options.filter + "\".");

    in.progress.show("Listing the installed apps…");
    const InstalledApps installed = installedApps(facts);
    in.progress.show("Reading what starts by itself…");
    const auto starting = appsThatStartThemselves(installed.apps, facts);
    std::vector<std::string> paths;
    for (const auto& app : installed.apps) paths.push_back(app.path);
    in.progress.show("Measuring the apps…");
    const auto sizes = duBatchMeasure(paths, kMeasureSeconds, facts).sizes;

    std::vector<InstalledApp> apps;
    std::map<std::string, AppDetails> details;
    for (const auto& ref : installed.apps) {
        InstalledApp app;
        app.id = ref.path;
        app.name = ref.name;
        app.bundleID = ref.bundleID;
        const auto size = sizes.find(ref.path);
        app.size = size == sizes.end() ? -1 : size->second;
        app.loginItem = starting.contains(ref.path);
        // A file date ahead of the clock (a copied disk, a recording) is taken as now.
        const auto notAfterNow = [&](std::optional<TimePoint> date) {
            return date ? std::optional(std::min(*date, facts.now())) : std::nullopt;
        };
        app.activity = notAfterNow(newestActivity(ref.bundleID, facts));
        app.installed = notAfterNow(modifiedTime(ref.path, facts));
        apps.push_back(app);

        AppDetails& more = details[ref.path];
        if (const auto info = readPropertyListDictionary(appendingPathComponent(ref.path, "Contents/Info.plist"), facts)) {
            more.version = appVersionLine(plistString(*info, "CFBundleShortVersionString"), plistString(*info, "CFBundleVersion"));
            if (const auto category = plistString(*info, "LSApplicationCategoryType")) more.category = prettyAppCategory(*category);
            more.architectures = appArchitectures(ref.path, *info, facts);
        }
        more.macos27 = macos27Verdict(more.architectures);
    }

    const TimePoint now = facts.now();
    const std::set<std::string> running;  // nothing reports running apps off macOS
    const auto shown = filterApps(apps, options.search,
                                  options.filter == "unused" ? AppShowFilter::unused : AppShowFilter::all, {}, running, now);
    const std::vector<std::string> roots = {"/Applications", facts.home("Applications")};
    const auto rows = flattenAppEntries(groupedAppEntries(shown, order, options.group, roots, running, now), {});

    Result result;
    if (!installed.complete)
        result.notes.push_back("Not every Applications folder could be read, so some apps may be missing.");
    Table table({Table::Align::right, Table::Align::left, Table::Align::left, Table::Align::left, Table::Align::left});
    nlohmann::ordered_json json = nlohmann::ordered_json::array();
    for (const auto& row : rows) {
        if (const auto* group = std::get_if<AppVendorGroup>(&row.value)) {
            table.row({sizeCell(group->size()), group->name + " (" + countedNoun(static_cast<std::int64_t>(group->apps.size()), "app") + ")", "", "", ""});
            nlohmann::ordered_json members = nlohmann::ordered_json::array();
            for (const auto& app : group->apps) members.push_back(app.id);
            json.push_back({{"id", row.id()}, {"name", group->name}, {"size", group->size()}, {"apps", std::move(members)}});
            continue;
        }
        const auto& [app, grouped] = std::get<AppListRow::App>(row.value);
        const AppDetails& more = details.at(app.id);
        const auto chip = appUsageChip(app, false, now);
        std::string verdict;
        if (more.macos27 == Macos27Verdict::intelOnly) verdict = "Intel only";
        else if (more.macos27 == Macos27Verdict::thirtyTwoBit) verdict = "32-bit";
        table.row({sizeCell(app.size), (grouped ? "  " : "") + app.name, more.version.value_or(""),
                   chip ? chip->text : "", verdict.empty() ? app.id : verdict + "  " + app.id});
        json.push_back(appJSON(row, app, more, now));
    }
    if (rows.empty()) result.line(installed.apps.empty() ? "No apps were found." : "No app matches.");
    else result.add(table);
    result.json = {{"rows", std::move(json)}};
    return result;
}

nlohmann::ordered_json copyJSON(const AppCopy& copy) {
    nlohmann::ordered_json json = {{"path", copy.path}, {"bundleID", copy.bundleID}};
    if (copy.version) json["version"] = *copy.version;
    if (copy.modified) json["modified"] = iso8601(*copy.modified);
    return json;
}

Result runCopies(const Invocation& in) {
    const Facts& facts = in.facts;
    std::vector<AppCopy> copies;
    for (const auto& ref : installedApps(facts).apps) {
        AppCopy copy{ref.path, ref.bundleID, std::nullopt, modifiedTime(ref.path, facts)};
        if (const auto info = readPropertyListDictionary(appendingPathComponent(ref.path, "Contents/Info.plist"), facts))
            copy.version = plistString(*info, "CFBundleShortVersionString");
        copies.push_back(std::move(copy));
    }
    Result result;
    nlohmann::ordered_json groups = nlohmann::ordered_json::array();
    for (const auto& group : duplicateAppGroups(copies)) {
        result.line(group.front().bundleID + ":");
        nlohmann::ordered_json members = nlohmann::ordered_json::array();
        for (const auto& copy : group) {
            result.line("  " + copy.path + (copy.version ? "  " + *copy.version : ""));
            members.push_back(copyJSON(copy));
        }
        groups.push_back(std::move(members));
    }
    if (groups.empty()) result.line("No app is installed twice.");
    result.json = {{"groups", std::move(groups)}};
    return result;
}

Result runKexts(const Invocation& in) {
    Result result;
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const auto& kext : thirdPartyKernelExtensions("/Library/Extensions", in.facts)) {
        result.line(kext.name + (kext.bundleID.empty() ? "" : "  " + kext.bundleID));
        rows.push_back({{"name", kext.name}, {"bundleID", kext.bundleID}});
    }
    if (rows.empty()) result.line("No kernel extensions other than Apple's in /Library/Extensions.");
    result.json = {{"kexts", std::move(rows)}};
    return result;
}

Result outcomeResult(const TCCResetOutcome& outcome) {
    Result result;
    result.line(outcome.bundleID + ": " + std::string(rawValue(outcome.status)) +
                (outcome.detail.empty() ? "" : " — " + outcome.detail));
    result.json = toJSON(outcome);
    result.status = outcome.status == TCCResetStatus::reset ? kDone : kRefused;
    return result;
}

Result runResetPermissions(const AppsOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    const std::optional<std::string> excluding =
        options.excluding.empty() ? std::nullopt : std::optional(absolutePath(options.excluding));
    if (facts.recorded) {
        // The refusals stand on a recording too; only running tccutil is left out.
        if (!isTCCResettableBundleID(options.bundleID, velloranOwnBundleIDs))
            return outcomeResult({options.bundleID, TCCResetStatus::refused, "not an allowed bundle id"});
        auto copies = installedCopies(options.bundleID, facts.home(""), facts);
        if (excluding) std::erase(copies, *excluding);
        if (!copies.empty())
            return outcomeResult({options.bundleID, TCCResetStatus::otherCopyInstalled,
                                  fmt::format("{}", fmt::join(copies, ", "))});
        return nothingChangedOnARecording(
            {"Would run " + std::string(TCCPermissions::tccutil) + " reset All " + options.bundleID + "."});
    }
    return outcomeResult(TCCPermissions::reset(options.bundleID, velloranOwnBundleIDs, TCCPermissions::tccutil,
                                               facts.home(""), excluding, facts));
}

}  // namespace

void addAppsCommands(Registry& registry) {
    auto options = std::make_shared<AppsOptions>();
    auto* apps = registry.add(
        "apps",
        "List the apps in /Applications and ~/Applications with their size, version, how much they are used "
        "(\"Unused 45 days\", \"Starts automatically\", \"Cold — no signals\") and whether they will run on the "
        "next macOS (Intel only, 32-bit). --group files them by the folder they share or by vendor. Exit 2 for a "
        "bad --sort or --filter.",
        [options](const Invocation& in) { return runApps(*options, in); });
    apps->add_option("--sort", options->sort, "sizeDesc, sizeAsc, nameAsc, nameDesc, forgotten or recent")
        ->capture_default_str();
    apps->add_option("--filter", options->filter, "all, or unused: not used for 60 days, or 30 since installing")
        ->capture_default_str();
    apps->add_option("--search", options->search, "Only apps whose name or bundle id contains TEXT")->type_name("TEXT");
    apps->add_flag("--group", options->group, "Group apps by the folder they share, else by vendor");

    registry.add(*apps, "copies", "List the apps installed more than once: the same bundle id at several places.",
                 [](const Invocation& in) { return runCopies(in); });
    registry.add(*apps, "kexts", "List the kernel extensions in /Library/Extensions that are not Apple's.",
                 [](const Invocation& in) { return runKexts(in); });
    auto* reset = registry.add(
        *apps, "reset-permissions",
        "Reset every privacy permission (camera, files, automation...) of an app that is gone, with tccutil. "
        "Refused for Apple's and this product's own ids, and while another copy of the app is installed. Exit "
        "0 only when reset.",
        [options](const Invocation& in) { return runResetPermissions(*options, in); });
    reset->add_option("BUNDLE_ID", options->bundleID, "The app's bundle id")->required();
    reset->add_option("--excluding", options->excluding, "A copy being removed, which does not count as installed")
        ->type_name("PATH");
}

}  // namespace orvane::cli
