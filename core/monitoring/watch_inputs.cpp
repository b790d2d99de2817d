#include "core/monitoring/watch_inputs.hpp"

#include <map>

#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/ledger/ledger.hpp"
#include "core/ledger/user_defaults.hpp"
#include "core/scan/top_most.hpp"

namespace orvane {
namespace {

constexpr std::string_view kOSAtNewestScan = "ov.watch.osAtNewestScan";
constexpr std::string_view kFreeAtNewestScan = "ov.watch.freeAtNewestScan";
constexpr std::string_view kOSBeforeUpdate = "ov.watch.osBeforeUpdate";
constexpr std::string_view kFreeBeforeUpdate = "ov.watch.freeBeforeUpdate";

std::optional<OSAtScan> storedScan(std::string_view osKey, std::string_view freeKey) {
    auto os = userDefault(osKey);
    auto free = userDefault(freeKey);
    if (!os || !os->is_string() || !free) return std::nullopt;
    auto bytes = jsonByteCount(*free);
    if (!bytes) return std::nullopt;
    return OSAtScan{os->get<std::string>(), *bytes};
}

void storeScan(const std::optional<OSAtScan>& scan, std::string_view osKey, std::string_view freeKey) {
    if (!scan) return;
    setUserDefault(osKey, scan->os);
    setUserDefault(freeKey, scan->free);
}

}  // namespace

ScanSnapshot trendPoint(const std::vector<SpaceItem>& items, std::int64_t free, TimePoint date) {
    std::map<std::string, std::vector<SpaceItem>> byCategory;
    for (const auto& item : items) byCategory[item.category].push_back(item);
    ScanSnapshot snapshot{date, free, topMostBytes(items), {}};
    for (const auto& [category, members] : byCategory) snapshot.sizes[category] = topMostBytes(members);
    return snapshot;
}

OSScanHistory afterScan(OSScanHistory history, const std::string& os, std::int64_t free) {
    if (free < 0 || os.empty()) return history;
    if (history.newest && history.newest->os != os) history.beforeUpdate = history.newest;
    history.newest = OSAtScan{os, free};
    return history;
}

OSScanHistory storedOSScanHistory() {
    return {storedScan(kOSBeforeUpdate, kFreeBeforeUpdate), storedScan(kOSAtNewestScan, kFreeAtNewestScan)};
}

void storeOSScanHistory(const OSScanHistory& history) {
    storeScan(history.beforeUpdate, kOSBeforeUpdate, kFreeBeforeUpdate);
    storeScan(history.newest, kOSAtNewestScan, kFreeAtNewestScan);
}

void rememberScanForWatch(const ScanScope& scope, const std::vector<SpaceItem>& items, std::int64_t free,
                          std::int64_t total, bool onHomeFileSystem, const std::string& os, TimePoint now) {
    if (!onHomeFileSystem) return;
    Ledger::saveItemsCache(scope, Ledger::ItemsCache{now, items, free, total, Ledger::cacheSchema});
    Ledger::appendTrend(trendPoint(items, free, now));
    const OSScanHistory before = storedOSScanHistory();
    const OSScanHistory after = afterScan(before, os, free);
    if (after != before) storeOSScanHistory(after);
}

std::vector<DownloadEntry> downloadEntries(const std::string& folder, const Facts& facts) {
    std::vector<DownloadEntry> entries;
    const auto top = facts.lstat(folder);
    if (!top || !top->isDirectory()) return entries;
    // A stack rather than recursion, so that no depth of folders can exhaust the call stack.
    std::vector<std::string> pending{folder};
    while (!pending.empty()) {
        const std::string dir = std::move(pending.back());
        pending.pop_back();
        auto listed = facts.list(dir);
        if (!listed) continue;
        for (const auto& entry : *listed) {
            if (entry.isLink) continue;
            const std::string path = appendingPathComponent(dir, entry.name);
            auto st = facts.lstat(path);
            if (!st || st->device != top->device) continue;
            if (st->isDirectory())
                pending.push_back(path);
            else if (st->isRegularFile())
                entries.push_back({st->allocatedBytes, Clock::from_time_t(st->modifiedSeconds)});
        }
    }
    return entries;
}

}  // namespace orvane
