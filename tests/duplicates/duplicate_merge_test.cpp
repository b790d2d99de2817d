#include "core/duplicates/duplicate_merge.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "core/common/json_files.hpp"
#include "core/ledger/action_log.hpp"
#include "core/ledger/journals.hpp"
#include "core/ledger/ledger.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

struct LedgerIn {
    explicit LedgerIn(const std::string& folder) { Ledger::setTestDirOverride(folder); }
    ~LedgerIn() { Ledger::setTestDirOverride(std::nullopt); }
};

// Every reason a copy stays as it was, with a stand-in for the kernel so that the rules are
// judged on any file system; the kernel's own answers are tried on real ones elsewhere.
TEST(DuplicateMerge, LeavesAloneWhatItMustAndJournalsTheRest) {
    testing::TempDir dir("/var/tmp");
    const LedgerIn ledger(dir / "ledger");
    const std::string content(9000, 'd');
    const std::string keeper = dir.write("Documents/Taxes/keep.pdf", content);
    const std::string changed = dir.write("changed.pdf", content);
    const std::string isProtected = dir.write("protected.pdf", content);
    const std::string first = dir.write("first.pdf", content);
    const std::string second = dir.write("second.pdf", content);
    const std::string link = dir / "keep-link.pdf";
    ASSERT_EQ(::link(keeper.c_str(), link.c_str()), 0);

    auto group = findDuplicates({dir.path()}, Facts::real(), {{}, {}, 1}).groups.at(0);
    group.keeper = keeper;
    group.copies = {changed, isProtected, first, second, link};
    dir.write("changed.pdf", std::string(9000, 'x'));  // same size, new time

    int tries = 0;
    platform::ShareOutcome answer = platform::ShareOutcome::unsupported;
    MergeFacts facts{Facts::real(),
                     [&](const std::string& path) -> std::optional<std::string> {
                         if (path == isProtected) return "it is protected";
                         return std::nullopt;
                     },
                     [](const std::string&) -> std::optional<std::int64_t> { return std::nullopt; },
                     [&](const std::string&, const std::string& copy, const std::string& working) {
                         ++tries;
                         EXPECT_EQ(working, copy + ".ov-clone-tmp");
                         // The copy is journalled while the kernel works on it.
                         EXPECT_NE(readFile(Ledger::swapJournalPath()).value_or("").find(copy), std::string::npos);
                         return platform::ShareResult{answer, 0};
                     },
                     {}};
    MergeOutcome outcome = mergeDuplicates({group}, facts);
    ASSERT_EQ(outcome.steps.size(), 5u);
    EXPECT_EQ(outcome.steps[0].skipped, "it changed or went away since it was compared");
    EXPECT_EQ(outcome.steps[1].skipped, "it is protected");
    EXPECT_EQ(outcome.steps[2].skipped, outcome.steps[3].skipped);
    EXPECT_TRUE(outcome.steps[2].skipped->starts_with("the file system here"));
    EXPECT_EQ(tries, 1);  // once a file system said no, its other copies are not tried
    EXPECT_TRUE(outcome.steps[4].alreadyShared);
    EXPECT_TRUE(outcome.needed);
    EXPECT_EQ(outcome.copies, 0);

    answer = platform::ShareOutcome::shared;
    group.copies = {first, second, link};
    outcome = mergeDuplicates({group}, facts);
    EXPECT_EQ(outcome.copies, 2);
    EXPECT_EQ(outcome.originals, 1);
    EXPECT_EQ(outcome.bytes, 18000);
    Ledger::flush();
    const auto log = Ledger::tail(10);
    ASSERT_EQ(log.size(), 2u);
    EXPECT_TRUE(log[1].ends_with("] DEDUPE " + second + " now shares storage with " + keeper));
    EXPECT_EQ(readFile(Ledger::swapJournalPath()), R"({"v":1,"data":[]})");

    // The keeper itself changed: nothing of its group is touched.
    dir.write("Documents/Taxes/keep.pdf", std::string(9000, 'k'));
    outcome = mergeDuplicates({group}, facts);
    EXPECT_EQ(outcome.copies, 0);
    EXPECT_EQ(outcome.steps[0].skipped, "the copy kept changed or went away since it was compared");
}

}  // namespace
}  // namespace orvane
