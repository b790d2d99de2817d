// The generic scanner: the biggest files of a scope, classified, the biggest of them dated, in a
// bounded dump; and the small functions that merge a fresh scan into what was found before.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/common/facts.hpp"
#include "core/scan/scan_progress.hpp"
#include "core/scan/scan_scope.hpp"
#include "core/scan/space_item.hpp"
#include "core/common/facts.hpp"
#include "core/common/tool_runner.hpp"

namespace orvane {

struct GenericScanDump {
    std::vector<SpaceItem> items;  // biggest first, at most 600
    std::int64_t free = -1;        // of the scope root's file system; -1 unknown
    std::int64_t total = -1;
    double elapsed = 0;  // seconds
    ScanPrivilege privilege = ScanPrivilege::standard;
    std::size_t skippedNames = 0;  // files left out because their names are not valid UTF-8
    bool operator==(const GenericScanDump&) const = default;
};

// {"items":[...],"free":...,"total":...,"elapsed":...,"privilege":"Standard","skippedNames":0}.
// The daemon's dump file carries its item dates as ISO 8601 text. "skippedNames" may be missing
// (a dump from before it existed), and reads as 0; a size outside -1 to kMaxByteCount fails the dump.
nlohmann::ordered_json toJSON(const GenericScanDump& dump, JSONDateEncoding dates);
struct GenericScanDumpDecoding {
    std::optional<GenericScanDump> dump;
    std::string error;  // a sentence; empty when decoded
};
GenericScanDumpDecoding decodeGenericScanDump(const nlohmann::json& value, JSONDateEncoding dates);

inline constexpr std::size_t kMaxDumpItems = 600;
inline constexpr std::size_t kDatedItems = 150;

// Asks the world only through `facts` (find, mdls and du runs, lstat, the mount's type, the
// volume's capacity, the clock). Never fails: a file that cannot be read is skipped, a name that is not valid UTF-8 is skipped
// and counted, a find that times out gives a partial dump, an unreadable file system gives -1 for
// free and total.
GenericScanDump buildGenericScanDump(const ScanScope& scope, bool useSpotlightDates, ScanPrivilege privilege,
                                     std::uint32_t trashUID, const Facts& facts = Facts::real());

// Replaces one part of earlier findings with a fresh scan of that part: items of the cleared
// categories (or matching the predicate) go, then each new item is stored under its id.
std::map<std::string, SpaceItem> doorScanReplace(std::map<std::string, SpaceItem> current,
                                                 const std::set<std::string>& clearing,
                                                 const std::vector<SpaceItem>& with);
std::map<std::string, SpaceItem> doorScanReplace(std::map<std::string, SpaceItem> current,
                                                 const std::function<bool(const SpaceItem&)>& clearingWhere,
                                                 const std::vector<SpaceItem>& with);

// What remains of an old result after a new full scan: the ids of the five lists.
std::set<std::string> fullScanSurvivorIds(const std::vector<SpaceItem>& targets, const std::vector<SpaceItem>& deep,
                                          const std::vector<SpaceItem>& dupes, const std::vector<SpaceItem>& sims,
                                          const std::vector<SpaceItem>& vclusters);

// On another drive, except a Trash there, which counts as the user's own.
bool scopeForeign(std::string_view path);

// "yyyy-MM-dd HH:mm:ss Z" as the metadata tool prints dates: "2020-05-26 13:04:03 +0000".
std::optional<TimePoint> parseMetadataDate(std::string_view text);

}  // namespace orvane
