#include "core/apps/app_groups.hpp"

#include <array>
#include <utility>

#include "core/apps/leftover_ownership.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/startup/launchd_inventory.hpp"

namespace orvane {

namespace {

// A folder inside the bundle and the ending its code carries; an empty ending admits every entry.
constexpr std::array<std::pair<std::string_view, std::string_view>, 8> kNestedCodeFolders = {{
    {"Contents/PlugIns", ".appex"},
    {"Contents/Extensions", ".appex"},
    {"Contents/Library/LoginItems", ".app"},
    {"Contents/XPCServices", ".xpc"},
    {"Contents/Helpers", ".app"},
    {"Contents/Library/LaunchServices", ""},
    {"Contents/Library/SystemExtensions", ".systemextension"},
    {"Contents/Frameworks", ".app"},
}};

bool matchesAsGroup(std::string_view candidate, std::string_view form) {
    auto extends = [](std::string_view text, std::string_view prefix) {
        return text.size() > prefix.size() && text.starts_with(prefix) &&
               text[prefix.size()] == '.';
    };
    return candidate == form || extends(candidate, form) || extends(form, candidate);
}

}  // namespace

std::vector<std::string> appGroupEntitlements(const std::string&) {
    // Entitlements are read from a code signature through the Security framework, which exists
    // only on macOS. Without them no group is claimed, and names stay offerable by the other rules.
    return {};
}

std::vector<std::string> nestedCode(const std::string& app, const Facts& facts) {
    std::vector<std::string> code;
    for (const auto& [folder, suffix] : kNestedCodeFolders) {
        const std::string inside = appendingPathComponent(app, folder);
        for (const auto& entry : sortedEntries(
                 inside, facts, [&](std::string_view name) { return name.ends_with(suffix); }))
            code.push_back(appendingPathComponent(inside, entry.name));
    }
    return code;
}

std::map<std::string, std::set<std::string>> appGroupOwners(
    const std::vector<AppRef>& apps, const Facts& facts, const EntitlementsReader& entitlements) {
    std::map<std::string, std::set<std::string>> owners;
    for (const auto& app : apps) {
        std::vector<std::string> signedCode = {app.path};
        for (auto& nested : nestedCode(app.path, facts)) signedCode.push_back(std::move(nested));
        for (const auto& code : signedCode)
            for (const auto& group : entitlements(code)) owners[group].insert(app.name);
    }
    return owners;
}

std::set<std::string> claimedAppGroups(const std::vector<std::string>& appPaths, const Facts& facts,
                                       const EntitlementsReader& entitlements) {
    std::vector<AppRef> apps;
    for (const auto& path : appPaths) apps.push_back(AppRef{path, "", ""});
    std::set<std::string> claimed;
    for (const auto& [group, _] : appGroupOwners(apps, facts, entitlements)) claimed.insert(group);
    return claimed;
}

bool isClaimedByAppGroup(std::string_view name, const std::set<std::string>& claimed) {
    if (claimed.empty()) return false;
    std::vector<std::string> candidates;
    for (auto candidate : {lowercased(name), lowercased(groupContainerParts(name).base)})
        if (candidate.find('.') != std::string::npos) candidates.push_back(std::move(candidate));
    if (candidates.empty()) return false;

    for (const auto& group : claimed) {
        std::vector<std::string> forms = {group};
        // Entitlements are lower-cased, so a team prefix is recognised in upper case.
        if (const auto dot = group.find('.'); dot != std::string::npos) {
            std::string team = group.substr(0, dot);
            for (auto& c : team)
                if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
            if (isTeamID(team)) forms.push_back(group.substr(dot + 1));
        }
        for (std::string_view prefix : {"group.", "groups."}) {
            const auto count = forms.size();
            for (std::size_t i = 0; i < count; ++i)
                if (forms[i].starts_with(prefix)) forms.push_back(forms[i].substr(prefix.size()));
        }
        for (const auto& candidate : candidates)
            for (const auto& form : forms)
                if (matchesAsGroup(candidate, form)) return true;
    }
    return false;
}

std::set<std::string> appGroupClaimants(
    std::string_view name, const std::map<std::string, std::set<std::string>>& owners) {
    std::set<std::string> claimants;
    for (const auto& [group, apps] : owners)
        if (isClaimedByAppGroup(name, {group})) claimants.insert(apps.begin(), apps.end());
    return claimants;
}

}  // namespace orvane
