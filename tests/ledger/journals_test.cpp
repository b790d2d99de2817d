#include "core/ledger/journals.hpp"

#include <gtest/gtest.h>

#include <regex>

#include "core/common/ov_error.hpp"
#include "core/ledger/internal/journal_entries.hpp"
#include "core/ledger/trash.hpp"
#include "tests/ledger/ledger_fixture.hpp"

namespace orvane {
namespace {

using testing::LedgerFixture;
namespace fs = std::filesystem;

class LedgerJournals : public LedgerFixture {};

MoveRecord record(const std::string& dst, const std::string& title) {
    return {*dateFromReferenceSeconds(1), title, "/Users/a/x", dst, 10, true, std::nullopt};
}

TEST_F(LedgerJournals, CompactEntriesByPath) {
    Ledger::beginCompact("/a/one");
    Ledger::beginCompact("/a/two");
    Ledger::beginCompact("/a/one");
    EXPECT_EQ(ledgerFile("compact-inflight.json"), R"({"v":1,"data":["/a/one","/a/two"]})");
    EXPECT_EQ(Ledger::compactJournalPath(), ledger_ + "/compact-inflight.json");
    Ledger::endCompact("/a/one");
    Ledger::endCompact("/a/none");
    EXPECT_EQ(ledgerFile("compact-inflight.json"), R"({"v":1,"data":["/a/two"]})");
}

TEST_F(LedgerJournals, SwapEntriesByPathAndKind) {
    Ledger::beginSwap("/a/f", InflightKind::compress);
    Ledger::beginSwap("/a/f", InflightKind::compress);
    Ledger::beginSwap("/a/f", InflightKind::dedupe);  // the same path with another kind is another entry
    Ledger::beginSwap("/a/g", InflightKind::dedupe);
    EXPECT_EQ(ledgerFile("swap-inflight.json"),
              R"({"v":1,"data":[{"path":"/a/f","kind":"compress"},{"path":"/a/f","kind":"dedupe"},{"path":"/a/g","kind":"dedupe"}]})");
    Ledger::endSwap("/a/f");  // whatever its kind
    EXPECT_EQ(ledgerFile("swap-inflight.json"), R"({"v":1,"data":[{"path":"/a/g","kind":"dedupe"}]})");
}

TEST_F(LedgerJournals, MoveEntriesByDestination) {
    Ledger::beginMove(record("/V/a", "first"));
    Ledger::beginMove(record("/V/b", "other"));
    Ledger::beginMove(record("/V/a", "second"));  // one entry per dst: the later one, at the end
    auto entries = decodeVersioned<std::vector<MoveRecord>>(ledgerFile("moves-inflight.json"));
    ASSERT_TRUE(entries);
    EXPECT_EQ(*entries, (std::vector<MoveRecord>{record("/V/b", "other"), record("/V/a", "second")}));
    Ledger::endMove("/V/b");
    entries = decodeVersioned<std::vector<MoveRecord>>(ledgerFile("moves-inflight.json"));
    EXPECT_EQ(*entries, (std::vector<MoveRecord>{record("/V/a", "second")}));
    EXPECT_TRUE(ledgerFile("moves-inflight.json").starts_with(R"({"v":1,"data":[{"date":1.0,)"));
}

TEST_F(LedgerJournals, DamagedJournalsCountAsEmpty) {
    putLedgerFile("compact-inflight.json", "{\"v\":1,\"data\":[\"/x\"");
    Ledger::beginCompact("/a");
    EXPECT_EQ(ledgerFile("compact-inflight.json"), R"({"v":1,"data":["/a"]})");
    putLedgerFile("swap-inflight.json", R"([{"path":"/old","kind":"compress"}])");  // bare, from before the wrapper
    Ledger::beginSwap("/new", InflightKind::compress);
    EXPECT_EQ(ledgerFile("swap-inflight.json"),
              R"({"v":1,"data":[{"path":"/old","kind":"compress"},{"path":"/new","kind":"compress"}]})");
}

TEST_F(LedgerJournals, MoveToTrashUsesTheOverridesTrash) {
    put(root_ + "/work/report.pdf", "first");
    put(root_ + "/other/report.pdf", "second");
    fs::create_directories(root_ + "/work/folder/inner");
    EXPECT_EQ(Ledger::moveToTrash(root_ + "/work/report.pdf"), ledger_ + "/Trash/report.pdf");
    EXPECT_EQ(contents(ledger_ + "/Trash/report.pdf"), "first");
    EXPECT_FALSE(present(root_ + "/work/report.pdf"));

    // A name that is taken gets a fresh UUID and a hyphen in front; nothing is replaced.
    const auto second = Ledger::moveToTrash(root_ + "/other/report.pdf");
    EXPECT_TRUE(std::regex_match(second, std::regex(ledger_ + "/Trash/[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}-report\\.pdf")))
        << second;
    EXPECT_EQ(contents(second), "second");
    EXPECT_EQ(contents(ledger_ + "/Trash/report.pdf"), "first");

    EXPECT_EQ(Ledger::moveToTrash(root_ + "/work/folder"), ledger_ + "/Trash/folder");
    EXPECT_TRUE(fs::is_directory(ledger_ + "/Trash/folder/inner"));

    try {
        Ledger::moveToTrash(root_ + "/work/missing");
        ADD_FAILURE() << "a missing item went to the Trash";
    } catch (const OVError& e) {
        EXPECT_EQ(e.msg, "Could not move " + root_ + "/work/missing to the Trash: No such file or directory.");
    }
}

TEST_F(LedgerJournals, ATestProgramNeverUsesTheRealTrash) {
    put(root_ + "/keep", "mine");
    Ledger::setTestDirOverride(std::nullopt);
    try {
        Ledger::moveToTrash(root_ + "/keep");
        ADD_FAILURE() << "moved to the real Trash";
    } catch (const OVError& e) {
        EXPECT_EQ(e.msg, "tests never use the real Trash");
    }
    Ledger::setTestDirOverride(ledger_);
    EXPECT_EQ(contents(root_ + "/keep"), "mine");
    EXPECT_FALSE(present(root_ + "/home/.Trash"));
}

}  // namespace
}  // namespace orvane
