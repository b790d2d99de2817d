#include "core/apps/vendor_folders.hpp"

#include <algorithm>

#include "core/apps/finder_only_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/safety/item_notes.hpp"

namespace orvane {

namespace {

bool isDeniedVendor(std::string_view name) {
    const std::string lower = lowercased(name);
    return std::find(vendorFolderDenyList.begin(), vendorFolderDenyList.end(), lower) != vendorFolderDenyList.end();
}

void addOnce(std::vector<std::string>& list, std::string value) {
    if (value.empty() || std::find(list.begin(), list.end(), value) != list.end()) return;
    list.push_back(std::move(value));
}

// A token names the entry itself or the start of a dotted name ("tool.plist", "tool.savedState"),
// never a longer word that merely begins with it ("toolbox").
bool matches(std::string_view name, const std::vector<std::string>& tokens) {
    const std::string lower = lowercased(name);
    return std::any_of(tokens.begin(), tokens.end(), [&](const std::string& token) {
        return lower == token ||
               (lower.size() > token.size() && lower.starts_with(token) && lower[token.size()] == '.');
    });
}

}  // namespace

bool VendorNameRule::isVendorFolder(std::string_view name) const {
    const std::string lower = lowercased(name);
    return std::any_of(vendors.begin(), vendors.end(),
                       [&](const std::string& vendor) { return lowercased(vendor) == lower; });
}

bool VendorNameRule::namedByThisApp(std::string_view name) const { return matches(name, tokens); }

bool VendorNameRule::ownedNameInSharedDirectory(std::string_view name) const { return matches(name, strongTokens); }

VendorNameRule vendorNameRule(std::string_view appName, std::string_view bundleID) {
    VendorNameRule rule;
    const auto idPieces = splitDroppingEmpties(bundleID, '.');
    if (idPieces.size() >= 2 && characterCount(idPieces[1]) >= 4 && !isDeniedVendor(idPieces[1]))
        rule.vendors.push_back(idPieces[1]);
    const auto words = splitDroppingEmpties(appName, ' ');
    if (words.size() >= 2 && characterCount(words.front()) >= 4 && !isDeniedVendor(words.front()))
        rule.vendors.push_back(words.front());

    const std::string lowerName = lowercased(appName);
    addOnce(rule.strongTokens, lowerName);
    std::string squeezed = lowerName;
    std::erase(squeezed, ' ');
    addOnce(rule.strongTokens, squeezed);
    if (!idPieces.empty() && characterCount(idPieces.back()) >= 4)
        addOnce(rule.strongTokens, lowercased(idPieces.back()));

    // A last word alone ("Studio", "Player") is too common to claim a file in a shared folder,
    // but inside the vendor's own folder it is the app's.
    rule.tokens = rule.strongTokens;
    if (!words.empty() && characterCount(words.back()) >= 5) addOnce(rule.tokens, lowercased(words.back()));
    return rule;
}

std::vector<VendorFolderPick> vendorFolderPlan(std::string_view appName, std::string_view bundleID,
                                               std::string_view directory,
                                               const std::vector<VendorFolderEntry>& entries) {
    const auto rule = vendorNameRule(appName, bundleID);
    std::vector<VendorFolderPick> picks;
    if ((rule.vendors.empty() && rule.strongTokens.empty()) || entries.empty()) return picks;

    for (const auto& entry : entries) {
        if (entry.name.empty() || entry.name == ".DS_Store") continue;
        if (!entry.isDirectory) {
            if (matches(entry.name, rule.strongTokens)) picks.push_back({entry.name, true, "App-named settings file"});
            continue;
        }
        if (!rule.isVendorFolder(entry.name)) continue;

        std::vector<std::string> kids = entry.children;
        std::erase(kids, std::string(".DS_Store"));
        std::vector<std::string> matched;
        for (const auto& kid : kids)
            if (matches(kid, rule.tokens)) matched.push_back(kid);
        // Any licence in the folder keeps it: taking the folder would take the licence with it,
        // even when the licence looks like this app's.
        const std::string folder = std::string(directory) + "/" + entry.name;
        const bool licensed = std::any_of(kids.begin(), kids.end(), [&](const std::string& kid) {
            return holdsActivationData(folder + "/" + kid);
        });
        if (!matched.empty() && !licensed && matched.size() == kids.size()) {
            picks.push_back({entry.name, true, "Vendor folder — holds only " + std::string(appName) + "'s data"});
            continue;
        }
        for (const auto& kid : matched) picks.push_back({entry.name + "/" + kid, true, "Vendor-folder data"});
    }
    return picks;
}

UninstallRowState uninstallRow(std::string_view path, bool requestedOn, std::string_view note) {
    if (holdsActivationData(path)) return {false, std::string(activationDataUninstallNote)};
    return {requestedOn, std::string(note)};
}

bool folderHoldsOnlyFinderFiles(const std::vector<std::string>& children, const std::vector<std::string>& ignoring) {
    return std::all_of(children.begin(), children.end(), [&](const std::string& child) {
        return std::find(finderOwnFolderFiles.begin(), finderOwnFolderFiles.end(), child) != finderOwnFolderFiles.end() ||
               std::find(ignoring.begin(), ignoring.end(), child) != ignoring.end();
    });
}

bool isRemovableVendorFolder(std::string_view path) {
    constexpr std::string_view root = "/Applications/";
    const std::string standard = standardizePath(path);
    if (!standard.starts_with(root) || standard.size() == root.size()) return false;
    const auto components = pathComponents(std::string_view(standard).substr(root.size()));
    if (components.empty()) return false;
    if (std::any_of(components.begin(), components.end(),
                    [](const std::string& component) { return component.ends_with(".app"); }))
        return false;
    // Utilities is the system's own folder, however empty it looks.
    return components.front() != "Utilities" && !components.front().empty();
}

std::optional<std::string> emptiedVendorFolder(std::string_view appPath,
                                               const std::vector<std::string>& applicationsRoots,
                                               const std::vector<std::string>& remaining) {
    std::vector<std::string> roots;
    for (std::string root : applicationsRoots) {
        if (root.ends_with('/')) root.pop_back();
        roots.push_back(std::move(root));
    }
    const auto isRoot = [&](const std::string& path) { return std::find(roots.begin(), roots.end(), path) != roots.end(); };
    const std::string folder = deletingLastPathComponent(appPath);
    const std::string grandparent = deletingLastPathComponent(folder);
    // Only one level down: deeper folders are a layout the user chose, not the vendor's wrapper.
    if (!appPath.ends_with(".app") || !isRoot(grandparent) || isRoot(folder)) return std::nullopt;
    if (lowercased(lastPathComponent(folder)) == "utilities") return std::nullopt;
    if (!std::all_of(remaining.begin(), remaining.end(), [](const std::string& name) { return isFinderOnlyFile(name); }))
        return std::nullopt;
    return folder;
}

}  // namespace orvane
