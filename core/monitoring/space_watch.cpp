#include "core/monitoring/space_watch.hpp"

#include <algorithm>
#include <climits>

#include "core/common/checked.hpp"
#include "core/common/json_files.hpp"
#include "core/scan/top_most.hpp"

namespace orvane {
namespace {

using Preferences = std::function<std::optional<nlohmann::json>(std::string_view)>;

void read(const Preferences& preferences, std::string_view key, bool& field) {
    if (auto value = preferences(key); value && value->is_boolean()) field = value->get<bool>();
}

void read(const Preferences& preferences, std::string_view key, int& field) {
    auto value = preferences(key);
    if (!value) return;
    if (auto whole = jsonWholeNumber(*value); whole && *whole >= INT_MIN && *whole <= INT_MAX)
        field = static_cast<int>(*whole);
}

void read(const Preferences& preferences, std::string_view key, std::string& field) {
    if (auto value = preferences(key); value && value->is_string()) field = value->get<std::string>();
}

double secondsBetween(TimePoint from, TimePoint to) { return std::chrono::duration<double>(to - from).count(); }

std::vector<ScanSnapshot> knownFree(const std::vector<ScanSnapshot>& snapshots) {
    std::vector<ScanSnapshot> known;
    for (const auto& snapshot : snapshots)
        if (snapshot.free >= 0) known.push_back(snapshot);
    return known;
}

std::vector<SpaceItem> sized(const std::vector<SpaceItem>& items) {
    std::vector<SpaceItem> kept;
    for (const auto& item : items)
        if (item.sizeBytes >= 1) kept.push_back(item);
    return kept;
}

std::vector<SpaceItem> withIDs(const std::vector<SpaceItem>& items, const std::set<std::string>& ids) {
    std::vector<SpaceItem> kept;
    for (const auto& item : items)
        if (ids.contains(item.id)) kept.push_back(item);
    return kept;
}

}  // namespace

SpaceWatchConfig SpaceWatchConfig::from(const Preferences& preferences) {
    SpaceWatchConfig config = default_();
    read(preferences, "ruleDLOn", config.ruleDLOn);
    read(preferences, "ruleDLCapGB", config.ruleDLCapGB);
    read(preferences, "ruleShotsOn", config.ruleShotsOn);
    read(preferences, "ruleShotsDays", config.ruleShotsDays);
    read(preferences, "ruleTrashOn", config.ruleTrashOn);
    read(preferences, "ruleTrashCapGB", config.ruleTrashCapGB);
    read(preferences, "ruleFloorOn", config.ruleFloorOn);
    read(preferences, "ruleFloorGB", config.ruleFloorGB);
    read(preferences, "autoDLDays", config.autoDLDays);
    read(preferences, "autoSummaryAfterWeeklyScan", config.autoSummaryAfterWeeklyScan);
    read(preferences, "autoSummaryFormat", config.autoSummaryFormat);
    read(preferences, "autoSummaryDir", config.autoSummaryDir);
    return config;
}

nlohmann::ordered_json toJSON(const SpaceWatchConfig& c) {
    return {{"ruleDLOn", c.ruleDLOn},
            {"ruleDLCapGB", c.ruleDLCapGB},
            {"ruleShotsOn", c.ruleShotsOn},
            {"ruleShotsDays", c.ruleShotsDays},
            {"ruleTrashOn", c.ruleTrashOn},
            {"ruleTrashCapGB", c.ruleTrashCapGB},
            {"ruleFloorOn", c.ruleFloorOn},
            {"ruleFloorGB", c.ruleFloorGB},
            {"autoShotsAct", c.autoShotsAct},
            {"autoTrashAct", c.autoTrashAct},
            {"autoDLAct", c.autoDLAct},
            {"autoDLDays", c.autoDLDays},
            {"autoEvictAct", c.autoEvictAct},
            {"autoSummaryAfterWeeklyScan", c.autoSummaryAfterWeeklyScan},
            {"autoSummaryFormat", c.autoSummaryFormat},
            {"autoSummaryDir", c.autoSummaryDir}};
}

std::int64_t DownloadsAge::total() const { return checkedAdd(checkedAdd(recent, middle), checkedAdd(old, undated)); }

std::vector<Growth> biggestGrowth(const std::map<std::string, std::int64_t>& old,
                                  const std::map<std::string, std::int64_t>& new_, std::int64_t minimum,
                                  std::size_t limit) {
    std::vector<Growth> grown;
    for (const auto& [id, now] : new_) {
        auto before = old.find(id);
        if (before == old.end() || before->second < 0 || now < 0) continue;
        if (now - before->second >= minimum) grown.push_back({id, now - before->second});
    }
    std::stable_sort(grown.begin(), grown.end(), [](const Growth& a, const Growth& b) { return a.grew > b.grew; });
    if (grown.size() > limit) grown.resize(limit);
    return grown;
}

std::optional<ScanSnapshot> weekAgoSnapshot(const std::vector<ScanSnapshot>& snapshots) {
    const auto known = knownFree(snapshots);
    if (known.empty()) return std::nullopt;
    const TimePoint newest =
        std::max_element(known.begin(), known.end(), [](const auto& a, const auto& b) { return a.date < b.date; })->date;
    const ScanSnapshot* weekAgo = nullptr;
    const ScanSnapshot* oldestBefore = nullptr;
    for (const auto& snapshot : known) {
        if (!(snapshot.date < newest)) continue;
        if (secondsBetween(snapshot.date, newest) >= 518'400 && (!weekAgo || snapshot.date > weekAgo->date))
            weekAgo = &snapshot;
        if (!oldestBefore || snapshot.date < oldestBefore->date) oldestBefore = &snapshot;
    }
    if (weekAgo) return *weekAgo;
    if (oldestBefore) return *oldestBefore;
    return std::nullopt;
}

std::optional<ScanSnapshot> lowestFreePoint(const std::vector<ScanSnapshot>& snapshots) {
    const ScanSnapshot* lowest = nullptr;
    for (const auto& snapshot : snapshots)
        if (snapshot.free >= 0 && (!lowest || snapshot.free <= lowest->free)) lowest = &snapshot;
    if (!lowest) return std::nullopt;
    return *lowest;
}

TrendTone trendTone(std::int64_t free, std::optional<std::int64_t> previousFree, std::int64_t floorBytes) {
    if (free >= 0 && free < floorBytes) return TrendTone::low;
    if (!previousFree || *previousFree < 1) return TrendTone::normal;
    // In double: an unknown (negative) `free` must not overflow the difference.
    const double drop = static_cast<double>(*previousFree) - static_cast<double>(free);
    if (drop < static_cast<double>(trendSharpDropBytes)) return TrendTone::normal;
    return drop >= static_cast<double>(*previousFree) * 0.1 ? TrendTone::drop : TrendTone::normal;
}

std::optional<std::int64_t> spaceLostAcrossOSUpdate(const std::optional<std::string>& previousOS,
                                                    const std::string& currentOS,
                                                    std::optional<std::int64_t> previousFree, std::int64_t currentFree) {
    if (!previousOS || previousOS->empty() || *previousOS == currentOS) return std::nullopt;
    if (!previousFree || *previousFree < 1 || currentFree < 1) return std::nullopt;
    const std::int64_t lost = checkedSub(*previousFree, currentFree);
    if (lost < 1'000'000'000) return std::nullopt;
    return lost;
}

DownloadsAge downloadsAge(const std::vector<DownloadEntry>& entries, TimePoint now) {
    DownloadsAge age;
    for (const auto& entry : entries) {
        if (entry.bytes < 1) continue;
        std::int64_t* bucket = &age.undated;
        if (entry.date) {
            const double days = secondsBetween(*entry.date, now) / 86'400;
            bucket = days < 30 ? &age.recent : days < 182 ? &age.middle : &age.old;
        }
        *bucket = checkedAdd(*bucket, entry.bytes);
    }
    return age;
}

bool notificationAllowed(std::optional<TimePoint> lastSent, TimePoint now, double minimumGap) {
    if (!lastSent || now < *lastSent) return true;
    return secondsBetween(*lastSent, now) >= minimumGap;
}

std::vector<NextStep> nextSteps(bool hasScanned, std::int64_t safeBytes, std::int64_t moveBytes,
                                std::int64_t reviewBytes) {
    auto step = [hasScanned](NextStep::Kind kind, std::int64_t bytes) {
        bytes = std::max<std::int64_t>(bytes, 0);
        return NextStep{kind, bytes, hasScanned && bytes < 100'000'000};
    };
    return {NextStep{NextStep::Kind::scan, std::nullopt, hasScanned}, step(NextStep::Kind::freeSafe, safeBytes),
            step(NextStep::Kind::moveToExternal, moveBytes), step(NextStep::Kind::review, reviewBytes)};
}

bool regrowsAfterCleanup(const SpaceItem& item) {
    return item.contentsOnly || item.category == catDev || item.category == catEnv;
}

CleanupSplit safeCleanupSplit(const std::vector<SpaceItem>& items) {
    std::vector<SpaceItem> stays, regrows;
    for (const auto& item : sized(items)) (regrowsAfterCleanup(item) ? regrows : stays).push_back(item);
    return {topMostBytes(stays), topMostBytes(regrows)};
}

ReclaimableSplit reclaimableSplit(const std::vector<SpaceItem>& found, const std::set<std::string>& safeIDs,
                                  const std::set<std::string>& moveIDs) {
    const auto items = sized(found);
    ReclaimableSplit split;
    split.total = topMostBytes(items);
    split.safe = std::min(topMostBytes(withIDs(items, safeIDs)), split.total);
    split.move = std::min(topMostBytes(withIDs(items, moveIDs)), split.total - split.safe);
    split.review = std::max<std::int64_t>(split.total - split.safe - split.move, 0);
    return split;
}

std::optional<std::int64_t> swapWorthMentioning(std::int64_t bytes) {
    if (bytes < 1'000'000'000) return std::nullopt;
    return bytes;
}

}  // namespace orvane
