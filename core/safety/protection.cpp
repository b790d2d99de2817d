#include "core/common/variant_visit.hpp"
#include "core/safety/protection.hpp"

#include <algorithm>
#include <climits>
#include <map>
#include <mutex>

#include "core/common/json_fields.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {
namespace {

std::vector<BuiltInProtection> makeTable() {
    BuiltInProtection ai{"ai-sessions",
                         "AI tool sessions",
                         "Your conversations, projects and settings for Claude, Codex, Cursor and Gemini. They don't "
                         "come back once deleted.",
                         {".claude", ".claude.json", ".codex", ".cursor", ".gemini",
                          "Library/Application Support/Claude", "Library/Application Support/Cursor",
                          "Library/Application Support/Codex", "Library/Application Support/com.openai.chat",
                          "Library/Application Support/ChatGPT"},
                         {},
                         {},
                         {"Cache", "Code Cache", "GPUCache", "DawnCache", "DawnGraphiteCache", "DawnWebGPUCache",
                          "ShaderCache", "GrShaderCache", "Crashpad", "logs"}};
    BuiltInProtection browsers{"browser-extensions",
                               "Browser extension data",
                               "Extensions and the settings they keep. Deleting it signs extensions out or loses "
                               "their data.",
                               {"Library/Application Support/Firefox/Profiles/*/extensions",
                                "Library/Application Support/Firefox/Profiles/*/browser-extension-data",
                                "Library/Containers/com.apple.Safari/Data/Library/Safari/AppExtensions",
                                "Library/Safari/Extensions"},
                               {},
                               {},
                               {}};
    for (const char* base : {"Library/Application Support/Google/Chrome", "Library/Application Support/Microsoft Edge",
                             "Library/Application Support/BraveSoftware/Brave-Browser",
                             "Library/Application Support/Arc/User Data", "Library/Application Support/Vivaldi",
                             "Library/Application Support/Chromium"})
        for (const char* folder : {"Extensions", "Local Extension Settings", "Extension State",
                                   "Managed Extension Settings", "Sync Extension Settings"})
            browsers.patterns.push_back(std::string(base) + "/*/" + folder);
    BuiltInProtection licences{"licences",
                               "Licence and sign-in stores",
                               "Apps keep licence tokens and sign-ins here. Deleting it can deactivate paid software.",
                               {"Library/HTTPStorages"},
                               {"Library/Application Support", "/Library/Application Support", "Library/Preferences"},
                               {"pace anti-piracy", "ilok", "elicenser", "license", "licence", "activation",
                                "authorization"},
                               {}};
    BuiltInProtection plugins{"plugin-caches",
                              "Plug-in and sample caches",
                              "Music and audio apps take a long time to rebuild these, and some need the plug-ins "
                              "re-scanned by hand.",
                              {"Library/Caches/AudioUnitCache", "Library/Caches/com.apple.audiounits.cache",
                               "Library/Application Support/Native Instruments",
                               "Library/Application Support/Spitfire Audio",
                               "Library/Application Support/Ableton/Live Database"},
                              {"Library/Caches", "Library/Application Support"},
                              {"native instruments", "native-instruments", "kontakt", "spitfire audio", "mixbus",
                               "harrison", "com.uvi.", "uvi workstation", "arturia", "steinberg", "cubase", "izotope",
                               "waves audio", "bitwig", "cockos", "audiounitcache"},
                              {}};
    return {ai, browsers, licences, plugins};
}

// The built-in table in the form matching works on, compiled once per home.
class CompiledBuiltIns {
public:
    struct Entry {
        const BuiltInProtection* b;
        std::vector<std::vector<std::string>> patterns;
        std::vector<std::vector<std::string>> parents;
        std::set<std::string> except;  // lower case
    };

