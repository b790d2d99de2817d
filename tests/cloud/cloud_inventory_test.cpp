#include <gtest/gtest.h>

#include "core/cloud/cloud_inventory.hpp"
#include "core/common/json_files.hpp"

namespace orvane {
namespace {

using std::chrono::milliseconds;

TimePoint at(std::string_view iso) { return *parseISO8601(iso); }

CloudFile file(std::string path, std::int64_t bytes, TimePoint modified, bool onDisk = false, std::int64_t local = 0) {
    return {std::move(path), bytes, modified, onDisk, local};
}

TEST(CloudInventory, StemsLoseEveryCopyMarkInOrder) {
    for (const char* name : {"Copy of Budget.xlsx", "Budget (1).xlsx", "/Drive/budget-macbook.xlsx", "budget copy 2.xlsx",
                             "Budget Copy.xlsx", "copy_of_budget (12).xlsx", "Duplicate of budget_v2.numbers"})
        EXPECT_EQ(CloudInventory::normalisedStem(name), "budget") << name;
    EXPECT_EQ(CloudInventory::normalisedStem("report-final.pdf"), "report");
    EXPECT_EQ(CloudInventory::normalisedStem("Spending.xlsx"), "spending");
    // Each mark is taken once and in order: a second "(1)" under "copy" stays.
    EXPECT_EQ(CloudInventory::normalisedStem("notes (1) copy.txt"), "notes (1)");
    EXPECT_EQ(CloudInventory::normalisedStem("()"), "()");
    EXPECT_EQ(CloudInventory::normalisedStem("photo 2.jpg"), "photo 2");
}

TEST(CloudInventory, GroupsBySizeAndWholeSecondFromOneMillionBytes) {
    const TimePoint t = at("2026-11-23T15:04:05Z");
    const auto groups = CloudInventory::groupProbableDupes(
        {file("/d/small.bin", 999'999, t), file("/d/small copy.bin", 999'999, t),
         file("/d/Budget.xlsx", 1'000'000, t + milliseconds(100)), file("/d/Copy of Budget.xlsx", 1'000'000, t + milliseconds(900)),
         file("/d/off-by-one.bin", 1'000'001, t), file("/d/next-second.bin", 1'000'000, t + milliseconds(1000)),
         file("/a/Movie.mov", 5'000'000, t), file("/b/Film.mov", 5'000'000, t), file("/c/Clip.mov", 5'000'000, t)},
        "GoogleDrive");
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(groups[0].reclaimable(), 10'000'000);
    EXPECT_EQ(groups[0].confidence, DupeConfidence::probable);
    EXPECT_EQ(groups[0].id(), "/a/Movie.mov");  // input order within a group
    EXPECT_EQ(groups[0].provider, "GoogleDrive");
    ASSERT_EQ(groups[1].files.size(), 2u);
    EXPECT_EQ(groups[1].files[0].path, "/d/Budget.xlsx");
    EXPECT_EQ(groups[1].confidence, DupeConfidence::high);

    // Whole seconds are cut toward zero: half a second either side of 1970 is one second.
    const TimePoint epoch{};
    EXPECT_EQ(CloudInventory::groupProbableDupes({file("/x/a", 2'000'000, epoch - milliseconds(500)),
                                                  file("/x/b", 2'000'000, epoch + milliseconds(300))},
                                                 "p")
                  .size(),
              1u);
}

TEST(CloudInventory, SignalsTellTheEvidenceForAndAgainst) {
    setenv("TZ", "UTC", 1);
    tzset();
    CloudDupeGroup group;
    group.files = {file("/Drive/A/Budget.xlsx", 1'500'000, at("2026-11-23T15:04:05Z"), true, 1'500'000),
                   file("/Drive/B/Spending.xlsx", 1'500'000, at("2026-11-23T15:04:05Z"))};
    const std::vector<DupeSignal> expected{
        {"Identical size", true, "All 2 are exactly 1.5 MB — to the byte."},
        {"Identical timestamp", true, "All modified Nov 23, 2026 at 3:04 PM."},
        {"Names differ", false,
         "These are named differently, so they could be genuinely different files that happen to share a size and "
         "timestamp — or the same file deliberately renamed."},
        {"Different folders", false,
         "Spread across 2 folders. That is often a deliberate second copy kept somewhere safe, so think before "
         "removing one."},
        {"Downloaded here", true,
         "1 of 2 also occupy space on this Mac, so removing them frees both the plan and this disk."},
        {"Contents not compared", false,
         "Proving these identical means downloading 3 MB. Velloran Orvane will not do that behind your back, so the "
         "last step of the judgement is yours."}};
    EXPECT_EQ(group.signals(), expected);

    group.files[1].path = "/Drive/A/Copy of Budget.xlsx";
    group.files[0].onDisk = false;
    const auto same = group.signals();
    ASSERT_EQ(same.size(), 5u);  // nothing downloaded: no such line
    EXPECT_EQ(same[2].label, "Names match");
    EXPECT_EQ(same[3].label, "Same folder");
    EXPECT_FALSE(same[4].agrees);

    const CloudDupeGroup empty;
    EXPECT_EQ(empty.reclaimable(), 0);
    EXPECT_EQ(empty.signals()[1].detail, "All modified at the same moment.");
    EXPECT_NE(empty.id(), empty.id());  // a fresh identity each time, never a shared one
    CloudDupeGroup negative;
    negative.files = {file("/a", -1, {}), file("/b", -1, {})};
    EXPECT_EQ(negative.signals()[0].detail, "All 2 are exactly … — to the byte.");
}

TEST(CloudInventory, OutcomesCreditOnlyWhatCameBack) {
    CloudActionOutcome outcome;
    outcome.creditDelete(file("/cloud-only", 7'000'000, {}), true);
    outcome.creditDelete(file("/here", 3'000'000, {}, true, 2'000'000), true);
    outcome.creditDelete(file("/here too", 1'000'000, {}, true, 1'000'000), false);
    outcome.creditRelease(file("/released", 5'000'000, {}, true, 4'000'000));
    EXPECT_EQ(outcome.cloudFreed, 11'000'000);
    EXPECT_EQ(outcome.localTrashHeld, 2'000'000);
    EXPECT_EQ(outcome.localFreed, 5'000'000);
    EXPECT_EQ(outcome.done, 4);
}

TEST(CloudInventory, UnreadableDatesAreTheDistantPast) {
    const TimePoint distantPast = Clock::from_time_t(kEarliestDateUnixSeconds);
    for (std::optional<std::string_view> text : {std::optional<std::string_view>{}, std::optional<std::string_view>{""},
                                                 std::optional<std::string_view>{"yesterday"},
                                                 std::optional<std::string_view>{"2026-13-01T00:00:00Z"}})
        EXPECT_EQ(parseCloudDate(text), distantPast);
    EXPECT_EQ(parseCloudDate("2026-11-23T15:04:05.250Z"), at("2026-11-23T15:04:05Z") + milliseconds(250));
    EXPECT_EQ(parseCloudDate("2026-11-23T15:04:05Z"), at("2026-11-23T15:04:05Z"));
}

}  // namespace
}  // namespace orvane
