#include "core/apps/leftovers.hpp"

#include <algorithm>

#include "core/apps/app_groups.hpp"
#include "core/apps/installed_identifiers.hpp"
#include "core/authenticity/genuine_check.hpp"
#include "core/common/path.hpp"
#include "core/common/property_list.hpp"
#include "core/common/text.hpp"
#include "core/startup/launchd_inventory.hpp"
#include "core/startup/startup_items.hpp"

namespace orvane {

namespace {

constexpr std::string_view kGroupContainers = "/Library/Group Containers";
constexpr std::string_view kSupportFolder = "Application Support";

bool isVisibleName(std::string_view name) {
    return !name.empty() && name != "." && name != "..";
}

// A Library folder and what its entries are judged by.
struct LibraryFolder {
    std::string path;
    bool groupContainers = false;
    bool machineWide = false;
    bool support = false;  // an Application Support folder
    bool launch = false;   // a LaunchAgents or LaunchDaemons folder
};

LibraryFolder libraryFolder(std::string path, bool machineWide) {
    const std::string name = lastPathComponent(path);
    return {path, path.ends_with(kGroupContainers), machineWide, name == kSupportFolder,
            name == "LaunchAgents" || name == "LaunchDaemons"};
}

// A launch job whose program is still on the disk is live software, whatever its name says: a
// daemon installed by a package has no app to be found by.
bool runsAProgramThatIsThere(const std::string& plist, const Facts& facts) {
    const auto dictionary = readPropertyListDictionary(plist, facts);
    if (!dictionary) return false;
    const auto program = launchItemProgram(*dictionary);
    return program && program->starts_with('/') && facts.exists(*program);
}

// A name led by a team that orphanOwner found to have nothing installed is judged by the rest;
// while no team can be read, the team keeps the name.
std::string_view withoutUninstalledTeam(std::string_view name, const InstalledTeamIDs& teams) {
    const auto dot = name.find('.');
    if (!teams || dot == std::string_view::npos || !isTeamID(name.substr(0, dot))) return name;
    return name.substr(dot + 1);
}

// One entry of a Library folder judged by the rules that fit its folder; none keeps it.
std::optional<LeftoverRow> judged(const LibraryFolder& folder, const FolderEntry& entry, const LeftoverOwners& owners,
                                  const Facts& facts) {
    const auto path = [&] { return appendingPathComponent(folder.path, entry.name); };
    if (folder.groupContainers) {
        if (isOrphanedGroupContainer(entry.name, owners.teams, owners.bundleIDs))
            return LeftoverRow{path(), LeftoverRule::groupContainer, groupContainerParts(entry.name).base};
        return std::nullopt;
    }
    if (auto owner = orphanOwner(entry.name, owners.bundleIDs, owners.teams))
        if (!reverseDNSLeftoverOwnedLowercase(withoutUninstalledTeam(entry.name, owners.teams), owners.bundleIDs,
                                              owners.claimedGroups) &&
            !(folder.launch && !entry.isFolder && runsAProgramThatIsThere(path(), facts)))
            return LeftoverRow{path(), LeftoverRule::reverseDNS, std::move(*owner)};
    if (!folder.support || !entry.isFolder) return std::nullopt;
    if (!freeformLeftoverOffered(entry.name, owners.names, owners.bundleIDs)) return std::nullopt;
    if (folder.machineWide && systemSupportFolderOwned(entry.name, owners.names, owners.bundleIDs))
        return std::nullopt;
    const auto curated = std::find_if(curatedFreeformLeftovers.begin(), curatedFreeformLeftovers.end(),
                                      [&](const FreeformLeftover& row) { return row.folder == entry.name; });
    return LeftoverRow{path(), LeftoverRule::freeform, std::string(curated->bundleIDs.front())};
}

std::vector<LeftoverRow> emptyApplicationsFolderRows(const Facts& facts) {
    std::vector<LeftoverRow> rows;
    const std::string applications = "/Applications";
    std::vector<ApplicationsEntry> entries;
    for (const auto& entry : sortedEntries(applications, facts, isVisibleName)) {
        ApplicationsEntry listed{entry.name, entry.isFolder, std::nullopt};
        if (entry.isFolder)
            if (auto contents = facts.list(appendingPathComponent(applications, entry.name))) {
                listed.contents.emplace();
                for (const auto& child : *contents) listed.contents->push_back(child.name);
            }
        entries.push_back(std::move(listed));
    }
    for (auto& path : emptyApplicationsFolders(applications, entries))
        rows.push_back(LeftoverRow{std::move(path), LeftoverRule::emptyFolder, std::nullopt});
    return rows;
}

}  // namespace

std::string_view rawValue(LeftoverRule rule) {
    switch (rule) {
        case LeftoverRule::reverseDNS: return "reverseDNS";
        case LeftoverRule::groupContainer: return "groupContainer";
        case LeftoverRule::freeform: return "freeform";
        case LeftoverRule::emptyFolder: return "emptyFolder";
    }
    return "reverseDNS";
}

LeftoverOwners leftoverOwners(const std::vector<AppRef>& apps, const std::string& home, const Facts& facts) {
    LeftoverOwners owners;
    std::vector<std::string> paths;
    for (const auto& app : apps) {
        paths.push_back(app.path);
        if (!app.name.empty()) owners.names.insert(lowercased(app.name));
        if (app.bundleID.empty()) owners.unidentified.push_back(app.path);
        else owners.bundleIDs.insert(lowercased(app.bundleID));
    }
    std::vector<std::string_view> pluginPlaces(pluginFolders.begin(), pluginFolders.end());
    owners.bundleIDs.merge(installedPluginBundleIDs(pluginPlaces, home, facts));
    owners.claimedGroups = claimedAppGroups(paths, facts);
    owners.teams = GenuineCheck::signingTeams(paths, facts);
    return owners;
}

std::vector<LeftoverRow> leftoverRows(const std::string& home, const LeftoverOwners& owners, const Facts& facts) {
    std::vector<LeftoverRow> rows;
    auto walk = [&](const LibraryFolder& folder) {
        for (const auto& entry : sortedEntries(folder.path, facts, isVisibleName))
            if (auto row = judged(folder, entry, owners, facts)) rows.push_back(std::move(*row));
    };
    // Any name might be the data of an app that was missed or whose identity is unknown.
    if (owners.judgeable()) {
        for (const auto relative : orphanUserDirs) walk(libraryFolder(appendingPathComponent(home, relative), false));
        for (const auto folder : orphanSystemDirs) walk(libraryFolder(std::string(folder), true));
    }
    for (auto& row : emptyApplicationsFolderRows(facts)) rows.push_back(std::move(row));
    return rows;
}

bool leftoverBelongsTo(const LeftoverRow& row, std::string_view base) {
    if (!row.id || base.empty()) return false;
    const std::string id = lowercased(*row.id);
    const std::string owner = lowercased(base);
    return id == owner || (id.starts_with(owner) && id.size() > owner.size() && id[owner.size()] == '.');
}

}  // namespace orvane
