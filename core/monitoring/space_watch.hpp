// Space Watch: its rules as the user set them, and what the history of scans says now: the tone of
// the last change, what grew, what a system update cost, how old the downloads are, and the next
// steps. Every function is pure; the history comes in, nothing is read.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/format.hpp"
#include "core/common/raw_value.hpp"
#include "core/scan/scan_snapshot.hpp"
#include "core/scan/space_item.hpp"

namespace orvane {

inline constexpr double notificationMinimumGap = 259'200;  // seconds: 3 days
inline constexpr std::int64_t littleToCleanThreshold = 2'000'000'000;
inline constexpr std::int64_t trendSharpDropBytes = 10'000'000'000;

// The watch's rules. Fields stand in the order of the JSON form.
struct SpaceWatchConfig {
    bool ruleDLOn = true;
    int ruleDLCapGB = 5;
    bool ruleShotsOn = true;
    int ruleShotsDays = 30;
    bool ruleTrashOn = true;
    int ruleTrashCapGB = 2;
    bool ruleFloorOn = true;
    int ruleFloorGB = 30;
    bool autoShotsAct = false;
    bool autoTrashAct = false;
    bool autoDLAct = false;
    int autoDLDays = 60;
    bool autoEvictAct = false;
    bool autoSummaryAfterWeeklyScan = false;
    std::string autoSummaryFormat = "html";
    std::string autoSummaryDir;

    // `default` is a keyword: the case is default_.
    static SpaceWatchConfig default_() { return {}; }
    // The defaults, each replaced by a stored value of the right type (a whole number within an
    // int for the counts). The four actions without asking are never read: one of them cannot
    // come back from stored preferences.
    static SpaceWatchConfig from(const std::function<std::optional<nlohmann::json>(std::string_view)>& preferences);

    bool operator==(const SpaceWatchConfig&) const = default;
};

// Every field under its own name, in the order above.
nlohmann::ordered_json toJSON(const SpaceWatchConfig& config);

enum class TrendTone { normal, drop, low };
template <>
struct RawValues<TrendTone> {
    static constexpr std::array<std::pair<TrendTone, std::string_view>, 3> table = {
        {{TrendTone::normal, "normal"}, {TrendTone::drop, "drop"}, {TrendTone::low, "low"}}};
};

struct DownloadsAge {
    std::int64_t recent = 0;  // under 30 days
    std::int64_t middle = 0;  // under 182 days
    std::int64_t old = 0;
    std::int64_t undated = 0;
    std::int64_t total() const;
    bool operator==(const DownloadsAge&) const = default;
};

struct DownloadEntry {
    std::int64_t bytes = 0;
    std::optional<TimePoint> date;
    bool operator==(const DownloadEntry&) const = default;
};

struct NextStep {
    enum class Kind { scan, freeSafe, moveToExternal, review };
    Kind kind = Kind::scan;
    std::optional<std::int64_t> bytes;
    bool done = false;
    bool operator==(const NextStep&) const = default;
};
template <>
struct RawValues<NextStep::Kind> {
    static constexpr std::array<std::pair<NextStep::Kind, std::string_view>, 4> table = {
        {{NextStep::Kind::scan, "scan"},
         {NextStep::Kind::freeSafe, "freeSafe"},
         {NextStep::Kind::moveToExternal, "moveToExternal"},
         {NextStep::Kind::review, "review"}}};
};

struct ReclaimableSplit {
    std::int64_t total = 0;
    std::int64_t safe = 0;
    std::int64_t move = 0;
    std::int64_t review = 0;
    bool operator==(const ReclaimableSplit&) const = default;
};

struct Growth {
    std::string id;
    std::int64_t grew = 0;
    bool operator==(const Growth&) const = default;
};

struct CleanupSplit {
    std::int64_t stays = 0;    // gone for good once cleaned
    std::int64_t regrows = 0;  // caches and environments that build themselves again
    bool operator==(const CleanupSplit&) const = default;
};

// The ids of `new_` also in `old` that grew by at least `minimum`, largest growth first, at most
// `limit`. Unknown (negative) sizes and new ids are no growth.
std::vector<Growth> biggestGrowth(const std::map<std::string, std::int64_t>& old,
                                  const std::map<std::string, std::int64_t>& new_, std::int64_t minimum,
                                  std::size_t limit);

// The newest snapshot at least six days before the newest, else the oldest before it. Snapshots of
// unknown free space are left out.
std::optional<ScanSnapshot> weekAgoSnapshot(const std::vector<ScanSnapshot>& snapshots);
// The snapshot of least known free space; of equal ones the later in the list.
std::optional<ScanSnapshot> lowestFreePoint(const std::vector<ScanSnapshot>& snapshots);

// `low` under the floor; `drop` for a fall of 10 GB or more that is also a tenth of what was free.
TrendTone trendTone(std::int64_t free, std::optional<std::int64_t> previousFree, std::int64_t floorBytes);

// The free space a change of system version took, when it took at least 1 GB.
std::optional<std::int64_t> spaceLostAcrossOSUpdate(const std::optional<std::string>& previousOS,
                                                    const std::string& currentOS,
                                                    std::optional<std::int64_t> previousFree, std::int64_t currentFree);

DownloadsAge downloadsAge(const std::vector<DownloadEntry>& entries, TimePoint now);

// A clock that went back never silences the watch.
bool notificationAllowed(std::optional<TimePoint> lastSent, TimePoint now, double minimumGap);

// Always scan, freeSafe, moveToExternal, review, in that order.
std::vector<NextStep> nextSteps(bool hasScanned, std::int64_t safeBytes, std::int64_t moveBytes,
                                std::int64_t reviewBytes);

bool regrowsAfterCleanup(const SpaceItem& item);
CleanupSplit safeCleanupSplit(const std::vector<SpaceItem>& items);
ReclaimableSplit reclaimableSplit(const std::vector<SpaceItem>& found, const std::set<std::string>& safeIDs,
                                  const std::set<std::string>& moveIDs);

// Swap below 1 GB is not worth a word.
std::optional<std::int64_t> swapWorthMentioning(std::int64_t bytes);

}  // namespace orvane
