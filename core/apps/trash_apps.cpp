#include "core/apps/trash_apps.hpp"

#include <unistd.h>

#include <algorithm>
#include <regex>
#include <set>

#include "core/common/folder_entries.hpp"
#include "core/common/path.hpp"
#include "core/common/property_list.hpp"
#include "core/common/text.hpp"
#include "core/platform/platform.hpp"
#include "core/startup/launchd_inventory.hpp"
#include "core/startup/startup_owner.hpp"

namespace orvane {

namespace {

// The Finder, on a name clash in the Trash, puts the time after the name: "Foo.app 12-04-33",
// or "Foo 12-04-33.app" when it keeps the extension; a second clash in the same second adds "-2".
constexpr const char* kRenamedAfterExtension = R"(\.app \d{1,2}-\d{2}-\d{2}(-\d+)?$)";
constexpr const char* kTimeStampAtEnd = R"( \d{1,2}-\d{2}-\d{2}(-\d+)?$)";

const std::regex& renamedAfterExtension() {
    static const std::regex pattern(kRenamedAfterExtension, std::regex::ECMAScript);
    return pattern;
}

bool looksLikeTrashedApp(const std::string& name) {
    static const std::regex ignoringCase(kRenamedAfterExtension, std::regex::ECMAScript | std::regex::icase);
    return lowercased(name).ends_with(".app") || std::regex_search(name, ignoringCase);
}

bool isOrExtends(std::string_view text, std::string_view prefix) {
    return text == prefix ||
           (text.size() > prefix.size() && text.starts_with(prefix) && text[prefix.size()] == '.');
}

// A label as launchd registers it may carry the developer's team in front ("ABCDE12345.com.acme.x");
// the rest is what the bundle itself declares.
std::string withoutTeam(const std::string& label) {
    const auto dot = label.find('.');
    if (dot != std::string::npos && isTeamID(std::string_view(label).substr(0, dot)))
        return lowercased(std::string_view(label).substr(dot + 1));
    return lowercased(label);
}

bool belongsTo(const BackgroundReference& reference, const TrashAppInfo& app, const std::set<std::string>& embedded,
               const std::string& id) {
    const std::string full = lowercased(reference.label);
    const std::string bare = withoutTeam(reference.label);
    if (embedded.contains(full) || embedded.contains(bare)) return true;
    if (reference.path && (*reference.path == app.path || reference.path->starts_with(app.path + "/"))) return true;
    if (id.empty()) return false;
    if (reference.parentBundleID && lowercased(*reference.parentBundleID) == id) return true;
    return isOrExtends(bare, id);
}

TrashAppInfo describeApp(const std::string& trash, const std::string& name, const Facts& facts) {
    TrashAppInfo app;
    app.name = name;
    app.path = appendingPathComponent(trash, name);
    if (auto info = readPropertyListDictionary(appendingPathComponent(app.path, "Contents/Info.plist"), facts)) {
        app.bundleID = plistString(*info, "CFBundleIdentifier").value_or("");
        app.appName = plistString(*info, "CFBundleDisplayName");
        if (!app.appName) app.appName = plistString(*info, "CFBundleName");
    }
    for (const auto& item : embeddedBackgroundItems(app.path, facts)) app.embeddedLabels.push_back(item.label);
    return app;
}

// One walk shares `visited` so that the limit counts the whole tree, and stops at the first answer.
bool needsAdminWalk(const std::string& path, int limit, int& visited) {
    if (++visited > limit) return true;
    const auto entry = platform::lstatFacts(path);
    if (!entry || (entry->flags & platform::kFlagsLocked) != 0) return true;
    if (!entry->isDirectory()) return false;
    if (::access(path.c_str(), W_OK | X_OK) != 0) return true;
    const auto children = listFolder(path);
    if (!children) return true;
    return std::any_of(children->begin(), children->end(), [&](const FolderEntry& child) {
        return needsAdminWalk(appendingPathComponent(path, child.name), limit, visited);
    });
}

}  // namespace

std::string trashedAppBaseName(std::string_view name) {
    std::string base(name);
    std::smatch match;
    if (std::regex_search(base, match, renamedAfterExtension()))
        base.erase(static_cast<std::size_t>(match.position(0)));
    else if (lowercased(base).ends_with(".app"))
        base.erase(base.size() - 4);
    static const std::regex timeStamp(kTimeStampAtEnd, std::regex::ECMAScript);
    if (std::regex_search(base, match, timeStamp)) base.erase(static_cast<std::size_t>(match.position(0)));
    return base;
}

std::string TrashAppInfo::displayName() const {
    if (appName) {
        const auto trimmed = trimSpacesAndTabs(*appName);
        if (!trimmed.empty()) return std::string(trimmed);
    }
    return trashedAppBaseName(name);
}

nlohmann::ordered_json toJSON(const TrashAppInfo& app) {
    nlohmann::ordered_json out;
    out["name"] = app.name;
    out["path"] = app.path;
    out["bundleID"] = app.bundleID;
    out["embeddedLabels"] = app.embeddedLabels;
    if (app.appName) out["appName"] = *app.appName;
    return out;
}

std::vector<StaleTrashApp> staleTrashApps(const std::vector<TrashAppInfo>& trashApps,
                                          const std::vector<BackgroundReference>& references) {
    std::vector<StaleTrashApp> stale;
    for (const auto& app : trashApps) {
        std::set<std::string> embedded;
        for (const auto& label : app.embeddedLabels) embedded.insert(lowercased(label));
        const std::string id = lowercased(app.bundleID);
        std::vector<std::string> labels;
        for (const auto& reference : references)
            if (belongsTo(reference, app, embedded, id)) labels.push_back(reference.label);
        if (!labels.empty())
            stale.push_back({app, std::move(labels), true});
        else if (!app.embeddedLabels.empty())
            // Nothing registered was seen, but the bundle could start these; the caller says so
            // more softly.
            stale.push_back({app, app.embeddedLabels, false});
    }
    return stale;
}

bool trashAppNeedsAdmin(const std::string& path, int limit) {
    int visited = 0;
    return needsAdminWalk(path, limit, visited);
}

namespace TrashApps {

std::string ScanReport::summary() const {
    return "listed " + (listed ? std::to_string(*listed) : std::string("refused")) + ", apps " +
           std::to_string(apps.size()) + ", links " + (linkCount ? std::to_string(*linkCount) : std::string("?")) +
           ", Full Disk Access " + (fdaGranted ? "yes" : "no") + ", readable " + (readable ? "yes" : "no");
}

ScanReport scanDetailed(const std::string& home, bool fdaGranted, const Facts& facts) {
    ScanReport report;
    report.fdaGranted = fdaGranted;
    const std::string trash = appendingPathComponent(home, ".Trash");
    // The link count tells, without listing, whether the Trash holds folders: a refused listing
    // with a count above two is a Trash that has something in it.
    if (auto entry = facts.lstat(trash)) report.linkCount = static_cast<int>(entry->linkCount);
    const auto entries = facts.list(trash);
    if (!entries) return report;

    std::vector<std::string> names;
    int listed = 0;
    for (const auto& entry : *entries) {
        if (entry.name == "." || entry.name == "..") continue;
        ++listed;
        if (characterCount(entry.name) < 5 || !looksLikeTrashedApp(entry.name)) continue;
        if (!facts.exists(appendingPathComponent(trash, entry.name + "/Contents/Info.plist"))) continue;
        names.push_back(entry.name);
    }
    std::sort(names.begin(), names.end());
    for (const auto& name : names) report.apps.push_back(describeApp(trash, name, facts));
    report.listed = listed;
    report.readable = true;
    return report;
}

ScanResult scan(const std::string& home, const Facts& facts) {
    auto report = scanDetailed(home, false, facts);
    return {std::move(report.apps), report.readable};
}

std::vector<TrashAppDeleteOutcome> deleteAsUser(const std::vector<std::string>& names, const std::string& home) {
    std::vector<TrashAppDeleteOutcome> outcomes;
    for (const auto& name : names)
        outcomes.push_back(deleteTrashedApp(name, home + "/.Trash", static_cast<std::uint32_t>(::getuid())));
    return outcomes;
}

}  // namespace TrashApps

}  // namespace orvane
