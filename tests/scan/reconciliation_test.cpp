#include "core/scan/reconciliation.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include "core/common/byte_counts.hpp"
#include "tests/scan/item_at.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using testing::at;

// A real tree: what is there is judged by the disk, and pruned groups are measured by du.
TEST(Reconciliation, AgainstARealTree) {
    testing::TempDir dir;
    const std::string kept = dir.write("kept", std::string(8192, 'k'));
    const std::string gone = dir / "gone";
    const std::string dangling = dir / "dangling";
    ASSERT_EQ(::symlink((dir / "nowhere").c_str(), dangling.c_str()), 0);
    const std::string other = dir.write("other", std::string(8192, 'o'));

    SpaceItem dated = at("group:three", 300, {kept, gone, dir / "gone2"});
    dated.title = "Old installers (3 items)";
    dated.lastUsed = Clock::from_time_t(1'700'000'000);
    SpaceItem whole = at("group:whole", 10, {kept, other});
    whole.lastUsed = dated.lastUsed;
    const std::vector<SpaceItem> items = {
        at(kept), at(gone, -1), at(dangling),
        at("group:x", 7, {gone, dir / "gone2"}),  // every member gone
        dated, whole,
        at("group:words", 5, {"alpha", "beta"}),  // never looked up
        at("pseudo"),                            // nothing to test
        at(gone + "-too", 40),
    };
    const Reconciliation r = reconcileWithDisk(items);

    std::vector<std::string> present, vanished;
    for (const auto& item : r.present) present.push_back(item.id);
    for (const auto& item : r.vanished) vanished.push_back(item.id);
    EXPECT_EQ(present, (std::vector<std::string>{kept, dangling, "group:three", "group:whole", "group:words", "pseudo"}));
    EXPECT_EQ(vanished, (std::vector<std::string>{gone, "group:x", gone + "-too"}));
    EXPECT_EQ(r.vanished[1], items[3]) << "a vanished group keeps its members";
    EXPECT_EQ(r.lostBytes(), 47) << "an unknown size adds nothing";

    const SpaceItem& pruned = r.present[2];
    EXPECT_EQ(pruned.title, "Old installers (1 item)");
    EXPECT_EQ(pruned.extra, std::vector<std::string>{kept});
    EXPECT_EQ(pruned.sizeBytes, 8192) << "measured by du";
    EXPECT_FALSE(pruned.lastUsed);
    EXPECT_EQ(r.present[3], whole) << "a group that lost nothing keeps its date";

    // Members du cannot measure: the old size in proportion, truncated.
    EXPECT_EQ(prunedRollup(at("g", 300, {"/a", "/b", "/c"}), {dir / "no1", dir / "no2"}).sizeBytes, 200);
    EXPECT_EQ(prunedRollup(at("g", 301, {"/a", "/b", "/c"}), {dir / "no1"}).sizeBytes, 100);
    EXPECT_EQ(prunedRollup(at("g", -5, {"/a", "/b"}), {dir / "no1"}).sizeBytes, 0);
    EXPECT_EQ(prunedRollup(at("g", 300, {"/a"}), {}).sizeBytes, 0);

    Reconciliation huge;
    huge.vanished = {at("/a", kMaxByteCount), at("/b", kMaxByteCount)};
    EXPECT_EQ(huge.lostBytes(), -1) << "a damaged cache cannot abort the sum";
}

TEST(Reconciliation, SelectionTitlesAndWords) {
    SpaceItem noted = at("/n", 5);
    SpaceItem renoted = noted;
    renoted.note = "changed";
    renoted.title = "other";
    EXPECT_EQ(prunedSelection({"/grew", "/n", "/lost", "g", "/gone"},
                              {at("/grew", 100), noted, at("g", 3, {"/a", "/b"}), at("/gone")},
                              {at("/grew", 101), renoted, at("g", 3, {"/b", "/a"}), at("/new")}),
              std::set<std::string>{"/n"});

    const std::pair<const char*, const char*> titles[] = {
        {"Downloads (3 items)", "Downloads (1 item)"}, {"Report (final)", "Report (final)"},
        {"(3 items)", "(3 items)"},                    {"Foo (three items)", "Foo (three items)"},
        {"Foo (3 files)", "Foo (3 files)"},            {"A (b) (12  items)", "A (b) (1 item)"},
        {"Foo (3 items) x", "Foo (3 items) x"},         {"Foo (-2 item)", "Foo (1 item)"},
    };
    for (const auto& [title, expected] : titles) EXPECT_EQ(rollupTitle(title, 1), expected) << title;
    EXPECT_EQ(rollupTitle("Foo (1 item)", 0), "Foo (0 items)");
    EXPECT_EQ(rollupMembersLine(0), "0 items — press ⓘ to see them");
    EXPECT_EQ(rollupMembersLine(1), "1 item — press ⓘ to see it");

    const std::vector<KeptMember> one = {{"/Users/a/x/File.dmg", "in use"}};
    const RollupOutcome trashed = rollupOutcome("group:dl", "Installers (9 items)", 4, 3, one, false, "/Users/a");
    EXPECT_EQ(trashed.ledger, (std::vector<std::string>{"ROLLUP group:dl 3 of 4 moved to the Trash, 1 kept",
                                                        "KEPT /Users/a/x/File.dmg — in use"}));
    EXPECT_EQ(trashed.report,
              (std::vector<std::string>{"✓ Installers (4 items): 3 of 4 moved to the Trash — recoverable until you empty it",
                                        "• Installers (4 items): 1 item couldn't be moved and stays listed:",
                                        "    File.dmg — in use (~/x/File.dmg)"}));
    EXPECT_EQ(trashed.keptSummary, "Installers (4 items): 1 item couldn't be moved to the Trash: File.dmg. It stays in Leftovers.");

    std::vector<KeptMember> four = {{"/p/a", "r"}, {"/p/b", "r"}, {"/p/c", "r"}};
    EXPECT_EQ(rollupOutcome("g", "T", 3, 0, four, true, "").keptSummary,
              "T: 3 items couldn't be removed: a, b, c. They stay in Leftovers.");
    four.push_back({"/p/d", "r"});
    const RollupOutcome removed = rollupOutcome("g", "T", 4, 0, four, true, "");
    EXPECT_EQ(removed.report.front(), "✓ T: 0 of 4 removed — space freed");
    EXPECT_EQ(removed.keptSummary, "T: 4 items couldn't be removed: a, b, c and 1 more. They stay in Leftovers.");
    EXPECT_EQ(rollupOutcome("g", "T", 2, 2, {}, true, "/h").report.size(), 1u);
    EXPECT_FALSE(rollupOutcome("g", "T", 2, 2, {}, true, "/h").keptSummary);
}

TEST(Reconciliation, CloudOnlyFilesAndCredits) {
    auto st = [](std::int64_t size, std::int64_t allocated, std::uint32_t flags = 0) {
        platform::FileFacts facts;
        facts.size = size;
        facts.allocatedBytes = allocated;
        facts.flags = flags;
        return facts;
    };
    const std::string cloud = "/Users/a/Library/CloudStorage/Drive/f";
    int asked = 0;
    auto ubiquitous = [&asked] { return ++asked > 0; };
    struct Case {
        platform::FileFacts st;
        std::string path;
        bool expected;
    };
    const Case cases[] = {
        {st(10'000, 512), cloud, true},
        {st(10'000, 512), "/Users/a/Library/Mobile Documents/x", true},
        {st(5'120, 512), cloud, false},  // 512 is not below 512
        {st(0, 0), cloud, false},
        {st(10'000, 0, platform::kFlagCompressed), cloud, false},
        {st(10'000, 512), "/Users/a/Library/CloudStorageX/f", true},  // asked: not a provider folder
        {st(10'000, 512), "/Users/ab/Library/CloudStorage/f", true},
    };
    for (const auto& c : cases) EXPECT_EQ(isCloudOnlyFile(c.st, c.path, ubiquitous, "/Users/a"), c.expected) << c.path;
    EXPECT_EQ(asked, 2) << "the slow question only when nothing else decides";
    EXPECT_FALSE(isCloudProviderPath("/Users/ab/Library/CloudStorage/f", "/Users/a"));

    EXPECT_EQ(claimEvictionCredit("/a", {"/x", "/a"}, 5), std::nullopt);
    EXPECT_EQ(claimEvictionCredit("/c", {"/a", "/b"}, 2), (std::vector<std::string>{"/b", "/c"}));
    EXPECT_EQ(claimEvictionCredit("/c", {"/a"}, 0), std::vector<std::string>{});
    EXPECT_EQ(releaseEvictionCredit("/a", {"/a", "/b", "/a"}), std::vector<std::string>{"/b"});
}

}  // namespace
}  // namespace orvane
