// The ledger's costs that grow with what it holds: appending to a long move list, reading the
// log's recent window as the log grows, and loading a scan's items cache.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "core/common/json_files.hpp"
#include "core/ledger/action_log.hpp"
#include "core/ledger/ledger.hpp"

namespace {

namespace fs = std::filesystem;
using namespace orvane;

// A ledger folder of its own for the whole run, removed at the end.
struct BenchLedger {
    std::string root;
    BenchLedger() {
        char pattern[] = "/tmp/orvane-ledger-bench-XXXXXX";
        root = ::mkdtemp(pattern);
        Ledger::setTestDirOverride(root + "/ledger");
        fs::create_directories(root + "/ledger");
    }
    ~BenchLedger() { fs::remove_all(root); }
    void fresh() {
        fs::remove_all(root + "/ledger");
        fs::create_directories(root + "/ledger");
    }
};
BenchLedger& ledger() {
    static BenchLedger instance;
    return instance;
}

MoveRecord move(long i) {
    const std::string name = "Item " + std::to_string(i);
    return {Clock::now(), name, "/Users/a/Library/Application Support/" + name, "/Volumes/Drive/Orvane/" + name,
            1'000'000 + i, true, std::nullopt};
}

void BM_AppendMoveTo10000(benchmark::State& state) {
    ledger().fresh();
    std::vector<MoveRecord> moves;
    for (long i = 0; i < 10'000; ++i) moves.push_back(move(i));
    std::ofstream(Ledger::movesPath()) << *encodeVersioned(moves, Ledger::movesFormatVersion);
    long i = 10'000;
    for (auto _ : state) Ledger::appendMove(move(i++));
    state.counters["recordsAtEnd"] = static_cast<double>(i);
}
BENCHMARK(BM_AppendMoveTo10000)->Unit(benchmark::kMillisecond)->Iterations(50)->UseRealTime();

// The parts of one append, without the queue: decoding and encoding the list, and the write.
void BM_DecodeMoves10000(benchmark::State& state) {
    std::vector<MoveRecord> moves;
    for (long i = 0; i < 10'000; ++i) moves.push_back(move(i));
    const auto bytes = *encodeVersioned(moves, Ledger::movesFormatVersion);
    for (auto _ : state) benchmark::DoNotOptimize(decodeVersioned<std::vector<MoveRecord>>(bytes));
    state.counters["fileBytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(BM_DecodeMoves10000)->Unit(benchmark::kMillisecond);

void BM_EncodeMoves10000(benchmark::State& state) {
    std::vector<MoveRecord> moves;
    for (long i = 0; i < 10'000; ++i) moves.push_back(move(i));
    for (auto _ : state) benchmark::DoNotOptimize(encodeVersioned(moves, Ledger::movesFormatVersion));
}
BENCHMARK(BM_EncodeMoves10000)->Unit(benchmark::kMillisecond);

void BM_WriteAtomically2MB(benchmark::State& state) {
    ledger().fresh();
    const std::string bytes(2'000'000, 'x');
    for (auto _ : state) writeFileAtomically(ledger().root + "/ledger/blob", bytes);
}
BENCHMARK(BM_WriteAtomically2MB)->Unit(benchmark::kMillisecond)->UseRealTime();

// The log's size in bytes is the argument; the window read must not grow with it.
void BM_ActionsSince(benchmark::State& state) {
    ledger().fresh();
    const auto size = static_cast<std::size_t>(state.range(0));
    std::string log;
    const TimePoint start = *parseISO8601("2026-01-01T00:00:00Z");
    for (long i = 0; log.size() < size; ++i)
        log += "[" + iso8601(start + std::chrono::seconds(i)) + "] DEDUPE /Users/a/Pictures/copy-" + std::to_string(i) +
               ".jpg merged into its original\n";
    std::ofstream(Ledger::logPath()) << log;
    const auto since = start + std::chrono::hours(24 * 365);  // later than every line: all are parsed, none kept
    for (auto _ : state) benchmark::DoNotOptimize(Ledger::actions(since));
}
BENCHMARK(BM_ActionsSince)->Arg(100'000)->Arg(500'000)->Arg(2'000'000)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_LoadItemsCache600(benchmark::State& state) {
    ledger().fresh();
    Ledger::ItemsCache cache;
    cache.date = Clock::now();
    cache.free = 100'000'000'000;
    cache.total = 500'000'000'000;
    cache.schema = Ledger::cacheSchema;
    for (int i = 0; i < 600; ++i) {
        SpaceItem item;
        item.id = "/Users/a/Library/Caches/com.vendor.app" + std::to_string(i);
        item.title = "Vendor App " + std::to_string(i);
        item.category = std::string(catDev);
        item.safety = Safety::safe;
        item.suggested = Suggested::delete_;
        item.note = "Rebuilds itself the next time the app runs.";
        item.isDir = true;
        item.sizeBytes = 1'000'000 + i;
        item.lastUsed = Clock::now();
        cache.items.push_back(std::move(item));
    }
    const ScanScope startup = scope::StartupDisk{};
    Ledger::saveItemsCache(startup, cache);
    for (auto _ : state) benchmark::DoNotOptimize(Ledger::loadItemsCache(startup));
}
BENCHMARK(BM_LoadItemsCache600)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