    static const std::vector<Entry>& forHome(const std::string& home) {
        std::lock_guard guard(lock());
        auto& cache = byHome();
        if (auto it = cache.find(home); it != cache.end()) return it->second;
        auto split = [&](const std::string& place) {
            return pathComponents(protectKey(place.starts_with('/') ? place : appendingPathComponent(home, place)));
        };
        std::vector<Entry> entries;
        for (const auto& b : builtInProtections()) {
            Entry e{&b, {}, {}, {}};
            for (const auto& p : b.patterns) e.patterns.push_back(split(p));
            for (const auto& p : b.parents) e.parents.push_back(split(p));
            for (const auto& x : b.except) e.except.insert(lowercased(x));
            entries.push_back(std::move(e));
        }
        return cache.emplace(home, std::move(entries)).first->second;
    }

private:
    static std::mutex& lock() {
        static std::mutex m;
        return m;
    }
    static std::map<std::string, std::vector<Entry>>& byHome() {
        static auto* m = new std::map<std::string, std::vector<Entry>>;  // lives as long as the process
        return *m;
    }
};

bool matchesComponents(const std::vector<std::string>& pattern, const std::vector<std::string>& path) {
    if (pattern.size() > path.size()) return false;
    for (std::size_t i = 0; i < pattern.size(); ++i)
        if (pattern[i] != "*" && pattern[i] != path[i]) return false;
    return true;
}

std::vector<std::string> hiddenPaths(const std::set<std::string>& hidden) {
    std::vector<std::string> out;
    for (const auto& h : hidden)
        if (h.starts_with('/')) out.push_back(h);
    return out;
}

}  // namespace

std::string ProtectEntry::id() const { return std::string(rawValue(kind)) + ":" + value; }

std::vector<std::string> ProtectEntry::roots() const {
    return kind == Kind::app ? appFolders : std::vector<std::string>{value};
}

void ProtectList::add(ProtectEntry entry) {
    const std::string id = entry.id();
    if (std::none_of(entries.begin(), entries.end(), [&](const ProtectEntry& e) { return e.id() == id; }))
        entries.push_back(std::move(entry));
}

void ProtectList::remove(const std::string& id) {
    std::erase_if(entries, [&](const ProtectEntry& e) { return e.id() == id; });
}

std::optional<ProtectList> ProtectList::decode(std::string_view data) {
    auto parsed = parseJSONStrictly(data);
    if (!parsed.value) return std::nullopt;
    JSONFields fields(*parsed.value, "the protection list");
    // A version above the current one, however large, is a newer release's list: left unread.
    const auto version = fields.wholeNumber("version", INT_MIN, currentVersion);
    const auto* entries = fields.value("entries");
    if (!fields || !entries->is_array()) return std::nullopt;
    ProtectList list;
    list.version = static_cast<int>(version);
    for (const auto& e : *entries) {
        JSONFields entry(e, "an entry");
        list.entries.push_back({entry.raw<ProtectEntry::Kind>("kind"), entry.string("value"), entry.string("label"),
                                entry.strings("appFolders"), entry.date("added")});
        if (!entry) return std::nullopt;
    }
    return list;
}

std::string StoredProtectList::unreadableRefusal() const {
    return "Velloran Orvane cannot read your protection list at " + path +
           ", so it refuses to clear anything until the list is readable.";
}

StoredProtectList loadProtectList(const std::string& path, const Facts& facts) {
    const std::string shown = "The protection list at " + path;
    auto read = facts.read(path, kProtectListMaxBytes);
    if (!read.bytes) {
        if (read.failure == ReadFailure::missing) return {path, ProtectList{}, {}};
        return {path, std::nullopt, shown + " " + std::string(readFailureClause(read.failure)) + "; it is left as it is."};
    }
    auto list = ProtectList::decode(*read.bytes);
    if (!list) return {path, std::nullopt, shown + " is damaged or from a newer release; it is left as it is."};
    return {path, std::move(*list), {}};
}

