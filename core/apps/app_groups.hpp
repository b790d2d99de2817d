// The app groups installed apps declare in their entitlements, and whether a Library name belongs
// to one: a group's shared data outlives any single identifier of its apps.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"
#include "core/startup/startup_owner.hpp"

namespace orvane {

// The application groups in the code signature's entitlements at `path`, lower case, in order;
// none on any failure. Only macOS signs code this way: elsewhere there are none.
std::vector<std::string> appGroupEntitlements(const std::string& path);

using EntitlementsReader = std::function<std::vector<std::string>(const std::string&)>;

// The signed code an app carries inside itself (extensions, login items, XPC services, helpers,
// system extensions), folder by folder and by name within each; unreadable folders add nothing.
std::vector<std::string> nestedCode(const std::string& app, const Facts& facts = Facts::real());

// Each declared group with the names of the apps that declare it, in the app itself or in any of
// its nested code: often only an extension declares the group its app shares.
std::map<std::string, std::set<std::string>> appGroupOwners(
    const std::vector<AppRef>& apps, const Facts& facts = Facts::real(),
    const EntitlementsReader& entitlements = appGroupEntitlements);

std::set<std::string> claimedAppGroups(
    const std::vector<std::string>& appPaths, const Facts& facts = Facts::real(),
    const EntitlementsReader& entitlements = appGroupEntitlements);

// Whether a name is a claimed group, lies inside one or holds one, with or without its team and
// "group."/"groups." prefixes on either side. A one-word name is never claimed.
bool isClaimedByAppGroup(std::string_view name, const std::set<std::string>& claimed);

// The apps whose groups claim the name.
std::set<std::string> appGroupClaimants(std::string_view name,
                                        const std::map<std::string, std::set<std::string>>& owners);

}  // namespace orvane
