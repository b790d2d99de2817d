#include "core/ledger/ledger.hpp"

#include <algorithm>
#include <filesystem>
#include <mutex>

#include "core/common/path.hpp"
#include "core/ledger/internal/scan_coding.hpp"
#include "core/ledger/internal/store.hpp"

namespace orvane::Ledger {

using namespace ledger::internal;

namespace {

constexpr std::string_view kSnapshotsFile = "snapshots.json";
constexpr std::string_view kTrendsFile = "trends.json";
constexpr std::string_view kDupeWatchHitsFile = "dupe-watch-hits.json";

std::mutex overrideLock;
std::optional<std::string> overrideFolder;

bool isStartupDisk(const ScanScope& scope) { return std::holds_alternative<scope::StartupDisk>(scope.value); }

std::string perScopeName(std::string_view stem, const ScanScope& scope) {
    if (isStartupDisk(scope)) return std::string(stem) + ".json";
    return std::string(stem) + "-" + scope.key() + ".json";
}

}  // namespace

void setTestDirOverride(std::optional<std::string> folder) {
    std::lock_guard guard(overrideLock);
    overrideFolder = std::move(folder);
}

std::optional<std::string> testDirOverride() {
    std::lock_guard guard(overrideLock);
    return overrideFolder;
}

std::string dir() {
    if (auto folder = testDirOverride()) return *folder;
    return home("Library/Application Support/Velloran Orvane");
}

std::string movesPath() { return ledgerFile(kMovesFile); }
std::string snapshotsPath() { return ledgerFile(kSnapshotsFile); }
std::string trendsPath() { return ledgerFile(kTrendsFile); }
std::string dupeWatchHitsPath() { return ledgerFile(kDupeWatchHitsFile); }
std::string itemsCachePath(const ScanScope& scope) { return ledgerFile(perScopeName("itemsCache", scope)); }
std::string diskTreePath(const ScanScope& scope) { return ledgerFile(perScopeName("diskTree", scope)); }

void flush() { ledgerQueue().flush(); }

std::vector<MoveRecord> loadMoves() {
    return ledgerQueue().sync([] { return readVersionedFile<std::vector<MoveRecord>>(kMovesFile); });
}

void appendMove(const MoveRecord& record) {
    ledgerQueue().sync([&] {
        auto moves = readVersionedFile<std::vector<MoveRecord>>(kMovesFile);
        moves.push_back(record);
        writeVersionedFile(kMovesFile, moves, movesFormatVersion);
    });
}

void removeMove(const std::string& dst) {
    ledgerQueue().sync([&] {
        auto moves = readVersionedFile<std::vector<MoveRecord>>(kMovesFile);
        std::erase_if(moves, [&](const MoveRecord& m) { return m.dst == dst; });
        writeVersionedFile(kMovesFile, moves, movesFormatVersion);
    });
}

std::vector<AuditSnapshot> loadSnapshots() {
    return ledgerQueue().sync([] { return readVersionedFile<std::vector<AuditSnapshot>>(kSnapshotsFile); });
}

void appendSnapshot(const AuditSnapshot& snapshot) {
    ledgerQueue().sync([&] {
        auto snapshots = readVersionedFile<std::vector<AuditSnapshot>>(kSnapshotsFile);
        snapshots.push_back(snapshot);
        if (snapshots.size() > maxSnapshots)
            snapshots.erase(snapshots.begin(), snapshots.end() - static_cast<std::ptrdiff_t>(maxSnapshots));
        writeVersionedFile(kSnapshotsFile, snapshots, snapshotsFormatVersion);
    });
}

std::vector<ScanSnapshot> loadTrends() {
    return ledgerQueue().sync([] { return readVersionedFile<std::vector<ScanSnapshot>>(kTrendsFile); });
}

void appendTrend(const ScanSnapshot& snapshot) {
    ledgerQueue().sync([&] {
        auto trends = readVersionedFile<std::vector<ScanSnapshot>>(kTrendsFile);
        const bool tooSoon =
            !trends.empty() && secondsSinceReferenceDate(snapshot.date) -
                                       secondsSinceReferenceDate(trends.back().date) < trendSpacingSeconds;
        if (tooSoon) trends.back() = snapshot;
        else trends.push_back(snapshot);
        if (trends.size() > maxTrends)
            trends.erase(trends.begin(), trends.end() - static_cast<std::ptrdiff_t>(maxTrends));
        writeVersionedFile(kTrendsFile, trends, trendsFormatVersion);
    });
}

std::vector<DuplicatesWatchHit> loadDupeWatchHits() {
    return ledgerQueue().sync(
        [] { return readVersionedFile<std::vector<DuplicatesWatchHit>>(kDupeWatchHitsFile); });
}

void saveDupeWatchHits(const std::vector<DuplicatesWatchHit>& hits) {
    ledgerQueue().sync([&] { writeVersionedFile(kDupeWatchHitsFile, hits, dupeWatchFormatVersion); });
}

void saveItemsCache(const ScanScope& scope, const ItemsCache& cache) {
    ledgerQueue().sync([&] {
        if (auto bytes = dumpCompact(JSONCoding<ItemsCache>::encode(cache)))
            writeLedgerFile(perScopeName("itemsCache", scope), *bytes);
    });
}

std::optional<ItemsCache> loadItemsCache(const ScanScope& scope) {
    return ledgerQueue().sync([&]() -> std::optional<ItemsCache> {
        auto bytes = readLedgerFile(perScopeName("itemsCache", scope));
        if (!bytes) return std::nullopt;
        auto document = parseJSON(*bytes);
        if (!document) return std::nullopt;
        return JSONCoding<ItemsCache>::decode(*document);
    });
}

void saveDiskTree(const ScanScope& scope, const DiskTree& tree) {
    ledgerQueue().sync([&] {
        if (auto bytes = dumpCompact(JSONCoding<DiskTree>::encode(tree)))
            writeLedgerFile(perScopeName("diskTree", scope), *bytes);
    });
}

DiskTree loadDiskTree(const ScanScope& scope) {
    return ledgerQueue().sync([&]() -> DiskTree {
        auto bytes = readLedgerFile(perScopeName("diskTree", scope));
        if (!bytes) return {};
        auto document = parseJSON(*bytes);
        if (!document) return {};
        return JSONCoding<DiskTree>::decode(*document).value_or(DiskTree{});
    });
}

bool retireAndWipe() {
    return ledgerQueue().sync([] {
        std::lock_guard guard(wipeLock());
        markRetired();
        const std::string folder = dir();
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
        return !std::filesystem::exists(std::filesystem::symlink_status(folder, ignored));
    });
}

}  // namespace orvane::Ledger
