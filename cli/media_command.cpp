// orvane media: what lies in the home's Music and Movies folders and how each piece may be moved,
// the vendors' sound stores on this Mac, whether apps expect the media folders where they are, and
// how the Logic Pro sound library is to be moved for the versions installed.
#include <algorithm>

#include "cli/command.hpp"
#include "core/apps/vendor_folders.hpp"
#include "core/common/path.hpp"
#include "core/common/property_list.hpp"
#include "core/relocation/logic_sound_library.hpp"
#include "core/relocation/music_stores.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane::cli {
namespace {

// A Music library can hold hundreds of gigabytes; beyond an hour something is wrong with the disk.
constexpr double kMeasureSeconds = 3600;

struct Child {
    std::string name;
    std::string path;
    std::optional<MusicChildClass> kind;
    std::string note;
};

// The folder's entries by name, without the files the Finder makes by itself; none when it cannot
// be listed.
std::optional<std::vector<Child>> childrenOf(const std::string& folder, const Facts& facts, bool music) {
    auto entries = facts.list(folder);
    if (!entries) return std::nullopt;
    std::vector<Child> children;
    for (const auto& entry : *entries) {
        if (std::find(finderOwnFolderFiles.begin(), finderOwnFolderFiles.end(), entry.name) != finderOwnFolderFiles.end())
            continue;
        Child child{entry.name, appendingPathComponent(folder, entry.name), std::nullopt, ""};
        if (music) {
            if (const auto row = musicChild(child.path, facts)) child.kind = row->kind, child.note = row->note;
        } else if (const auto classed = moviesChild(child.path, facts)) {
            child.kind = classed->kind, child.note = classed->note;
        }
        children.push_back(std::move(child));
    }
    std::sort(children.begin(), children.end(), [](const Child& a, const Child& b) { return a.name < b.name; });
    return children;
}

// The first of an app's places that says its version.
std::optional<std::string> installedVersion(std::initializer_list<const char*> bundles, const Facts& facts) {
    for (const char* bundle : bundles)
        if (const auto info = readPropertyListDictionary(appendingPathComponent(bundle, "Contents/Info.plist"), facts))
            if (auto version = plistString(*info, "CFBundleShortVersionString")) return version;
    return std::nullopt;
}

std::int64_t bytesOf(const std::map<std::string, std::int64_t>& sizes, const std::string& path) {
    const auto found = sizes.find(path);
    return found == sizes.end() ? -1 : found->second;
}

void showFolder(Result& result, nlohmann::ordered_json& json, const std::string& title, const std::string& folder,
                const std::optional<std::vector<Child>>& children, const std::map<std::string, std::int64_t>& sizes) {
    json = nlohmann::ordered_json::array();
    result.line(title + "  " + folder);
    if (!children) {
        result.line("  It cannot be listed.");
        return;
    }
    if (children->empty()) {
        result.line("  It is empty.");
        return;
    }
    Table table({Table::Align::right, Table::Align::left, Table::Align::left});
    for (const auto& child : *children) {
        const std::int64_t bytes = bytesOf(sizes, child.path);
        const std::string kind = child.kind ? std::string(rawValue(*child.kind)) : "";
        table.row({bytes < 0 ? std::string("?") : fmtBytes(bytes), child.name, kind.empty() ? "none" : kind});
        if (child.kind) table.note(child.note);
        json.push_back({{"name", child.name},
                        {"path", child.path},
                        {"kind", child.kind ? nlohmann::ordered_json(kind) : nullptr},
                        {"note", child.kind ? nlohmann::ordered_json(child.note) : nullptr},
                        {"bytes", bytes < 0 ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(bytes)}});
    }
    for (const auto& line : table.lines()) result.line("  " + line);
}

std::string yesNo(bool value) { return value ? "yes" : "no"; }

Result runMedia(const Invocation& in) {
    const Facts& facts = in.facts;
    const std::string music = facts.home("Music"), movies = facts.home("Movies");
    const auto musicChildren = childrenOf(music, facts, true);
    const auto moviesChildren = childrenOf(movies, facts, false);

    std::vector<std::string> paths;
    for (const auto* children : {&musicChildren, &moviesChildren})
        if (*children)
            for (const auto& child : **children) paths.push_back(child.path);
    in.progress.show("Measuring " + counted(static_cast<std::int64_t>(paths.size()), "item") + " with du…");
    const auto sizes = duBatchMeasure(paths, kMeasureSeconds, facts).sizes;
    in.progress.clear();

    Result result;
    nlohmann::ordered_json musicJSON, moviesJSON;
    showFolder(result, musicJSON, "Music", music, musicChildren, sizes);
    result.line();
    showFolder(result, moviesJSON, "Movies", movies, moviesChildren, sizes);

    result.line();
    nlohmann::ordered_json stores = nlohmann::ordered_json::array();
    for (const auto& store : musicStoreTable(facts.home(""))) {
        for (const auto& path : store.contentPaths) {
            if (!facts.exists(path)) continue;
            const std::string lane(rawValue(store.lane));
            if (stores.empty()) result.line("Vendor stores");
            result.line("  " + store.name + " (" + store.id + "), " + lane + ": " + path);
            for (std::size_t i = 0; i < store.steps.size(); ++i)
                result.line("    " + std::to_string(i + 1) + ". " + store.steps[i]);
            stores.push_back(
                {{"id", store.id}, {"name", store.name}, {"path", path}, {"lane", lane}, {"steps", store.steps}});
        }
    }
    if (stores.empty()) result.line("No vendor store was found.");

    const bool daw = musicFolderHasDAWContent(facts);
    const bool pictures = picturesFolderHasLibrary(facts);
    const bool managed = moviesFolderHasManagedContent(facts);
    result.line();
    result.line("Music holds what apps look up there: " + yesNo(daw));
    result.line("Pictures holds a photo library: " + yesNo(pictures));
    result.line("Movies holds what apps manage there: " + yesNo(managed));

    const auto logic = installedVersion({"/Applications/Logic Pro.app", "/Applications/Logic Pro X.app"}, facts);
    const auto mainStage = installedVersion({"/Applications/MainStage.app", "/Applications/MainStage 3.app"}, facts);
    const bool bundleInMusic = facts.exists(facts.home("Music/Logic Pro Library.bundle"));
    const auto asView = [](const std::optional<std::string>& text) {
        return text ? std::optional<std::string_view>(*text) : std::nullopt;
    };
    const std::string sentence = logicSoundLibraryRoute(asView(logic), asView(mainStage), bundleInMusic);
    const bool known = logicSoundLibraryRouteKnown(asView(logic), asView(mainStage), bundleInMusic);
    result.line();
    result.line("Logic Pro sound library (Logic Pro " + logic.value_or("not installed") + ", MainStage " +
                mainStage.value_or("not installed") + ", library bundle in Music: " + yesNo(bundleInMusic) + ")");
    result.line("  " + sentence);
    result.line(known ? "  The route is known." : "  The route is not known.");

    const auto orNull = [](const std::optional<std::string>& text) {
        return text ? nlohmann::ordered_json(*text) : nlohmann::ordered_json(nullptr);
    };
    result.json = {{"music", std::move(musicJSON)},
                   {"movies", std::move(moviesJSON)},
                   {"stores", std::move(stores)},
                   {"musicFolderHasDAWContent", daw},
                   {"picturesFolderHasLibrary", pictures},
                   {"moviesFolderHasManagedContent", managed},
                   {"logicRoute",
                    {{"sentence", sentence},
                     {"known", known},
                     {"logicVersion", orNull(logic)},
                     {"mainStageVersion", orNull(mainStage)},
                     {"libraryBundleInMusic", bundleInMusic}}}};
    return result;
}

}  // namespace

void addMediaCommand(Registry& registry) {
    registry.add("media",
                 "Show the children of ~/Music and ~/Movies with what each is (class, note) and its size (\"?\" when "
                 "it could not be measured), the vendors' sound stores on this Mac with how each is moved, whether "
                 "Music, Pictures and Movies hold what apps expect there, and how to move the Logic Pro sound "
                 "library for the versions installed.",
                 [](const Invocation& in) { return runMedia(in); });
}

}  // namespace orvane::cli