std::string ProtectList::encoded() const {
    nlohmann::json doc;  // a plain json object keeps its keys sorted
    doc["version"] = version;
    doc["entries"] = nlohmann::json::array();
    for (const auto& e : entries) {
        doc["entries"].push_back({{"kind", rawValue(e.kind)},
                                  {"value", e.value},
                                  {"label", e.label},
                                  {"appFolders", e.appFolders},
                                  {"added", secondsSinceReferenceDate(e.added)}});
    }
    return doc.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

const std::vector<BuiltInProtection>& builtInProtections() {
    static const std::vector<BuiltInProtection> table = makeTable();
    return table;
}

bool Protection::isLock() const { return !std::holds_alternative<protection_case::BuiltIn>(value); }

std::string Protection::line() const {
    return std::visit(Overloaded{[](const protection_case::User&) { return std::string("Kept because you protected it."); },
                                 [](const protection_case::InUse& u) {
                                     return "Kept because " + u.appName + " is open and using it.";
                                 },
                                 [](const protection_case::BuiltIn& b) {
                                     return "Protected by Velloran Orvane: " + lowercased(b.protection.label) + ". " +
                                            b.protection.why;
                                 }},
                      value);
}

std::string protectKey(std::string_view path) {
    std::string key = standardizePath(path);
    for (auto [from, to] : {std::pair{"/private/var/", "/var/"}, std::pair{"/private/tmp/", "/tmp/"},
                            std::pair{"/private/etc/", "/etc/"}}) {
        if (key.starts_with(from)) key = to + key.substr(std::string_view(from).size());
    }
    while (key.size() >= 2 && key.back() == '/') key.pop_back();
    return lowercased(key);
}

bool pathIsAtOrInside(std::string_view path, std::string_view root) {
    const std::string p = protectKey(path), r = protectKey(root);
    if (p == r) return true;
    if (r == "/") return p.starts_with('/');
    return p.size() > r.size() && p.starts_with(r) && p[r.size()] == '/';
}

bool pathMatches(std::string_view pattern, std::string_view path) {
    return matchesComponents(pathComponents(pattern), pathComponents(path));
}

std::vector<std::string> appProtectedRoots(const std::string& bundleID, const std::string& appName,
                                           const std::optional<std::string>& appPath, const std::string& home) {
    std::vector<std::string> roots;
    if (appPath) roots.push_back(*appPath);
    for (const std::string& relative :
         {"Library/Application Support/" + bundleID, "Library/Application Support/" + appName,
          "Library/Containers/" + bundleID, "Library/Caches/" + bundleID, "Library/Caches/" + appName,
          "Library/HTTPStorages/" + bundleID, "Library/Preferences/" + bundleID + ".plist",
          "Library/Saved Application State/" + bundleID + ".savedState", "Library/WebKit/" + bundleID,
          "Library/Logs/" + appName})
        roots.push_back(appendingPathComponent(home, relative));
    std::vector<std::string> unique;
    for (auto& r : roots)
        if (std::find(unique.begin(), unique.end(), r) == unique.end()) unique.push_back(std::move(r));
    return unique;
}

std::optional<BuiltInProtection> builtInProtection(std::string_view path, const std::string& home) {
    const auto& compiled = CompiledBuiltIns::forHome(home);
    const auto components = pathComponents(protectKey(path));
    for (const auto& entry : compiled) {
        bool abandoned = false;
        for (const auto& pattern : entry.patterns) {
            if (!matchesComponents(pattern, components)) continue;
            for (std::size_t i = pattern.size(); i < components.size() && !abandoned; ++i)
                abandoned = entry.except.contains(components[i]);
            if (!abandoned) return *entry.b;
            break;
        }
        if (abandoned) continue;
        for (const auto& parent : entry.parents) {
            if (components.size() <= parent.size() || !std::equal(parent.begin(), parent.end(), components.begin()))
                continue;
            const std::string& child = components[parent.size()];
            for (const auto& keyword : entry.b->keywords)
                if (child.find(keyword) != std::string::npos) return *entry.b;
        }
    }
    return std::nullopt;
}

std::optional<std::string> groupContainerUser(std::string_view path, const std::vector<RunningApp>& running,
                                              const std::string& home) {
    const std::string containers = appendingPathComponent(home, "Library/Group Containers") + "/";
    if (!path.starts_with(containers)) return std::nullopt;
    const auto rest = pathComponents(path.substr(containers.size()));
    if (rest.empty()) return std::nullopt;
    const std::string& component = rest.front();
    for (const auto& app : running) {
        if (app.teamID && !app.teamID->empty() && component.starts_with(*app.teamID + ".")) return app.name;
        const std::string stem = component.starts_with("group.") ? component.substr(6) : component;
        // The bundle id's first three pieces: a team's apps share them with their group containers.
        std::string prefix;
        std::size_t taken = 0, start = 0;
        while (taken < 3 && start <= app.bundleID.size()) {
            auto dot = app.bundleID.find('.', start);
            if (dot == std::string::npos) dot = app.bundleID.size();
            if (dot > start) prefix += (taken++ ? "." : "") + app.bundleID.substr(start, dot - start);
            start = dot + 1;
        }
        if (prefix.find('.') != std::string::npos && lowercased(stem).starts_with(lowercased(prefix))) return app.name;
    }
    return std::nullopt;
}

std::optional<Protection> protection(std::string_view path, const ProtectList& list,
                                     const std::set<std::string>& hidden, const std::vector<RunningApp>& running,
                                     const std::string& home) {
    for (const auto& entry : list.entries)
        for (const auto& root : entry.roots())
            if (pathIsAtOrInside(path, root)) return Protection{protection_case::User{entry}};
    for (const auto& member : hiddenPaths(hidden))
        if (pathIsAtOrInside(path, member))
            return Protection{protection_case::User{
                ProtectEntry{ProtectEntry::Kind::item, member, lastPathComponent(member), {}, Clock::now()}}};
    if (auto app = groupContainerUser(path, running, home)) return Protection{protection_case::InUse{*app}};
    if (auto builtIn = builtInProtection(path, home)) return Protection{protection_case::BuiltIn{*builtIn}};
    return std::nullopt;
}

std::vector<std::string> userProtectedInside(std::string_view path, const ProtectList& list,
                                             const std::set<std::string>& hidden) {
    const std::string key = protectKey(path);
    std::vector<std::string> inside;
    auto consider = [&](const std::string& root) {
        if (protectKey(root) != key && pathIsAtOrInside(root, path)) inside.push_back(root);
    };
    for (const auto& entry : list.entries)
        for (const auto& root : entry.roots()) consider(root);
    for (const auto& member : hiddenPaths(hidden)) consider(member);
    std::sort(inside.begin(), inside.end());
    return inside;
}

std::optional<std::string> protectionRefusal(std::string_view path, const ProtectList& list,
                                             const std::set<std::string>& hidden,
                                             const std::vector<RunningApp>& running, const std::string& home) {
    if (auto p = protection(path, list, hidden, running, home); p && p->isLock()) return p->line();
    auto inside = userProtectedInside(path, list, hidden);
    if (!inside.empty()) return "Kept because you protected " + lastPathComponent(inside.front()) + " inside it.";
    return std::nullopt;
}

std::optional<std::string> protectionRefusal(std::string_view path, const StoredProtectList& stored,
                                             const std::set<std::string>& hidden,
                                             const std::vector<RunningApp>& running, const std::string& home) {
    if (!stored.list) return stored.unreadableRefusal();
    return protectionRefusal(path, *stored.list, hidden, running, home);
}

bool contentsClearMayRemove(std::string_view child, const ProtectList& list, const std::set<std::string>& hidden,
                            const std::vector<RunningApp>& running, const std::string& home) {
    if (!userProtectedInside(child, list, hidden).empty()) return false;
    auto p = protection(child, list, hidden, running, home);
    if (!p) return true;
    if (p->isLock()) return false;
    // A child stays only for a protection its folder does not share.
    return builtInProtection(deletingLastPathComponent(child), home) ==
           std::get<protection_case::BuiltIn>(p->value).protection;
}

SpaceItem applyingProtection(SpaceItem item, const std::optional<Protection>& protection) {
    if (!protection) return item;
    const std::string line = protection->line();
    if (!item.note.starts_with(line)) item.note = item.note.empty() ? line : line + "  " + item.note;
    item.safety = Safety::review;
    const bool keepsMove = !protection->isLock() && item.suggested == Suggested::move;
    if (!keepsMove) item.suggested = Suggested::review;
    return item;
}

}  // namespace orvane
