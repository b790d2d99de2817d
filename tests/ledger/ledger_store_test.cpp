#include "core/ledger/ledger.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <ctime>
#include <set>
#include <thread>

#include "core/ledger/action_log.hpp"
#include "core/ledger/auto_actions.hpp"
#include "core/ledger/internal/scan_coding.hpp"
#include "tests/ledger/ledger_fixture.hpp"

namespace orvane {
namespace {

using testing::LedgerFixture;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

MoveRecord move(std::string dst, double date = 1000) {
    return {*dateFromReferenceSeconds(date), "Item " + dst, "/Users/a/" + dst, "/Volumes/Drive/" + dst, 2048, true, std::nullopt};
}

std::vector<std::string> dsts(const std::vector<MoveRecord>& moves) {
    std::vector<std::string> out;
    for (const auto& m : moves) out.push_back(m.dst);
    return out;
}

class LedgerStore : public LedgerFixture {};

bool isFIFO(const std::string& path) {
    struct stat facts {};
    return ::lstat(path.c_str(), &facts) == 0 && S_ISFIFO(facts.st_mode);
}

ScanSnapshot trend(double seconds, std::int64_t free) { return {*dateFromReferenceSeconds(seconds), free, 0, {{"Junk", 1}}}; }

TEST_F(LedgerStore, FolderAndPerScopeNames) {
    EXPECT_EQ(Ledger::movesPath(), ledger_ + "/moves.json");
    const ScanScope startup = scope::StartupDisk{};
    const ScanScope folder = scope::Folder{"/Users/a/Projects"};
    EXPECT_EQ(Ledger::itemsCachePath(startup), ledger_ + "/itemsCache.json");
    EXPECT_EQ(Ledger::diskTreePath(startup), ledger_ + "/diskTree.json");
    EXPECT_EQ(Ledger::itemsCachePath(folder), ledger_ + "/itemsCache-" + folder.key() + ".json");
    EXPECT_EQ(Ledger::diskTreePath(folder), ledger_ + "/diskTree-" + folder.key() + ".json");

    Ledger::setTestDirOverride(std::nullopt);
    EXPECT_EQ(Ledger::dir(), root_ + "/home/Library/Application Support/Velloran Orvane");
    Ledger::setTestDirOverride(ledger_);
}

TEST_F(LedgerStore, MovesAppendRemoveAndTheirFileForm) {
    EXPECT_TRUE(Ledger::loadMoves().empty());
    EXPECT_FALSE(present(ledger_));  // reading creates nothing
    Ledger::appendMove(move("a"));
    Ledger::appendMove(move("b"));
    Ledger::appendMove(move("a", 2000));  // the same move again: the ledger keeps what it is given
    EXPECT_EQ(dsts(Ledger::loadMoves()), (std::vector<std::string>{"/Volumes/Drive/a", "/Volumes/Drive/b", "/Volumes/Drive/a"}));
    EXPECT_TRUE(ledgerFile("moves.json").starts_with(R"({"v":1,"data":[{"date":1000.0,"title":"Item a",)")) << ledgerFile("moves.json");
    EXPECT_EQ(ledgerFile("moves.json").find('\n'), std::string::npos);  // compact

    Ledger::removeMove("/Volumes/Drive/a");
    EXPECT_EQ(dsts(Ledger::loadMoves()), (std::vector<std::string>{"/Volumes/Drive/b"}));
    Ledger::removeMove("/Volumes/Drive/none");
    EXPECT_EQ(Ledger::loadMoves().size(), 1u);
    EXPECT_EQ(names(ledger_), (std::vector<std::string>{"moves.json"}));  // no temporary file is left
}

TEST_F(LedgerStore, OldDamagedAndForeignFiles) {
    const std::string record = JSONCoding<MoveRecord>::encode(move("old")).dump();
    struct Case {
        std::string bytes;
        std::size_t readsAs;  // records
    };
    const Case cases[] = {
        {"[" + record + "]", 1},                       // a bare array from before the wrapper
        {R"({"v":99,"data":[]})", 0}, {R"({"v":99,"data":[)" + record + "]}", 1},
        {R"({"v":1,"data":{"dst":"x"}})", 0},          // a payload of another shape
        {R"({"v":1,"data":[{"dst":"x"}]})", 0},
        {R"({"v":1,"data":[)" + record.substr(0, 20), 0},  // torn
        {"", 0},
        {"\x89PNG\r\n", 0},
    };
    for (const auto& c : cases) {
        putLedgerFile("moves.json", c.bytes);
        EXPECT_EQ(Ledger::loadMoves().size(), c.readsAs) << c.bytes;
        Ledger::appendMove(move("new"));
        const auto after = decodeVersioned<std::vector<MoveRecord>>(ledgerFile("moves.json"));
        ASSERT_TRUE(after) << c.bytes;
        EXPECT_EQ(after->size(), c.readsAs + 1) << c.bytes;  // what did not decode is gone
        EXPECT_TRUE(ledgerFile("moves.json").starts_with(R"({"v":1,"data":[)"));  // and the next write wraps
    }
}

TEST_F(LedgerStore, AFIFOInItsPlaceReadsAsEmptyAndIsNeverWaitedOn) {
    fs::create_directories(ledger_);
    for (const char* name : {"actions.log", "moves.json", "user-defaults.json"})
        ASSERT_EQ(::mkfifo((ledger_ + "/" + name).c_str(), 0600), 0) << name;
    EXPECT_TRUE(Ledger::loadMoves().empty());
    EXPECT_TRUE(Ledger::tail(10).empty());
    EXPECT_TRUE(Ledger::actions(std::nullopt).empty());
    EXPECT_TRUE(Ledger::wholeLog().empty());
    EXPECT_EQ(Ledger::purgeLeakedTestLines(), 0);
    Ledger::log("REPAIR nothing");  // no reader: a blocking open would hold the queue for good
    Ledger::flush();
    recordAutoAction("auto");
    EXPECT_TRUE(isFIFO(ledger_ + "/actions.log"));  // a file it cannot read is left as it is
}

TEST_F(LedgerStore, OpeningTheFolderRemovesWhatKilledWritesLeftAndNothingElse) {
    enum Kind { file, folder, link };
    struct Case {
        const char* name;
        Kind kind;
        bool old;  // untouched for an hour
        bool removed;
    } cases[] = {
        {".moves.json.tmp-123", file, true, true},
        {".itemsCache-2f5nyihd5ezxk.json.tmp-4294967295", file, true, true}, {".x.tmp-1.tmp-2", file, true, true},
        {".snapshots.json.tmp-7", file, false, false},  // perhaps another process's write under way
        {"moves.json.tmp-123", file, true, false}, {".moves.json.tmp-", file, true, false},
        {".moves.json.tmp-12x", file, true, false}, {".tmp-12", file, true, false},
        {".trends.json.tmp-9", folder, true, false}, {".trends.json.tmp-8", link, true, false},
        {"moves.json", file, true, false},
    };
    const std::string target = root_ + "/target";
    put(target, "kept");
    for (const auto& c : cases) {
        const std::string path = ledger_ + "/" + c.name;
        if (c.kind == file) putLedgerFile(c.name, "[]");
        if (c.kind == folder) fs::create_directories(path);
        if (c.kind == link) fs::create_symlink(target, path);
        if (c.old) {
            const timespec hourAgo{std::time(nullptr) - 3600, 0};
            const timespec times[2] = {hourAgo, hourAgo};
            ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << c.name;
        }
    }
    EXPECT_TRUE(Ledger::loadMoves().empty());
    for (const auto& c : cases) EXPECT_EQ(present(ledger_ + "/" + c.name), !c.removed) << c.name;
    EXPECT_EQ(contents(target), "kept");
}

TEST_F(LedgerStore, SnapshotsKeepTheNewest40) {
    for (int i = 1; i <= 40; ++i) {
        AuditSnapshot s;
        s.date = *dateFromReferenceSeconds(i);
        s.capacity = i;
        Ledger::appendSnapshot(s);
    }
    auto snapshots = Ledger::loadSnapshots();
    ASSERT_EQ(snapshots.size(), 40u);
    EXPECT_EQ(snapshots.front().capacity, 1);
    AuditSnapshot last;
    last.capacity = 41;
    Ledger::appendSnapshot(last);  // the 41st pushes out the oldest
    snapshots = Ledger::loadSnapshots();
    ASSERT_EQ(snapshots.size(), 40u);
    EXPECT_EQ(snapshots.front().capacity, 2);
    EXPECT_EQ(snapshots.back().capacity, 41);
}

TEST_F(LedgerStore, TrendsAtMostOnePerSixHours) {
    const double sixHours = 6 * 3600;
    Ledger::appendTrend(trend(0, 1));
    Ledger::appendTrend(trend(sixHours - 60, 2));  // 5 h 59 min: replaces
    auto trends = Ledger::loadTrends();
    ASSERT_EQ(trends.size(), 1u);
    EXPECT_EQ(trends[0].free, 2);
    Ledger::appendTrend(trend(2 * sixHours - 60, 3));  // 6 h after the entry that now stands: appended
    trends = Ledger::loadTrends();
    ASSERT_EQ(trends.size(), 2u);
    EXPECT_EQ(trends[1].free, 3);
    EXPECT_EQ(trends[0].free, 2);

    for (int i = 3; i <= 61; ++i) Ledger::appendTrend(trend(i * sixHours, i + 1));
    trends = Ledger::loadTrends();
    ASSERT_EQ(trends.size(), 60u);  // 61 points: the oldest went
    EXPECT_EQ(trends.front().free, 3);
    EXPECT_EQ(trends.back().free, 62);
}

TEST_F(LedgerStore, DupeWatchHitsAreReplacedWhole) {
    DuplicatesWatchHit a{"a", *dateFromReferenceSeconds(1), "/r", "/r/a", {"/x/a"}, 5, false};
    DuplicatesWatchHit b{"b", *dateFromReferenceSeconds(2), "/r", "/r/b", {}, 6, true};
    Ledger::saveDupeWatchHits({a, b});
    EXPECT_EQ(Ledger::loadDupeWatchHits(), (std::vector<DuplicatesWatchHit>{a, b}));
    Ledger::saveDupeWatchHits({b});
    EXPECT_EQ(Ledger::loadDupeWatchHits(), (std::vector<DuplicatesWatchHit>{b}));
    EXPECT_TRUE(ledgerFile("dupe-watch-hits.json").starts_with(R"({"v":1,"data":[{"id":"b",)"));
}

TEST_F(LedgerStore, CachesAndTreesPerScope) {
    const ScanScope startup = scope::StartupDisk{};
    const ScanScope folder = scope::Folder{"/Users/a/Projects"};
    SpaceItem item;
    item.id = "/Users/a/Projects/big";
    item.title = "big";
    item.category = std::string(catBig);
    item.sizeBytes = 77;
    item.lastUsed = *dateFromReferenceSeconds(500);

    EXPECT_EQ(Ledger::loadItemsCache(startup), std::nullopt);
    EXPECT_TRUE(Ledger::loadDiskTree(startup).empty());

    const Ledger::ItemsCache cache{*dateFromReferenceSeconds(9), {item}, 100, 1000, Ledger::cacheSchema};
    Ledger::saveItemsCache(folder, cache);
    EXPECT_EQ(Ledger::loadItemsCache(folder), cache);
    EXPECT_EQ(Ledger::loadItemsCache(startup), std::nullopt);  // each scope has its own file
    EXPECT_TRUE(ledgerFile("itemsCache-" + folder.key() + ".json").starts_with(R"({"date":9.0,"items":[{"id":)"));

    const Ledger::DiskTree tree{{"/Users/a", {item}}, {"/Users/a/Projects", {}}};
    Ledger::saveDiskTree(startup, tree);
    EXPECT_EQ(Ledger::loadDiskTree(startup), tree);
    EXPECT_TRUE(Ledger::loadDiskTree(folder).empty());

    putLedgerFile("itemsCache.json", R"({"v":1,"data":{}})");
    putLedgerFile("diskTree.json", R"({"/Users/a":[{"id":"/x"}]})");
    EXPECT_EQ(Ledger::loadItemsCache(startup), std::nullopt);
    EXPECT_TRUE(Ledger::loadDiskTree(startup).empty());
    putLedgerFile("itemsCache.json", R"({"date":1,"items":[],"free":2,"total":3})");
    EXPECT_EQ(Ledger::loadItemsCache(startup), (Ledger::ItemsCache{*dateFromReferenceSeconds(1), {}, 2, 3, std::nullopt}));
}

TEST_F(LedgerStore, AFailedWriteIsIgnored) {
    // A regular file where the folder should be: every write fails, nothing throws.
    put(root_ + "/blocked", "x");
    Ledger::setTestDirOverride(root_ + "/blocked/ledger");
    EXPECT_NO_THROW({
        Ledger::appendMove(move("a"));
        Ledger::appendSnapshot(AuditSnapshot{});
        Ledger::appendTrend(trend(0, 1));
        Ledger::saveDupeWatchHits({});
        Ledger::saveItemsCache(scope::StartupDisk{}, {});
        Ledger::saveDiskTree(scope::StartupDisk{}, {});
        Ledger::log("MERGED nothing");
        Ledger::flush();
        recordAutoAction("auto");
    });
    EXPECT_TRUE(Ledger::loadMoves().empty());
    EXPECT_TRUE(Ledger::tail(10).empty());
    EXPECT_EQ(contents(root_ + "/blocked"), "x");

    // A file that cannot be replaced keeps its old content.
    Ledger::setTestDirOverride(ledger_);
    Ledger::appendMove(move("kept"));
    if (::geteuid() != 0) {
        fs::permissions(ledger_, fs::perms::owner_read | fs::perms::owner_exec);
        Ledger::appendMove(move("lost"));
        fs::permissions(ledger_, fs::perms::owner_all);
        EXPECT_EQ(dsts(Ledger::loadMoves()), (std::vector<std::string>{"/Volumes/Drive/kept"}));
    }
}

TEST_F(LedgerStore, ConcurrentWritersLoseNothingAndReadersNeverSeeATornFile) {
    constexpr int kThreads = 6, kEach = 15;
    std::atomic<bool> done{false};
    std::atomic<int> tornReads{0}, rawReads{0};
    // Reads the file behind the queue's back, as another process would.
    std::thread reader([&] {
        while (!done) {
            if (auto bytes = readFile(Ledger::movesPath())) {
                ++rawReads;
                if (!decodeVersioned<std::vector<MoveRecord>>(*bytes)) ++tornReads;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    });
    std::vector<std::thread> writers;
    std::atomic<int> shrinking{0};
    for (int t = 0; t < kThreads; ++t) {
        writers.emplace_back([&, t] {
            std::size_t seen = 0;
            for (int i = 0; i < kEach; ++i) {
                const std::string name = std::to_string(t) + "-" + std::to_string(i);
                Ledger::log("MOVED " + name);
                Ledger::appendMove(move(name));
                const auto loaded = Ledger::loadMoves();
                if (loaded.size() < seen) ++shrinking;
                seen = loaded.size();
            }
        });
    }
    for (auto& w : writers) w.join();
    Ledger::flush();
    done = true;
    reader.join();

    EXPECT_EQ(tornReads.load(), 0) << "of " << rawReads.load() << " reads";
    EXPECT_EQ(shrinking.load(), 0);
    const auto moves = Ledger::loadMoves();
    std::set<std::string> unique;
    for (const auto& m : moves) unique.insert(m.dst);
    EXPECT_EQ(moves.size(), std::size_t{kThreads * kEach});
    EXPECT_EQ(unique.size(), std::size_t{kThreads * kEach});
    const auto lines = Ledger::tail(1000);
    EXPECT_EQ(lines.size(), std::size_t{kThreads * kEach});
    for (int t = 0; t < kThreads; ++t)
        for (int i = 0; i < kEach; ++i) {
            const std::string suffix = "] MOVED " + std::to_string(t) + "-" + std::to_string(i);
            EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [&](const std::string& l) { return l.ends_with(suffix); }), 1)
                << suffix;
        }
}

// Retiring lasts for the life of the process, so it runs in a child of its own.
TEST_F(LedgerStore, RetireAndWipeLeavesNoFolderEvenForLateWriters) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Ledger::appendMove(move("a"));
            Ledger::log("MERGED before");
            const bool wiped = Ledger::retireAndWipe();
            Ledger::log("MERGED late");  // work still in flight
            Ledger::appendMove(move("b"));
            Ledger::appendSnapshot(AuditSnapshot{});
            Ledger::appendTrend(trend(0, 1));
            Ledger::saveItemsCache(scope::StartupDisk{}, {});
            recordAutoAction("late");
            Ledger::flush();
            const bool clean = wiped && !present(ledger_) && Ledger::loadMoves().empty() && Ledger::tail(5).empty() &&
                               Ledger::actions(std::nullopt).empty() && Ledger::purgeLeakedTestLines() == 0;
            fs::remove_all(root_);
            std::exit(clean ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orvane
