// What the watch keeps and reads beside the ledger's history: the trend point a scan leaves, the
// system version at the scans around an update, and the files of the Downloads folder.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/common/facts.hpp"
#include "core/monitoring/space_watch.hpp"
#include "core/scan/scan_scope.hpp"
#include "core/scan/scan_snapshot.hpp"
#include "core/scan/space_item.hpp"

namespace orvane {

// `reclaimable` is what the items hold counted once; `sizes` the same per category.
ScanSnapshot trendPoint(const std::vector<SpaceItem>& items, std::int64_t free, TimePoint date);

// The system version and free space of one scan.
struct OSAtScan {
    std::string os;
    std::int64_t free = -1;
    bool operator==(const OSAtScan&) const = default;
};
// The newest scan, and the last scan before the version last changed.
struct OSScanHistory {
    std::optional<OSAtScan> beforeUpdate;
    std::optional<OSAtScan> newest;
    bool operator==(const OSScanHistory&) const = default;
};

// The history once a scan under `os` saw `free`: when the version differs from the newest scan's,
// that scan becomes the one before the update. A scan whose free space or version is unknown
// changes nothing, so that it can neither hide nor fake an update's cost.
OSScanHistory afterScan(OSScanHistory history, const std::string& os, std::int64_t free);

// In the user defaults: "ov.watch.osAtNewestScan", "ov.watch.freeAtNewestScan",
// "ov.watch.osBeforeUpdate", "ov.watch.freeBeforeUpdate". A value of the wrong type is absent.
OSScanHistory storedOSScanHistory();
void storeOSScanHistory(const OSScanHistory& history);

// What a scan of `scope` leaves for the watch when the scope's folder lies on the home's file
// system (the disk the watch is about): its items cache, a trend point and the system version.
// Call it only on this machine.
void rememberScanForWatch(const ScanScope& scope, const std::vector<SpaceItem>& items, std::int64_t free,
                          std::int64_t total, bool onHomeFileSystem, const std::string& os, TimePoint now);

// The regular files under `folder` with their allocated bytes and modification dates: links are not
// followed and the walk stays on the folder's file system. Nothing when it cannot be listed.
std::vector<DownloadEntry> downloadEntries(const std::string& folder, const Facts& facts = Facts::real());

}  // namespace orvane
