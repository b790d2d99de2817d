#include "core/apps/installed_identifiers.hpp"

#include <algorithm>

#include "core/apps/leftover_ownership.hpp"
#include "core/common/path.hpp"
#include "core/common/property_list.hpp"
#include "core/common/text.hpp"

namespace orvane {

namespace {

bool isPlugin(std::string_view path) {
    const std::string extension = lowercased(pathExtension(path));
    return std::find(pluginExtensions.begin(), pluginExtensions.end(), extension) !=
           pluginExtensions.end();
}

// A bundle's identifier; loose bundles keep their Info.plist at the top instead of in Contents.
std::optional<std::string> pluginIdentifier(const std::string& plugin, const Facts& facts) {
    for (const char* plist : {"Contents/Info.plist", "Info.plist"})
        if (const auto dictionary =
                readPropertyListDictionary(appendingPathComponent(plugin, plist), facts))
            if (const auto id = plistString(*dictionary, "CFBundleIdentifier"); id && !id->empty())
                return lowercased(*id);
    return std::nullopt;
}

bool isVisible(std::string_view name) {
    return !name.starts_with('.');
}

}  // namespace

std::set<std::string> installedPluginBundleIDs(std::span<const std::string_view> folders,
                                               std::string_view home, const Facts& facts) {
    std::set<std::string> ids;
    auto add = [&](const std::string& plugin) {
        if (auto id = pluginIdentifier(plugin, facts)) ids.insert(std::move(*id));
    };
    for (std::string_view folder : folders) {
        const std::string root =
            folder.starts_with('/') ? std::string(folder) : appendingPathComponent(home, folder);
        for (const auto& entry : sortedEntries(root, facts, isVisible)) {
            const std::string path = appendingPathComponent(root, entry.name);
            if (isPlugin(entry.name)) {
                add(path);
                continue;
            }
            for (const auto& child :
                 sortedEntries(path, facts, [](std::string_view name) { return isPlugin(name); }))
                add(appendingPathComponent(path, child.name));
        }
    }
    return ids;
}

std::set<std::string> installedRunningBundleIDs(const std::vector<RunningApp>& apps,
                                                std::string_view home) {
    std::string_view base = home;
    if (base.ends_with('/')) base.remove_suffix(1);
    const std::string trash = std::string(base) + "/.Trash";
    std::set<std::string> ids;
    for (const auto& app : apps) {
        if (!app.bundleID || app.bundleID->empty()) continue;
        if (app.path && (app.path->starts_with(trash + "/") || *app.path == trash ||
                         app.path->find("/.Trashes/") != std::string::npos))
            continue;
        ids.insert(lowercased(*app.bundleID));
    }
    return ids;
}

}  // namespace orvane
