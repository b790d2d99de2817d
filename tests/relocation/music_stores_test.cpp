// Vendor stores, the classes of Music and Movies children and the folder tests, on small recorded
// Macs made in temp folders, so that "/Applications" and the home are real files.
#include "core/relocation/music_stores.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "core/common/replay.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using testing::TempDir;
using enum MusicChildClass;

// A Mac whose home is `home`, holding `paths` (a trailing "/" makes a folder, else a small file).
Facts macWith(const TempDir& dir, const std::vector<std::string>& paths, const std::string& home = "/Users/amy") {
    dir.write("home", home + "\n");
    dir.write("tools.json", "[]");
    dir.mkdir("root" + home);
    for (const auto& path : paths)
        if (path.ends_with('/')) dir.mkdir("root" + path);
        else dir.write("root" + path, path);
    auto load = loadRecording(dir.path());
    EXPECT_TRUE(load.recording) << load.error;
    return recordedFacts(std::make_shared<const Recording>(std::move(*load.recording)));
}

TEST(MusicStores, ExactPathsFindTheirVendor) {
    TempDir amyDir, bobDir;
    const Facts amy = macWith(amyDir, {});
    const Facts bob = macWith(bobDir, {}, "/Users/bob");
    const struct {
        std::string path;
        std::optional<std::string> id;
        MusicLane lane = MusicLane::officialRepoint;
    } cases[] = {
        {"/Users/Shared/Native Instruments", "ni", MusicLane::officialRepoint},
        {"/Users/amy/Documents/Native Instruments", "ni", MusicLane::officialRepoint},
        {"/Users/amy/Library/Application Support/UVI", "uvi", MusicLane::symlinkFriendly},
        {"/Library/Application Support/iZotope", "izotope", MusicLane::officialRepoint},
        {"/Users/amy/Music/Engine Library", "enginedj", MusicLane::symlinkFriendly},
        {"/Library/Application Support/Steinberg", "steinberg", MusicLane::portalPerformsMove},
        {"/Users/amy/Music/Vital/", std::nullopt, {}},         // exact: a trailing "/" is another text
        {"/Users/amy/Music/Vital/Presets", std::nullopt, {}},  // below a store is not the store
        {"~/Music/Vital", std::nullopt, {}},                   // the table holds absolute paths
    };
    for (const auto& c : cases) {
        const auto store = musicStore(c.path, amy);
        EXPECT_EQ(store ? std::optional(store->id) : std::nullopt, c.id) << c.path;
        if (store && c.id) {
            EXPECT_EQ(store->lane, c.lane) << c.path;
        }
    }
    // Each home has tables of its own, however many homes a process has asked about.
    EXPECT_EQ(musicStore("/Users/bob/Music/Vital", bob)->id, "vital");
    EXPECT_FALSE(musicStore("/Users/amy/Music/Vital", bob));
    EXPECT_EQ(musicStorePaths(amy).size(), 14u);
    EXPECT_TRUE(musicStorePaths(bob).contains("/Users/bob/Documents/Splice"));
}

TEST(MusicStores, MusicChildrenAndTheOfficialBreakdown) {
    TempDir dir;
    const Facts mac = macWith(dir, {});
    const struct {
        std::string path;
        std::optional<MusicChildClass> kind;
    } cases[] = {
        {"/Users/amy/Music/Audio Music Apps", dawProjects},
        {"/Users/amy/Music/DJ.Studio", thirdPartyApp},
        {"/Users/amy/Music/logic", std::nullopt},  // case counts
        {"/Users/amy/Music/Logic/Song.logicx", std::nullopt},
    };
    for (const auto& c : cases) {
        const auto child = musicChild(c.path, mac);
        EXPECT_EQ(child ? std::optional(child->kind) : std::nullopt, c.kind) << c.path;
    }

    const auto item = [](std::string id) {
        SpaceItem it;
        it.id = std::move(id);
        return it;
    };
    const std::vector<SpaceItem> items = {item("/Users/amy/Music/iTunes"), item("/Users/amy/Music/Podcasts"),
                                          item("music:other"), item("/Users/amy/Music/Logic/Old"),
                                          item("/Users/amy/Movies/TV"), item("/Users/amy/Music/Logic"),
                                          item("music:others")};
    std::vector<std::string> kept;
    for (const auto& it : musicOfficialBreakdown(items, mac)) kept.push_back(it.id);
    EXPECT_EQ(kept, (std::vector<std::string>{"/Users/amy/Music/iTunes", "music:other", "/Users/amy/Music/Logic"}));
}

