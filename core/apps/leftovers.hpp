// What apps that are gone left in the Library folders of the home and of the machine, and the
// folders of /Applications left with nothing in them. Ownership decides each name; this walks the
// folders and says which rule offered what.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/apps/leftover_ownership.hpp"
#include "core/common/facts.hpp"
#include "core/startup/startup_owner.hpp"

namespace orvane {

enum class LeftoverRule {
    reverseDNS,      // named after an identifier nothing installed owns
    groupContainer,  // a group container whose team has nothing installed
    freeform,        // a curated folder of an app that is not installed
    emptyFolder,     // a folder of /Applications with nothing but the Finder's files
};
std::string_view rawValue(LeftoverRule rule);

struct LeftoverRow {
    std::string path;
    LeftoverRule rule = LeftoverRule::reverseDNS;
    // The orphan's identifier, a container's base, a curated folder's app; none for an empty folder.
    std::optional<std::string> id;
    bool operator==(const LeftoverRow&) const = default;
};

// Everything installed that may own a Library name.
struct LeftoverOwners {
    std::set<std::string> bundleIDs;  // lower case: the apps', their plug-ins', the running apps'
    std::set<std::string> names;      // lower case: the apps' names
    InstalledTeamIDs teams;           // none while no team can be read
    std::set<std::string> claimedGroups;
    // Apps whose identifier could not be read: their data cannot be told from an orphan's.
    std::vector<std::string> unidentified;
    // False when an app may have been missed (a folder unreadable, a walk cut short).
    bool complete = true;

    // Whether names can be judged at all: every app seen and identified.
    bool judgeable() const { return complete && unidentified.empty(); }
    bool operator==(const LeftoverOwners&) const = default;
};

// The owners of the apps given, their plug-ins and their app groups.
LeftoverOwners leftoverOwners(const std::vector<AppRef>& apps, const std::string& home,
                              const Facts& facts = Facts::real());

// The direct entries of the home's and the machine's Library folders in their table's order,
// names sorted within each, that nothing in `owners` could own; then the empty folders of
// /Applications. While the owners are not judgeable, only the empty folders.
std::vector<LeftoverRow> leftoverRows(const std::string& home, const LeftoverOwners& owners,
                                      const Facts& facts = Facts::real());

// Whether a row's identifier is `base` or lies inside it: what an app with that base left.
bool leftoverBelongsTo(const LeftoverRow& row, std::string_view base);

}  // namespace orvane
