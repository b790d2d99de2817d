#include "core/apps/leftover_ownership.hpp"

#include <algorithm>

#include "core/apps/app_groups.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/startup/launchd_inventory.hpp"

namespace orvane {

namespace {

template <std::size_t N>
bool contains(const std::array<std::string_view, N>& table, std::string_view value) {
    return std::find(table.begin(), table.end(), value) != table.end();
}

// `text` is `prefix` or goes on from it after a ".".
bool isOrExtends(std::string_view text, std::string_view prefix) {
    return text == prefix ||
           (text.size() > prefix.size() && text.starts_with(prefix) && text[prefix.size()] == '.');
}

bool extendsAfterDot(std::string_view text, std::string_view prefix) {
    return text.size() > prefix.size() && text.starts_with(prefix) && text[prefix.size()] == '.';
}

// leftoverVendor without allocating.
std::optional<std::string_view> vendorView(std::string_view id) {
    if (id.empty() || id.front() == '.' || id.back() == '.' || id.find("..") != std::string_view::npos)
        return std::nullopt;
    const auto first = id.find('.');
    const auto second = first == std::string_view::npos ? first : id.find('.', first + 1);
    if (second == std::string_view::npos) return std::nullopt;
    return id.substr(0, second);
}

bool isASCIILowercase(std::string_view text) {
    return std::none_of(text.begin(), text.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || static_cast<unsigned char>(c) >= 0x80;
    });
}

// Identifiers are looked up in their sorted set rather than scanned: the leftovers pass asks about
// thousands of names against hundreds of apps.
bool someStartsWith(const std::set<std::string>& ids, const std::string& prefix) {
    const auto it = ids.lower_bound(prefix);
    return it != ids.end() && it->starts_with(prefix);
}

// The first piece of a name with a dot: an installed identifier of one piece that a name extends.
std::string firstPiece(std::string_view name) {
    return std::string(name.substr(0, name.find('.')));
}

bool isDenied(std::string_view name) {
    return std::any_of(orphanDenylistPrefixes.begin(), orphanDenylistPrefixes.end(),
                       [&](std::string_view entry) { return isOrExtends(name, entry); });
}

bool isIdentifierPiece(std::string_view piece) {
    return !piece.empty() && std::all_of(piece.begin(), piece.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_';
    });
}

void dropPrefix(std::string& text, std::string_view prefix) {
    if (text.starts_with(prefix)) text.erase(0, prefix.size());
}

std::set<std::string> lowercasedAll(const std::set<std::string>& values) {
    std::set<std::string> lowered;
    for (const auto& value : values) lowered.insert(lowercased(value));
    return lowered;
}

}  // namespace

std::string baseBundleID(std::string_view id) {
    auto pieces = splitDroppingEmpties(id, '.');
    while (pieces.size() >= 4 && contains(helperBundleSuffixes, lowercased(pieces.back())))
        pieces.pop_back();
    std::string joined;
    for (const auto& piece : pieces) {
        if (!joined.empty()) joined += '.';
        joined += piece;
    }
    return joined;
}

bool isHardwareUUIDComponent(std::string_view text) {
    if (text.size() != 36) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != '-') return false;
        } else if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))) {
            return false;
        }
    }
    return true;
}

std::optional<std::string> orphanOwner(std::string_view entryName,
                                       const std::set<std::string>& installedBundleIDs,
                                       const InstalledTeamIDs& installedTeamIDs) {
    std::string name(entryName);
    for (std::string_view suffix :
         {".plist", ".savedState", ".binarycookies", ".sfl4", ".sfl3", ".sfl2", ".sfl"}) {
        if (name.ends_with(suffix)) {
            name.erase(name.size() - suffix.size());
            break;
        }
    }
    if (const auto dot = name.rfind('.');
        dot != std::string::npos && isHardwareUUIDComponent(std::string_view(name).substr(dot + 1)))
        name.erase(dot);
    if (const auto dot = name.find('.');
        dot != std::string::npos && isTeamID(std::string_view(name).substr(0, dot))) {
        // An installed app of the same developer may share it; with no team known, any may.
        if (!installedTeamIDs || installedTeamIDs->contains(name.substr(0, dot)))
            return std::nullopt;
        name.erase(0, dot + 1);
    }
    name = lowercased(name);
    if (name.starts_with("group."))
        name.erase(0, 6);
    else
        dropPrefix(name, "systemgroup.");

    std::size_t pieces = 0;
    std::size_t vendorEnd = std::string::npos;
    for (std::size_t start = 0;; ++pieces) {
        const auto dot = name.find('.', start);
        if (!isIdentifierPiece(std::string_view(name).substr(start, dot == std::string::npos ? dot : dot - start)))
            return std::nullopt;
        if (pieces == 1) vendorEnd = dot;
        if (dot == std::string::npos) break;
        start = dot + 1;
    }
    if (pieces + 1 < 3) return std::nullopt;
    if (isDenied(name)) return std::nullopt;
    const std::string vendor = name.substr(0, vendorEnd);
    // Vendors share support data between products: one installed app protects them all. Every
    // identifier the name is, extends or is extended by shares its vendor, but for one of a
    // single piece, so three lookups answer for the whole set.
    if (installedBundleIDs.contains(vendor) || someStartsWith(installedBundleIDs, vendor + ".") ||
        installedBundleIDs.contains(firstPiece(name)))
        return std::nullopt;
    return name;
}

std::optional<std::string> leftoverVendor(std::string_view id) {
    if (const auto vendor = vendorView(id)) return std::string(*vendor);
    return std::nullopt;
}

