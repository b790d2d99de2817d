#include "core/relocation/music_stores.hpp"

#include <map>
#include <mutex>

#include "core/common/path.hpp"

namespace orvane {
namespace {

using enum MusicLane;

// Paths that begin with "~/" belong to the home; the rest are absolute already.
std::vector<std::string> joined(std::string_view home, std::initializer_list<std::string_view> paths) {
    std::vector<std::string> out;
    for (const auto path : paths)
        out.push_back(path.starts_with("~/") ? appendingPathComponent(home, path.substr(2)) : std::string(path));
    return out;
}

// What is built from a home once and kept: every answer is a reference into it.
struct HomeTables {
    std::vector<MusicStoreInfo> stores;
    std::set<std::string> storePaths;
    std::set<std::string> breakdownPaths;
};

// Keyed by the home, so that a recorded Mac or a test's made-up home gets tables of its own.
// Entries of a std::map never move, so references stay good while others are added.
const HomeTables& tablesFor(const std::string& home) {
    static std::mutex lock;
    static std::map<std::string, HomeTables> built;
    std::lock_guard guard(lock);
    auto [at, added] = built.try_emplace(home);
    if (added) {
        HomeTables& t = at->second;
        t.stores = musicStoreTable(home);
        for (const auto& store : t.stores) t.storePaths.insert(store.contentPaths.begin(), store.contentPaths.end());
        for (const auto& child : musicChildTable)
            t.breakdownPaths.insert(appendingPathComponent(home, "Music/" + std::string(child.name)));
    }
    return at->second;
}

// The names in a home folder; one that cannot be listed has none.
std::vector<std::string> namesIn(std::string_view component, const Facts& facts) {
    std::vector<std::string> names;
    if (auto entries = facts.list(facts.home(component)))
        for (auto& entry : *entries) names.push_back(std::move(entry.name));
    return names;
}

bool musicHoldsAKnownChild(const Facts& facts) {
    for (const auto& name : namesIn("Music", facts))
        for (const auto& child : musicChildTable)
            if (name == child.name) return true;
    return false;
}

bool picturesHoldALibrary(const Facts& facts) {
    for (const auto& name : namesIn("Pictures", facts))
        if (name.ends_with(".photoslibrary") || name == "Photo Booth Library") return true;
    return false;
}

bool moviesHoldManagedContent(const Facts& facts) {
    for (const auto& name : namesIn("Movies", facts))
        if (name.ends_with(".fcpbundle") || moviesChildClass(name, facts)) return true;
    return false;
}

// This machine's answer is kept for the life of the process; other facts are asked afresh.
template <bool (*work)(const Facts&)>
bool keptOnThisMachine(const Facts& facts) {
    if (&facts != &Facts::real()) return work(facts);
    static const bool kept = work(facts);
    return kept;
}

}  // namespace

std::vector<MusicStoreInfo> musicStoreTable(std::string_view home) {
    std::vector<MusicStoreInfo> rows = {
        {"ni", "Native Instruments", joined(home, {"/Users/Shared/Native Instruments", "~/Documents/Native Instruments"}),
         "Native Access", {"Native Access", "NTKDaemon"}, officialRepoint,
         {"In Native Access: Settings › File Management › Content location — when it asks for the folder, paste "
          "(it's on your clipboard).",
          "For each installed library showing an issue: click Repair › paste the same path.",
          "Open one instrument in Kontakt/Komplete to confirm sounds load."},
         "com.native-instruments.", "ContentDir"},
        {"uvi", "UVI",
         joined(home, {"/Library/Application Support/UVISoundbanks", "~/Library/Application Support/UVI"}),
         "UVI Portal", {"UVI Portal", "UVIWorkstation"}, symlinkFriendly,
         {"UVI Portal › Preferences › Soundbank install location — paste the new path.",
          "Or in UVI Workstation: Preferences › Sound Banks › add the new folder.",
          "Load one soundbank to confirm."},
         std::nullopt, std::nullopt},
        {"ableton", "Ableton", joined(home, {"~/Music/Ableton/Factory Packs", "~/Music/Ableton/User Library"}),
         "Ableton Live", {"Live"}, symlinkFriendly,
         {"Live › Settings › Library › 'Installation folder for Packs' — paste the new path.",
          "Open the Packs browser and confirm your packs list."},
         std::nullopt, std::nullopt},
        {"splice", "Splice", joined(home, {"~/Splice", "~/Documents/Splice"}), "Splice", {"Splice"}, officialRepoint,
         {"Confirm this is your Splice folder before moving — Splice lets you set it under Settings › Storage "
          "location.",
          "In Splice: Settings › Storage location — paste the new path.",
          "Play one sample from your library to confirm."},
         std::nullopt, std::nullopt},
        {"izotope", "iZotope",
         joined(home, {"~/Library/Application Support/iZotope", "/Library/Application Support/iZotope"}),
         "iZotope Product Portal", {"iZotope Product Portal"}, officialRepoint,
         {"In iZotope Product Portal: per-product settings › install path — paste the new path.",
          "Reopen one plug-in to confirm content loads."},
         std::nullopt, std::nullopt},
        {"vital", "Vital", joined(home, {"~/Music/Vital"}), "Vital", {"Vital"}, symlinkFriendly,
         {"In Vital: open Settings (gear icon) › set the data directory to the new path (it's on your clipboard).",
          "Load a preset that uses a custom wavetable to confirm."},
         std::nullopt, std::nullopt},
        {"enginedj", "Engine DJ", joined(home, {"~/Music/Engine Library"}), "Engine DJ", {"Engine DJ"},
         symlinkFriendly,
         {"Engine DJ reads this library by absolute path — the shortcut keeps everything working while the drive "
          "is connected.",
          "Engine DJ can also keep a library directly on the external: Settings › Library in the app.",
          "Load a track and check its beat grid to confirm the database is intact."},
         std::nullopt, std::nullopt},
        {"steinberg", "Steinberg",
         joined(home, {"/Library/Application Support/Steinberg", "~/Library/Application Support/Steinberg"}),
         "Steinberg Library Manager", {"Steinberg Library Manager"}, portalPerformsMove,
         {"In Steinberg Library Manager: select a library › Move — paste the destination.",
          "The Library Manager performs the move itself and keeps its own records — nothing else to do."},
         std::nullopt, std::nullopt},
    };
    return rows;
}

const std::array<MediaChildRow, 11> musicChildTable = {{
    {"Music", MusicChildClass::appManaged,
     "Music.app's own library — relocate officially: Music › Settings › Files › change the media folder "
     "location, then File › Library › Organise › Consolidate. Never move the folder directly."},
    {"iTunes", MusicChildClass::appManaged,
     "Legacy iTunes library, still read by Music.app — relocate via Music › Settings › Files, not by moving the "
     "folder."},
    {"Vital", MusicChildClass::vendorReferenced,
     "Vital's wavetables and presets, looked up by path — repoint inside Vital, or move with a shortcut (drive "
     "must stay connected)."},
    {"Engine Library", MusicChildClass::vendorReferenced,
     "Engine DJ's database references absolute paths — a shortcut move works while the drive stays connected."},
    {"Serato", MusicChildClass::vendorReferenced,
     "Serato's crates and track analysis reference absolute paths — shortcut move only, drive connected."},
    {"Traktor", MusicChildClass::vendorReferenced,
     "Traktor's collection references absolute paths — shortcut move only, drive connected."},
    {"Logic", MusicChildClass::dawProjects,
     "Active Logic project work — keep internal, or archive consciously; a moved project needs the drive "
     "connected to open."},
    {"MainStage", MusicChildClass::dawProjects,
     "MainStage concerts and patches — keep internal, or archive consciously."},
    {"Audio Music Apps", MusicChildClass::dawProjects,
     "Logic/GarageBand patches, sampler instruments and loops read at load time — keep internal unless "
     "archiving."},
    {"GarageBand", MusicChildClass::dawProjects, "GarageBand projects — keep internal, or archive consciously."},
    {"DJ.Studio", MusicChildClass::thirdPartyApp,
     "DJ.Studio app data — check DJ.Studio's own settings for a storage location before moving anything."},
}};

const std::array<MediaChildRow, 4> moviesChildTable = {{
    {"TV", MusicChildClass::appManaged,
     "TV.app's library — relocate officially: TV › Settings › Files › change the media folder location. Never "
     "move the folder directly."},
    {"Motion Templates", MusicChildClass::vendorReferenced,
     "Final Cut / Motion templates, looked up by path — keep here, or move only with a shortcut (drive "
     "connected)."},
    {"Motion Projects", MusicChildClass::vendorReferenced,
     "Motion project work, referenced by path — keep internal, or archive consciously."},
    {"Final Cut Backups", MusicChildClass::vendorReferenced,
     "Final Cut's automatic library backups — FCP looks these up by path; thin them from within FCP if large."},
}};

const std::set<std::string>& musicStorePaths(const Facts& facts) { return tablesFor(facts.home("")).storePaths; }

const std::set<std::string>& musicBreakdownPaths(const Facts& facts) {
    return tablesFor(facts.home("")).breakdownPaths;
}

std::optional<MusicStoreInfo> musicStore(std::string_view forPath, const Facts& facts) {
    for (const auto& store : tablesFor(facts.home("")).stores)
        for (const auto& path : store.contentPaths)
            if (path == forPath) return store;
    return std::nullopt;
}

std::vector<SpaceItem> musicOfficialBreakdown(const std::vector<SpaceItem>& in, const Facts& facts) {
    const auto& paths = musicBreakdownPaths(facts);
    std::vector<SpaceItem> kept;
    for (const auto& item : in)
        if (item.path() == "music:other" || paths.contains(item.path())) kept.push_back(item);
    return kept;
}

std::optional<MediaChildRow> musicChild(std::string_view forPath, const Facts& facts) {
    const std::string home = facts.home("");
    for (const auto& child : musicChildTable)
        if (appendingPathComponent(home, "Music/" + std::string(child.name)) == forPath) return child;
    return std::nullopt;
}

bool musicFolderHasDAWContent(const Facts& facts) { return keptOnThisMachine<musicHoldsAKnownChild>(facts); }
bool picturesFolderHasLibrary(const Facts& facts) { return keptOnThisMachine<picturesHoldALibrary>(facts); }
bool moviesFolderHasManagedContent(const Facts& facts) { return keptOnThisMachine<moviesHoldManagedContent>(facts); }

std::optional<ClassedChild> moviesChildClass(std::string_view name, const Facts& facts) {
    constexpr std::string_view localized = ".localized";
    if (name.ends_with(localized)) name.remove_suffix(localized.size());

    for (const auto& row : moviesChildTable)
        if (row.name == name) return ClassedChild{row.kind, std::string(row.note)};

    if (name.ends_with(".imovielibrary") || name.ends_with(".theater")) {
        if (facts.exists("/Applications/iMovie.app"))
            return ClassedChild{MusicChildClass::appManaged,
                                "iMovie's library — manage it inside iMovie; moving the bundle breaks the app's "
                                "reference."};
        return ClassedChild{MusicChildClass::thirdPartyApp,
                            "iMovie is no longer installed on this Mac — an orphaned library: archive it to an "
                            "external or delete it. Reinstalling iMovie would read it again."};
    }

    for (const auto prefix : moviesThirdPartyPrefixes)
        if (name.starts_with(prefix))
            return ClassedChild{MusicChildClass::thirdPartyApp,
                                std::string(name) +
                                    " — app working/output data; check the app's own settings for a storage "
                                    "location before moving."};
    return std::nullopt;
}

std::optional<ClassedChild> moviesChild(std::string_view forPath, const Facts& facts) {
    const std::string folder = facts.home("Movies") + "/";
    if (!forPath.starts_with(folder)) return std::nullopt;
    const std::string_view rest = forPath.substr(folder.size());
    if (rest.find('/') != std::string_view::npos) return std::nullopt;
    return moviesChildClass(rest, facts);
}

bool isAppInfraFolder(std::string_view path, const Facts& facts) {
    if (path == facts.home("Music") && musicFolderHasDAWContent(facts)) return true;
    if (path == facts.home("Movies") && moviesFolderHasManagedContent(facts)) return true;
    for (const char* component : {"Library", "Library/Application Support", "Library/Containers",
                                  "Library/Group Containers", "Library/Preferences", "Library/Caches"})
        if (path == facts.home(component)) return true;
    return false;
}

}  // namespace orvane