TEST(MusicStores, MoviesChildrenByName) {
    TempDir withDir, withoutDir;
    const Facts withIMovie = macWith(withDir, {"/Applications/iMovie.app/"});
    const Facts without = macWith(withoutDir, {});
    const std::string orphan =
        "iMovie is no longer installed on this Mac — an orphaned library: archive it to an external or delete it. "
        "Reinstalling iMovie would read it again.";
    const std::string managed = "iMovie's library — manage it inside iMovie; moving the bundle breaks the app's reference.";
    const std::string tv = std::string(moviesChildTable[0].note);
    const struct {
        std::string name;
        const Facts& facts;
        std::optional<ClassedChild> expected;
    } cases[] = {
        {"TV.localized", without, ClassedChild{appManaged, tv}},
        {"tv", without, std::nullopt},
        {"TV.localized.localized", without, std::nullopt},  // one suffix goes, not every one
        {"Motion Templates.localized", without, ClassedChild{vendorReferenced, std::string(moviesChildTable[1].note)}},
        {"Camtasia Projects.localized", without,
         ClassedChild{thirdPartyApp, "Camtasia Projects — app working/output data; check the app's own settings for "
                                     "a storage location before moving."}},
        {"capcut", without, std::nullopt},
        {"My Camtasia", without, std::nullopt},
        {"Trip.theater", without, ClassedChild{thirdPartyApp, orphan}},
        {"Trip.theater", withIMovie, ClassedChild{appManaged, managed}},
        {"iMovie Library.imovielibrary.localized", without, ClassedChild{thirdPartyApp, orphan}},
        {"Holiday.fcpbundle", withIMovie, std::nullopt},  // Final Cut's libraries count, but have no class
    };
    for (const auto& c : cases) EXPECT_EQ(moviesChildClass(c.name, c.facts), c.expected) << c.name;

    const struct {
        std::string path;
        bool classed;
    } paths[] = {
        {"/Users/amy/Movies/Motion Templates", true},
        {"/Users/amy/Movies/Motion Templates/Titles", false},  // only direct children
        {"/Users/amy/Movies/", false},
        {"/Users/amy/MoviesTV", false},
        {"/Users/bob/Movies/TV", false},
    };
    for (const auto& p : paths) EXPECT_EQ(moviesChild(p.path, without).has_value(), p.classed) << p.path;
}

TEST(MusicStores, FolderTestsReadTheHomeEveryTimeOffThisMachine) {
    const struct {
        std::vector<std::string> paths;
        bool daw, pictures, movies;
    } cases[] = {
        {{}, false, false, false},  // nothing to list
        {{"/Users/amy/Music/", "/Users/amy/Pictures/", "/Users/amy/Movies/"}, false, false, false},
        {{"/Users/amy/Music/Logic/", "/Users/amy/Pictures/Photos Library.photoslibrary/"}, true, true, false},
        {{"/Users/amy/Music/DJ.Studio", "/Users/amy/Pictures/Photo Booth Library/"}, true, true, false},
        {{"/Users/amy/Music/logic/", "/Users/amy/Pictures/Photo Booth", "/Users/amy/Movies/Holiday.mov"},
         false, false, false},
        {{"/Users/amy/Movies/TV.localized/"}, false, false, true},
        {{"/Users/amy/Movies/Old.fcpbundle/"}, false, false, true},
        // Music and Movies as files: nothing to list.
        {{"/Users/amy/Music", "/Users/amy/Movies"}, false, false, false},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        TempDir dir;
        const Facts mac = macWith(dir, c.paths);
        EXPECT_EQ(musicFolderHasDAWContent(mac), c.daw) << i;
        EXPECT_EQ(picturesFolderHasLibrary(mac), c.pictures) << i;
        EXPECT_EQ(moviesFolderHasManagedContent(mac), c.movies) << i;
        EXPECT_EQ(isAppInfraFolder("/Users/amy/Music", mac), c.daw) << i;
        EXPECT_EQ(isAppInfraFolder("/Users/amy/Movies", mac), c.movies) << i;
        EXPECT_FALSE(isAppInfraFolder("/Users/amy/Pictures", mac)) << i;
    }

    // A folder that appears later is seen: only this machine's answers are kept.
    TempDir dir;
    const Facts mac = macWith(dir, {"/Users/amy/Music/"});
    EXPECT_FALSE(musicFolderHasDAWContent(mac));
    dir.mkdir("root/Users/amy/Music/GarageBand");
    EXPECT_TRUE(musicFolderHasDAWContent(mac));

    const struct {
        std::string path;
        bool infra;
    } library[] = {
        {"/Users/amy/Library", true},
        {"/Users/amy/Library/Group Containers", true},
        {"/Users/amy/Library/Caches", true},
        {"/Users/amy/Library/Logs", false},
        {"/Users/amy/Library/Caches/com.apple.Safari", false},
        {"/Library/Caches", false},
    };
    for (const auto& l : library) EXPECT_EQ(isAppInfraFolder(l.path, mac), l.infra) << l.path;
}

}  // namespace
}  // namespace orvane