bool reverseDNSLeftoverOwned(std::string_view name, const std::set<std::string>& installedIDs,
                             const std::set<std::string>& claimedGroups) {
    if (std::all_of(installedIDs.begin(), installedIDs.end(), [](const std::string& id) { return isASCIILowercase(id); }))
        return reverseDNSLeftoverOwnedLowercase(name, installedIDs, claimedGroups);
    return reverseDNSLeftoverOwnedLowercase(name, lowercasedAll(installedIDs), claimedGroups);
}

bool reverseDNSLeftoverOwnedLowercase(std::string_view rawName, const std::set<std::string>& installedIDs,
                                      const std::set<std::string>& claimedGroups) {
    // Whose a team is cannot be read yet, so a developer's own name for its data is always theirs.
    if (const auto dot = rawName.find('.');
        dot != std::string_view::npos && isTeamID(rawName.substr(0, dot)))
        return true;
    std::string name = lowercased(rawName);
    for (std::string_view suffix : {".plist", ".savedstate", ".binarycookies"})
        if (name.ends_with(suffix)) name.erase(name.size() - suffix.size());
    dropPrefix(name, "group.");
    dropPrefix(name, "systemgroup.");
    if (name.starts_with("com.apple") || name.starts_with("is.workflow")) return true;
    if (isDenied(name)) return true;
    const auto vendor = vendorView(name);
    if (!vendor) return true;
    // What the name is or extends has its vendor when it has three pieces, so only one or two
    // pieces need a lookup of their own; what extends the name is sought directly, since it may
    // have an empty piece further on and then no vendor.
    if (installedIDs.contains(firstPiece(name)) || installedIDs.contains(std::string(*vendor)) ||
        someStartsWith(installedIDs, name + "."))
        return true;
    const std::string vendorDot = std::string(*vendor) + ".";
    for (auto it = installedIDs.lower_bound(vendorDot); it != installedIDs.end() && it->starts_with(vendorDot); ++it)
        if (vendorView(*it) == vendor) return true;
    return isClaimedByAppGroup(name, claimedGroups);
}

bool freeformLeftoverOffered(std::string_view name, const std::set<std::string>& installedNames,
                             const std::set<std::string>& installedIDs) {
    const auto row =
        std::find_if(curatedFreeformLeftovers.begin(), curatedFreeformLeftovers.end(),
                     [&](const FreeformLeftover& leftover) { return leftover.folder == name; });
    if (row == curatedFreeformLeftovers.end()) return false;
    const auto names = lowercasedAll(installedNames);
    const auto ids = lowercasedAll(installedIDs);
    for (std::string_view appName : row->names)
        if (names.contains(lowercased(appName))) return false;
    for (std::string_view id : row->bundleIDs)
        if (ids.contains(lowercased(id))) return false;
    return true;
}

bool systemSupportFolderOwned(std::string_view rawName, const std::set<std::string>& ownerNames,
                              const std::set<std::string>& installedIDs) {
    const std::string name = lowercased(rawName);
    if (contains(appleProContentFolders, name)) return true;
    if (name.starts_with("apple") || name.starts_with("com.apple")) return true;
    if (ownerNames.contains(name)) return true;
    auto extendsBySpace = [](std::string_view text, std::string_view prefix) {
        return text.size() > prefix.size() && text.starts_with(prefix) &&
               text[prefix.size()] == ' ';
    };
    for (const auto& owner : ownerNames)
        if (extendsBySpace(owner, name) || extendsBySpace(name, owner)) return true;
    return std::any_of(installedIDs.begin(), installedIDs.end(),
                       [&](const std::string& id) { return lowercased(id) == name; });
}

GroupContainerParts groupContainerParts(std::string_view name) {
    GroupContainerParts parts;
    std::string_view rest = name;
    if (const auto dot = name.find('.');
        dot != std::string_view::npos && isTeamID(name.substr(0, dot))) {
        parts.team = std::string(name.substr(0, dot));
        rest = name.substr(dot + 1);
    }
    if (rest.starts_with("group.")) rest.remove_prefix(6);
    if (rest.starts_with("groups.")) rest.remove_prefix(7);
    parts.base = std::string(rest);
    return parts;
}

bool isOrphanedGroupContainer(std::string_view name, const InstalledTeamIDs& installedTeams,
                              const std::set<std::string>& installedIDs) {
    const auto parts = groupContainerParts(name);
    const std::string base = lowercased(parts.base);
    if (splitDroppingEmpties(base, '.').size() < 3) return false;
    if (isDenied(base)) return false;
    if (!parts.team || !installedTeams || installedTeams->contains(*parts.team)) return false;
    for (const auto& raw : installedIDs) {
        const std::string installed = lowercased(raw);
        if (isOrExtends(base, installed) || extendsAfterDot(installed, base)) return false;
    }
    return true;
}

std::vector<std::string> emptyApplicationsFolders(std::string_view root,
                                                  const std::vector<ApplicationsEntry>& entries) {
    std::vector<std::string> empty;
    for (const auto& entry : entries) {
        const std::string lower = lowercased(entry.name);
        if (!entry.isDirectory || entry.name.starts_with('.') || lower.ends_with(".app") ||
            lower == "utilities")
            continue;
        if (!entry.contents) continue;
        if (std::all_of(entry.contents->begin(), entry.contents->end(),
                        [](const std::string& name) { return isFinderOnlyFile(name); }))
            empty.push_back(appendingPathComponent(root, entry.name));
    }
    return empty;
}

}  // namespace orvane
