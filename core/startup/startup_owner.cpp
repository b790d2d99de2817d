#include "core/startup/startup_owner.hpp"

#include <algorithm>
#include <set>

#include "core/common/path.hpp"
#include "core/common/property_list.hpp"
#include "core/common/text.hpp"
#include "core/common/variant_visit.hpp"
#include "core/safety/path_kinds.hpp"
#include "core/startup/launchd_inventory.hpp"

namespace orvane {

namespace {

nlohmann::ordered_json appRefJSON(const AppRef& app) {
    return {{"path", app.path}, {"name", app.name}, {"bundleID", app.bundleID}};
}

std::vector<std::string> namesEndingIn(const std::string& folder, std::string_view suffix, const Facts& facts) {
    std::vector<std::string> names;
    for (const auto& entry : sortedEntries(folder, facts, [suffix](std::string_view name) { return name.ends_with(suffix); }))
        names.push_back(entry.name);
    return names;
}

int kindRank(EmbeddedBackgroundItem::Kind kind) {
    switch (kind) {
        case EmbeddedBackgroundItem::Kind::loginItem: return 0;
        case EmbeddedBackgroundItem::Kind::agent: return 1;
        case EmbeddedBackgroundItem::Kind::daemon: return 2;
    }
    return 3;
}

}  // namespace

nlohmann::ordered_json toJSON(const StartupOwner& owner) {
    using namespace startup_owner;
    return std::visit(
        Overloaded{
            [](const App& c) -> nlohmann::ordered_json {
                return {{"app", {{"_0", appRefJSON(c.app)}, {"how", std::string(rawValue(c.how))}}}};
            },
            [](const AppGone& c) -> nlohmann::ordered_json { return {{"appGone", {{"appPath", c.appPath}}}}; },
            [](const AppInTrash& c) -> nlohmann::ordered_json { return {{"appInTrash", {{"appPath", c.appPath}}}}; },
            [](const RegisteredAppMissing& c) -> nlohmann::ordered_json {
                return {{"registeredAppMissing", {{"bundleID", c.bundleID}}}};
            },
            [](const ProgramMissing& c) -> nlohmann::ordered_json {
                return {{"programMissing", {{"_0", c.program}}}};
            },
            [](const Unknown&) -> nlohmann::ordered_json {
                return {{"unknown", nlohmann::ordered_json::object()}};
            },
        },
        owner.value);
}

std::string describe(const StartupOwner& owner) {
    using namespace startup_owner;
    return std::visit(Overloaded{
                          [](const App& c) { return c.app.name; },
                          [](const AppGone& c) { return "its app is gone (" + c.appPath + ")"; },
                          [](const AppInTrash& c) { return "its app is in the Trash (" + c.appPath + ")"; },
                          [](const RegisteredAppMissing& c) {
                              return "registered by " + c.bundleID + ", which is not installed";
                          },
                          [](const ProgramMissing& c) { return "its program is missing (" + c.program + ")"; },
                          [](const Unknown&) { return std::string("unknown"); },
                      },
                      owner.value);
}

std::optional<std::string> enclosingAppBundle(std::string_view path) {
    if (!path.starts_with('/')) return std::nullopt;
    std::string built;
    for (const auto& component : pathComponents(path)) {
        built += '/';
        built += component;
        if (lowercased(component).ends_with(".app")) return built;
    }
    return std::nullopt;
}

StartupOwner startupOwner(const std::optional<std::string>& program, const std::vector<std::string>& associatedBundleIDs,
                          std::string_view label, const std::vector<AppRef>& installedApps,
                          const std::function<bool(const std::string&)>& exists, const std::optional<std::string>& home,
                          const std::optional<std::string>& registeredBy) {
    using namespace startup_owner;

    // What runs from inside a bundle is that bundle's, whatever the job claims: the bundle decides
    // alone, also when it is gone.
    if (program) {
        if (auto bundle = enclosingAppBundle(*program)) {
            if (home && isInTrash(*bundle)) return {AppInTrash{*bundle}};
            const std::string lowerBundle = lowercased(*bundle);
            for (const auto& app : installedApps)
                if (lowercased(app.path) == lowerBundle) return {App{app, OwnerEvidence::programInside}};
            if (exists(*bundle))
                return {App{AppRef{*bundle, deletingPathExtension(lastPathComponent(*bundle)), ""},
                            OwnerEvidence::programInside}};
            return {AppGone{*bundle}};
        }
    }

    std::set<std::string> declared;
    for (const auto& id : associatedBundleIDs) declared.insert(lowercased(id));
    if (registeredBy && !registeredBy->empty()) declared.insert(lowercased(*registeredBy));
    if (!declared.empty())
        for (const auto& app : installedApps)
            if (declared.contains(lowercased(app.bundleID))) return {App{app, OwnerEvidence::associatedBundle}};

    const std::string lowerLabel = lowercased(label);
    const AppRef* longest = nullptr;
    std::size_t longestLength = 0;
    for (const auto& app : installedApps) {
        const std::string id = lowercased(app.bundleID);
        if (id.empty()) continue;
        if (lowerLabel != id && !lowerLabel.starts_with(id + ".")) continue;
        const std::size_t length = characterCount(app.bundleID);
        if (!longest || length > longestLength) {
            longest = &app;
            longestLength = length;
        }
    }
    if (longest) return {App{*longest, OwnerEvidence::labelFamily}};

    // A bare executable name cannot be looked for, so only an absolute one is ever missing.
    if (program && program->starts_with('/') && !exists(*program)) return {ProgramMissing{*program}};
    if (registeredBy && !registeredBy->empty()) return {RegisteredAppMissing{*registeredBy}};
    return {Unknown{}};
}

StartupOwner startupOwner(const std::optional<std::string>& program, const std::vector<std::string>& associatedBundleIDs,
                          std::string_view label, const std::vector<AppRef>& installedApps,
                          const std::optional<std::string>& home, const std::optional<std::string>& registeredBy,
                          const Facts& facts) {
    return startupOwner(program, associatedBundleIDs, label, installedApps, facts.exists, home, registeredBy);
}

std::optional<std::string> launchdProgram(const nlohmann::json& plist) {
    if (!plist.is_object()) return std::nullopt;
    for (const char* key : {"BundleProgram", "Program"})
        if (auto value = plistString(plist, key); value && !value->empty()) return value;
    auto arguments = plist.find("ProgramArguments");
    if (arguments == plist.end() || !arguments->is_array() || arguments->empty()) return std::nullopt;
    if (!std::all_of(arguments->begin(), arguments->end(), [](const auto& a) { return a.is_string(); }))
        return std::nullopt;
    auto first = arguments->front().get<std::string>();
    if (first.empty()) return std::nullopt;
    return first;
}

std::vector<EmbeddedBackgroundItem> embeddedBackgroundItems(const std::string& bundle, const Facts& facts) {
    using Kind = EmbeddedBackgroundItem::Kind;
    const std::string library = appendingPathComponent(bundle, "Contents/Library");
    std::vector<EmbeddedBackgroundItem> items;

    const std::string loginItems = appendingPathComponent(library, "LoginItems");
    for (const auto& name : namesEndingIn(loginItems, ".app", facts)) {
        const std::string helper = appendingPathComponent(loginItems, name);
        auto info = readPropertyListDictionary(appendingPathComponent(helper, "Contents/Info.plist"), facts);
        if (!info) continue;
        auto id = plistString(*info, "CFBundleIdentifier");
        if (!id || !isLaunchdLabel(*id)) continue;
        items.push_back({Kind::loginItem, *id, helper, plistString(*info, "CFBundleExecutable")});
    }

    for (auto [folderName, kind] : {std::pair{"LaunchAgents", Kind::agent}, std::pair{"LaunchDaemons", Kind::daemon}}) {
        const std::string folder = appendingPathComponent(library, folderName);
        for (const auto& name : namesEndingIn(folder, ".plist", facts)) {
            const std::string path = appendingPathComponent(folder, name);
            auto plist = readPropertyListDictionary(path, facts);
            if (!plist) continue;
            auto label = plistString(*plist, "Label");
            if (!label || !isLaunchdLabel(*label)) continue;
            items.push_back({kind, *label, path, launchdProgram(*plist)});
        }
    }

    std::stable_sort(items.begin(), items.end(), [](const auto& a, const auto& b) {
        if (kindRank(a.kind) != kindRank(b.kind)) return kindRank(a.kind) < kindRank(b.kind);
        return a.label < b.label;
    });
    std::set<std::string> seen;
    std::erase_if(items, [&](const auto& item) {
        return !seen.insert(std::string(rawValue(item.kind)) + ":" + item.label).second;
    });
    return items;
}

std::vector<std::string> embeddedHelperLabels(const std::string& bundle, const Facts& facts) {
    const std::string library = appendingPathComponent(bundle, "Contents/Library");
    std::set<std::string> labels;
    const std::string loginItems = appendingPathComponent(library, "LoginItems");
    for (const auto& name : namesEndingIn(loginItems, ".app", facts)) {
        auto info = readPropertyListDictionary(
            appendingPathComponent(appendingPathComponent(loginItems, name), "Contents/Info.plist"), facts);
        if (auto id = info ? plistString(*info, "CFBundleIdentifier") : std::nullopt) labels.insert(*id);
    }
    // Daemons are left out: a user process cannot act on them.
    const std::string agents = appendingPathComponent(library, "LaunchAgents");
    for (const auto& name : namesEndingIn(agents, ".plist", facts)) {
        auto plist = readPropertyListDictionary(appendingPathComponent(agents, name), facts);
        if (auto label = plist ? plistString(*plist, "Label") : std::nullopt) labels.insert(*label);
    }
    std::vector<std::string> result;
    std::copy_if(labels.begin(), labels.end(), std::back_inserter(result),
                 [](const std::string& label) { return isLaunchdLabel(label); });
    return result;
}

}  // namespace orvane
