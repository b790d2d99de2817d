// Ledger: the library's one persistent store, a folder of small files behind one serial queue.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/ledger/audit_snapshot.hpp"
#include "core/ledger/duplicates_watch_hit.hpp"
#include "core/ledger/items_cache.hpp"
#include "core/ledger/move_record.hpp"
#include "core/scan/scan_scope.hpp"
#include "core/scan/scan_snapshot.hpp"

// No operation of the ledger throws or reports a failure: a file that cannot be read is empty, and
// a write that fails leaves the old file as it was, so the ledger never stops a clean-up.
namespace orvane::Ledger {

// Format versions of the versioned files. Readers accept any version whose payload fits.
inline constexpr int movesFormatVersion = 1;
inline constexpr int snapshotsFormatVersion = 1;
inline constexpr int dupeWatchFormatVersion = 1;
inline constexpr int trendsFormatVersion = 1;
inline constexpr int compactJournalFormatVersion = 1;
inline constexpr int swapJournalFormatVersion = 1;
inline constexpr int moveJournalFormatVersion = 1;

inline constexpr std::size_t maxSnapshots = 40;
inline constexpr std::size_t maxTrends = 60;
// A trend point closer than this to the last one replaces it.
inline constexpr double trendSpacingSeconds = 21'600;

// Points the whole store, and the Trash of the journals' repairs, at another folder; none goes
// back to the user's. The one process-wide setting of the ledger: set it before the first
// operation (tests, and the command line's --ledger-dir). Thread-safe.
void setTestDirOverride(std::optional<std::string> folder);
std::optional<std::string> testDirOverride();

// The override when set, else "~/Library/Application Support/Velloran Orvane".
std::string dir();

std::string movesPath();
std::string snapshotsPath();
std::string trendsPath();
std::string dupeWatchHitsPath();
// "itemsCache.json" for the startup disk, "itemsCache-<key>.json" for any other scope.
std::string itemsCachePath(const ScanScope& scope);
// "diskTree.json" for the startup disk, "diskTree-<key>.json" for any other scope.
std::string diskTreePath(const ScanScope& scope);

// Every operation below runs on the ledger's queue and returns when its file is on disk (or its
// write failed). None may be called from a task of that queue. Once the ledger is retired the
// reads see an empty store and the writes do nothing.

// Returns once everything queued so far, pending log lines included, has run.
void flush();

std::vector<MoveRecord> loadMoves();
void appendMove(const MoveRecord& record);
// Removes every record with this `dst`.
void removeMove(const std::string& dst);

// Keeps the newest 40.
std::vector<AuditSnapshot> loadSnapshots();
void appendSnapshot(const AuditSnapshot& snapshot);

// A snapshot less than 6 hours after the last one replaces it; the newest 60 are kept.
std::vector<ScanSnapshot> loadTrends();
void appendTrend(const ScanSnapshot& snapshot);

// Replaced whole by every save.
std::vector<DuplicatesWatchHit> loadDupeWatchHits();
void saveDupeWatchHits(const std::vector<DuplicatesWatchHit>& hits);

// Not versioned; none when missing or not decodable. `schema` is not compared with cacheSchema.
void saveItemsCache(const ScanScope& scope, const ItemsCache& cache);
std::optional<ItemsCache> loadItemsCache(const ScanScope& scope);

// Not versioned; an empty tree when missing or not decodable.
void saveDiskTree(const ScanScope& scope, const DiskTree& tree);
DiskTree loadDiskTree(const ScanScope& scope);

// Retires the ledger for the rest of the process and removes its folder with everything in it.
// From then on no writer does anything, so work still in flight cannot bring the folder back.
// True when the folder no longer exists. There is no way back.
bool retireAndWipe();

}  // namespace orvane::Ledger
