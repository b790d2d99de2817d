// Where sample libraries, music libraries and video projects live, and how each may be moved:
// the vendors' content stores, the classes of the Music and Movies folders' children, and whether
// those folders (and Pictures) hold anything an app expects to find there. Data and decisions
// only; moving is the mover's business.
#pragma once

#include <array>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/raw_value.hpp"
#include "core/scan/space_item.hpp"

namespace orvane {

// How a vendor's store is moved.
enum class MusicLane {
    officialRepoint,     // the vendor's app is told the new place; the user follows the steps
    symlinkFriendly,     // a link may stand in its place, so the drive must stay connected
    portalPerformsMove,  // the vendor's manager moves it and keeps its own records
};

template <>
struct RawValues<MusicLane> {
    static constexpr std::array<std::pair<MusicLane, std::string_view>, 3> table = {
        {{MusicLane::officialRepoint, "officialRepoint"},
         {MusicLane::symlinkFriendly, "symlinkFriendly"},
         {MusicLane::portalPerformsMove, "portalPerformsMove"}}};
};

// One vendor's content store, with the home already joined to its home-relative paths.
struct MusicStoreInfo {
    std::string id;
    std::string name;
    std::vector<std::string> contentPaths;  // absolute
    std::string portalPrefix;               // the managing app's name as shown
    std::vector<std::string> helperNames;   // processes to quit first
    MusicLane lane = MusicLane::officialRepoint;
    // Sentences in order. "Paste" in them counts on the new path being on the clipboard before
    // they are shown.
    std::vector<std::string> steps;
    std::optional<std::string> prefsPrefix;
    std::optional<std::string> prefsKeyContains;

    bool operator==(const MusicStoreInfo&) const = default;
};

enum class MusicChildClass { appManaged, vendorReferenced, dawProjects, thirdPartyApp };

template <>
struct RawValues<MusicChildClass> {
    static constexpr std::array<std::pair<MusicChildClass, std::string_view>, 4> table = {
        {{MusicChildClass::appManaged, "appManaged"},
         {MusicChildClass::vendorReferenced, "vendorReferenced"},
         {MusicChildClass::dawProjects, "dawProjects"},
         {MusicChildClass::thirdPartyApp, "thirdPartyApp"}}};
};

// A child of the Music or Movies folder by name, with what it is and what the user should know.
struct MediaChildRow {
    std::string_view name;
    MusicChildClass kind = MusicChildClass::appManaged;
    std::string_view note;

    bool operator==(const MediaChildRow&) const = default;
};

// What a child of Movies is; the note may be made for its name.
struct ClassedChild {
    MusicChildClass kind = MusicChildClass::appManaged;
    std::string note;

    bool operator==(const ClassedChild&) const = default;
};

// The eight vendors in table order, for `home`.
std::vector<MusicStoreInfo> musicStoreTable(std::string_view home);

extern const std::array<MediaChildRow, 11> musicChildTable;
extern const std::array<MediaChildRow, 4> moviesChildTable;
inline constexpr std::array<std::string_view, 5> moviesThirdPartyPrefixes = {
    "Wondershare", "Filmora", "DemoCreator", "CapCut", "Camtasia"};

// Every vendor's content paths and the paths of the Music folder's known children, for the facts'
// home. Each is built once per home and kept, so a recording or a test's home never reads
// another's.
const std::set<std::string>& musicStorePaths(const Facts& facts = Facts::real());
const std::set<std::string>& musicBreakdownPaths(const Facts& facts = Facts::real());

// The first vendor with a content path equal to `forPath`: a path below a store, or one with a
// trailing "/", is none.
std::optional<MusicStoreInfo> musicStore(std::string_view forPath, const Facts& facts = Facts::real());

// The items of the Music folder's official breakdown, in the order given: its known children and
// the synthetic "music:other".
std::vector<SpaceItem> musicOfficialBreakdown(const std::vector<SpaceItem>& in, const Facts& facts = Facts::real());

// The row of a known child of the home's Music folder, by its exact path.
std::optional<MediaChildRow> musicChild(std::string_view forPath, const Facts& facts = Facts::real());

// What the home's media folders hold, by their listings; a folder that cannot be listed holds
// nothing. On this machine (Facts::real()) each is worked out on first use and kept for the life
// of the process; any other facts are asked every time, so a recording is never answered from
// this machine's folders.
bool musicFolderHasDAWContent(const Facts& facts = Facts::real());  // a known child of any class
bool picturesFolderHasLibrary(const Facts& facts = Facts::real());  // a Photos or Photo Booth library
bool moviesFolderHasManagedContent(const Facts& facts = Facts::real());  // a classed child or a Final Cut library

// The class of a name in Movies. A trailing ".localized" is dropped first, also for the note; the
// one look at the disk is whether iMovie is installed, for an iMovie library or theater.
std::optional<ClassedChild> moviesChildClass(std::string_view name, const Facts& facts = Facts::real());
// The same for a direct child of the home's Movies folder; anything deeper is none.
std::optional<ClassedChild> moviesChild(std::string_view forPath, const Facts& facts = Facts::real());

// A folder apps expect to find where it is: the home's Library and its main folders always, Music
// and Movies while they hold what apps manage.
bool isAppInfraFolder(std::string_view path, const Facts& facts = Facts::real());

}  // namespace orvane
