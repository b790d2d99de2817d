#include "core/ledger/repair.hpp"

#include <gtest/gtest.h>

#include "core/ledger/action_log.hpp"
#include "core/ledger/journals.hpp"
#include "tests/ledger/ledger_fixture.hpp"

namespace orvane {
namespace {

using testing::LedgerFixture;
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
constexpr std::string_view kEmptyJournal = R"({"v":1,"data":[]})";

class LedgerRepair : public LedgerFixture {
  protected:
    // A fresh ledger and folder per row of a table.
    std::string freshCase(const std::string& name) {
        const std::string folder = root_ + "/" + name;
        fs::create_directories(folder);
        ledger_ = folder + "/ledger";
        Ledger::setTestDirOverride(ledger_);
        return folder;
    }
    Lines repairLines() {
        Ledger::flush();
        Lines lines;
        for (const auto& line : Ledger::tail(100)) lines.push_back(line.substr(line.find("] ") + 2));
        return lines;
    }
    void runSwapStates(InflightKind kind);
    static Lines prefixed(const Lines& messages) {
        Lines out;
        for (const auto& m : messages) out.push_back("REPAIR " + m);
        return out;
    }
};

// The states of a compaction or compression, as the disk shows them, and where repair leads.
struct SwapState {
    std::string name;
    bool file, backup, tmp;
    bool fileIsDanglingLink = false;
    std::string message;  // after "report.pdf: "; empty for none
    std::string fileAfter;
    bool backupStays = false;
};

const SwapState kSwapStates[] = {
    {"started with a working file", true, false, true, false, "leftover working copy removed", "OLD"},
    {"started, nothing written yet", true, false, false, false, "", "OLD"},
    {"idle and gone", false, false, false, false, "", "<missing>"},
    {"moved aside", false, true, true, false, "restored after an interrupted compression", "OLD"},
    {"moved aside, nothing written yet", false, true, false, false, "restored after an interrupted compression", "OLD"},
    {"swapped", true, true, false, false, "compression finished, leftover backup removed", "NEW"},
    {"swapped, working file left", true, true, true, false, "compression finished, leftover backup removed", "NEW"},
    {"moved aside, but a link stands in the way", false, true, true, true, "could not be restored automatically", "<missing>", true},
};

void LedgerRepair::runSwapStates(InflightKind kind) {
    const bool compact = kind == InflightKind::compact;
    const std::string backupSuffix(compact ? Ledger::compactBackupSuffix : Ledger::compressBackupSuffix);
    const std::string tmpSuffix(compact ? Ledger::compactTmpSuffix : Ledger::compressTmpSuffix);
    int n = 0;
    for (const auto& s : kSwapStates) {
        SCOPED_TRACE(std::string(rawValue(kind)) + ": " + s.name);
        const std::string folder = freshCase(std::string(rawValue(kind)) + std::to_string(n++));
        const std::string path = folder + "/docs/report.pdf";
        const std::string backup = path + backupSuffix;
        fs::create_directories(folder + "/docs");
        if (s.file) put(path, "NEW");
        if (s.fileIsDanglingLink) fs::create_symlink(folder + "/nowhere", path);
        if (s.backup) put(backup, "OLD");
        if (s.file && !s.backup) put(path, "OLD");
        if (s.tmp) {
            put(path + tmpSuffix, "TMP");
            fs::create_directories(path + tmpSuffix + "-dir/inner");
        }
        put(folder + "/docs/report.pdf.other", "keep");            // not a working file
        put(folder + "/docs/other.pdf" + tmpSuffix, "keep");       // another file's
        if (compact) Ledger::beginCompact(path);
        else Ledger::beginSwap(path, kind);

        const auto messages = compact ? Ledger::repairInterruptedCompacts() : Ledger::repairInterruptedSwaps();
        Lines expected;
        if (s.message == "could not be restored automatically")
            expected.push_back("report.pdf: could not be restored automatically \u2014 the original is at " + backup);
        else if (!s.message.empty())
            expected.push_back("report.pdf: " + s.message);
        EXPECT_EQ(messages, expected);
        EXPECT_EQ(repairLines(), prefixed(expected));

        EXPECT_EQ(contents(path), s.fileAfter);
        EXPECT_EQ(present(backup), s.backupStays);
        if (s.backupStays) {
            EXPECT_EQ(contents(backup), "OLD");
        }
        EXPECT_FALSE(present(path + tmpSuffix));
        EXPECT_FALSE(present(path + tmpSuffix + "-dir"));
        EXPECT_EQ(contents(folder + "/docs/report.pdf.other"), "keep");
        EXPECT_EQ(contents(folder + "/docs/other.pdf" + tmpSuffix), "keep");
        // Compaction deletes its backup; compression sends it to the Trash.
        const bool backupDisposed = s.file && s.backup;
        EXPECT_EQ(contents(ledger_ + "/Trash/report.pdf" + backupSuffix),
                  backupDisposed && !compact ? "OLD" : "<missing>");
        EXPECT_EQ(ledgerFile(compact ? "compact-inflight.json" : "swap-inflight.json"), kEmptyJournal);
        if (s.fileIsDanglingLink) {
            EXPECT_TRUE(isLink(path));
        }
    }
}

TEST_F(LedgerRepair, EveryStateOfACompaction) { runSwapStates(InflightKind::compact); }
TEST_F(LedgerRepair, EveryStateOfACompression) { runSwapStates(InflightKind::compress); }

TEST_F(LedgerRepair, InPlaceSwapWhenTheTrashRefusesKeepsTheBackup) {
    put(root_ + "/f", "NEW");
    put(root_ + "/f.ov-compress-orig", "OLD");
    put(ledger_ + "/Trash", "a file where the Trash should be");
    EXPECT_EQ(Ledger::repairInPlaceSwap(root_ + "/f", ".ov-compress-orig", ".ov-compress-tmp", true),
              std::optional<std::string>("f: compression finished, leftover backup removed"));
    EXPECT_EQ(contents(root_ + "/f.ov-compress-orig"), "OLD");  // the failure is ignored, nothing is lost
}

TEST_F(LedgerRepair, SwapJournalDedupeAndUnexpectedKinds) {
    const std::string a = root_ + "/a.bin", b = root_ + "/b.bin", c = root_ + "/c.bin", d = root_ + "/d.bin";
    put(a, "A");
    put(a + ".ov-clone-tmp", "clone");
    put(b, "B");  // no clone was made yet
    put(c, "C");
    fs::create_symlink(root_ + "/nowhere", c + ".ov-clone-tmp");  // a dangling link is an entry too
    put(d + ".ov-compress-orig", "never touched for a kind that does not belong here");
    Ledger::beginSwap(a, InflightKind::dedupe);
    Ledger::beginSwap(b, InflightKind::dedupe);
    Ledger::beginSwap(c, InflightKind::dedupe);
    Ledger::beginSwap(d, InflightKind::move);
    Ledger::beginSwap(d, InflightKind::compact);

    const Lines expected = {"a.bin: leftover clone copy removed", "c.bin: leftover clone copy removed"};
    EXPECT_EQ(Ledger::repairInterruptedSwaps(), expected);
    EXPECT_EQ(repairLines(), prefixed(expected));
    EXPECT_EQ(contents(a), "A");
    EXPECT_FALSE(present(a + ".ov-clone-tmp"));
    EXPECT_FALSE(present(c + ".ov-clone-tmp"));
    EXPECT_EQ(contents(d + ".ov-compress-orig"), "never touched for a kind that does not belong here");
    EXPECT_EQ(ledgerFile("swap-inflight.json"), kEmptyJournal);
}

TEST_F(LedgerRepair, RelativePathsAreNeverActedOn) {
    // Working names in the folder this process runs in: a relative entry must not reach them.
    const auto here = fs::current_path();
    fs::current_path(root_);
    put(root_ + "/x.ov-compact-tmp", "not ours to sweep");
    put(root_ + "/x.ov-clone-tmp", "not ours either");
    put(root_ + "/src/file", "original");
    put(root_ + "/dst/file", "copy");
    Ledger::beginCompact("x");
    Ledger::beginSwap("x", InflightKind::dedupe);
    Ledger::beginMove({*dateFromReferenceSeconds(1), "t", "src", "dst", 1, true, {}});
    EXPECT_EQ(Ledger::repairInterrupted(), Lines{});
    fs::current_path(here);
    EXPECT_EQ(contents(root_ + "/x.ov-compact-tmp"), "not ours to sweep");
    EXPECT_EQ(contents(root_ + "/x.ov-clone-tmp"), "not ours either");
    EXPECT_EQ(contents(root_ + "/src/file"), "original");
    EXPECT_TRUE(Ledger::loadMoves().empty());
    EXPECT_EQ(ledgerFile("moves-inflight.json"), kEmptyJournal);
}

TEST_F(LedgerRepair, EmptyOrDamagedJournalsAreLeftAlone) {
    const std::pair<std::string, std::string> journals[] = {
        {"compact-inflight.json", "[]"}, {"swap-inflight.json", R"({"v":1,"data":[]})"}, {"moves-inflight.json", "{torn"}};
    for (const auto& [name, bytes] : journals) putLedgerFile(name, bytes);
    EXPECT_EQ(Ledger::repairInterrupted(), Lines{});
    for (const auto& [name, bytes] : journals) EXPECT_EQ(ledgerFile(name), bytes) << name;
    fs::remove_all(ledger_);
    EXPECT_EQ(Ledger::repairInterrupted(), Lines{});
    EXPECT_FALSE(present(ledger_));
}

// The states of a move, as the disk shows them, and where repair leads.
struct MoveState {
    std::string name;
    enum Source { original, absent, link, parentMissing } source;
    bool copyThere = true;
    bool symlinked = true;
    std::optional<bool> adminScope;
    bool alreadyRecorded = false;
    bool trashRefuses = false;
    std::string message;  // with SRC, DST and TITLE standing for the record's fields
    bool entryKept = false;
    bool recorded = true;
    std::string sourceAfter;  // "original", "link", "absent"
    bool sourceInTrash = false;
};

const MoveState kMoveStates[] = {
    {"copied", MoveState::original, true, true, {}, false, false,
     "Recovered interrupted move of TITLE \u2014 SRC now points at DST; any leftover partial went to the Trash.",
     false, true, "link", true},
    {"source gone", MoveState::absent, true, true, {}, false, false,
     "Recovered interrupted move of TITLE \u2014 SRC now points at DST; any leftover partial went to the Trash.",
     false, true, "link"},
    {"linked", MoveState::link, true, true, false, false, false,
     "Recovered interrupted move of TITLE \u2014 SRC now points at DST; any leftover partial went to the Trash.",
     false, true, "link"},
    {"recorded", MoveState::link, true, true, {}, true, false,
     "Recovered interrupted move of TITLE \u2014 SRC now points at DST; any leftover partial went to the Trash.",
     false, true, "link"},
    {"copied, no shortcut wanted", MoveState::original, true, false, {}, false, false,
     "Recovered interrupted move of TITLE \u2014 the verified copy is at DST; any leftover partial went to the Trash.",
     false, true, "absent", true},
    {"drive away", MoveState::original, false, true, {}, false, false,
     "Move of TITLE is pending \u2014 the drive holding its copy at DST isn't connected; reconnect it and relaunch to finish.",
     true, false, "original"},
    {"drive away, linked", MoveState::link, false, true, true, false, false,
     "Move of TITLE is pending \u2014 the drive holding its copy at DST isn't connected; reconnect it and relaunch to finish.",
     true, false, "link"},
    {"Trash refuses", MoveState::original, true, true, {}, false, true,
     "Move of TITLE is still unfinished \u2014 the leftover at SRC could not be moved to the Trash. The verified copy is "
     "safe at DST; relaunch to retry.",
     true, false, "original"},
    {"shortcut cannot be made", MoveState::parentMissing, true, true, {}, false, false,
     "The copy of TITLE is safe at DST, but the shortcut at SRC could not be created; relaunch to retry.",
     true, false, "absent"},
    {"admin, source intact", MoveState::original, true, true, true, false, false,
     "The move of TITLE didn't finish \u2014 your original is still at SRC, and an unused copy remains at DST; remove it "
     "when convenient.",
     false, false, "original"},
    {"admin, linked", MoveState::link, true, true, true, false, false,
     "Recovered interrupted move of TITLE \u2014 the verified copy is at DST.", false, true, "link"},
    {"admin, source gone", MoveState::absent, true, true, true, true, false,
     "Recovered interrupted move of TITLE \u2014 the verified copy is at DST.", false, true, "absent"},
};

std::string replaced(std::string text, const MoveRecord& r) {
    for (const auto& [key, value] : {std::pair<std::string, std::string>{"TITLE", r.title}, {"SRC", r.src}, {"DST", r.dst}})
        for (auto at = text.find(key); at != std::string::npos; at = text.find(key, at + value.size()))
            text.replace(at, key.size(), value);
    return text;
}

TEST_F(LedgerRepair, EveryStateOfAMove) {
    int n = 0;
    for (const auto& s : kMoveStates) {
        SCOPED_TRACE(s.name);
        const std::string folder = freshCase("move" + std::to_string(n++));
        MoveRecord r{*dateFromReferenceSeconds(50), "Photos Library", folder + "/home/Pictures/Photos Library",
                     folder + "/Drive/Photos Library", 4096, s.symlinked, s.adminScope};
        if (s.source == MoveState::parentMissing) r.src = folder + "/gone/Photos Library";
        fs::create_directories(folder + "/home/Pictures");
        if (s.copyThere) put(r.dst + "/db", "copy");  // otherwise the drive folder is absent
        if (s.source == MoveState::original) put(r.src + "/db", "original");
        if (s.source == MoveState::link) fs::create_symlink(r.dst, r.src);
        if (s.trashRefuses) put(ledger_ + "/Trash", "a file where the Trash should be");
        if (s.alreadyRecorded) Ledger::appendMove(r);
        Ledger::beginMove(r);

        const Lines expected = {replaced(s.message, r)};
        EXPECT_EQ(Ledger::repairInterruptedMoves(), expected);
        EXPECT_EQ(repairLines(), prefixed(expected));

        const auto journal = decodeVersioned<std::vector<MoveRecord>>(ledgerFile("moves-inflight.json"));
        ASSERT_TRUE(journal);
        EXPECT_EQ(*journal, s.entryKept ? std::vector<MoveRecord>{r} : std::vector<MoveRecord>{});
        const auto moves = Ledger::loadMoves();
        EXPECT_EQ(moves, s.recorded ? std::vector<MoveRecord>{r} : std::vector<MoveRecord>{});  // never a second record

        if (s.sourceAfter == "link") {
            EXPECT_TRUE(isLink(r.src));
            EXPECT_EQ(linkTarget(r.src), r.dst);
        } else if (s.sourceAfter == "original") {
            EXPECT_EQ(contents(r.src + "/db"), "original");
        } else {
            EXPECT_FALSE(present(r.src));
        }
        EXPECT_EQ(contents(ledger_ + "/Trash/Photos Library/db"), s.sourceInTrash ? "original" : "<missing>");
        if (s.copyThere) {
            EXPECT_EQ(contents(r.dst + "/db"), "copy");
        }

        // The next launch: an entry that was kept comes back with the same words; the rest is done.
        const auto again = Ledger::repairInterruptedMoves();
        EXPECT_EQ(again, s.entryKept ? expected : Lines{});
        EXPECT_EQ(Ledger::loadMoves().size(), moves.size());
    }
}

TEST_F(LedgerRepair, ADriveThatComesBackFinishesTheMove) {
    MoveRecord r{*dateFromReferenceSeconds(1), "Movies", root_ + "/home/Movies", root_ + "/Drive/Movies", 1, true, {}};
    put(r.src + "/film", "original");
    Ledger::beginMove(r);
    EXPECT_EQ(Ledger::repairInterruptedMoves().size(), 1u);
    EXPECT_EQ(Ledger::repairInterruptedMoves().size(), 1u);
    put(r.dst + "/film", "copy");  // the drive is back
    EXPECT_EQ(Ledger::repairInterruptedMoves(),
              Lines{"Recovered interrupted move of Movies \u2014 " + r.src + " now points at " + r.dst +
                    "; any leftover partial went to the Trash."});
    EXPECT_TRUE(isLink(r.src));
    EXPECT_EQ(Ledger::loadMoves(), std::vector<MoveRecord>{r});
}

TEST_F(LedgerRepair, RepairInterruptedRunsCompactsSwapsThenMoves) {
    put(root_ + "/c.db", "NEW");
    put(root_ + "/c.db.ov-compact-orig", "OLD");
    put(root_ + "/s.bin.ov-compress-orig", "OLD");
    put(root_ + "/d.bin", "D");
    put(root_ + "/d.bin.ov-clone-tmp", "clone");
    MoveRecord r{*dateFromReferenceSeconds(1), "Music", root_ + "/home/Music", root_ + "/Drive/Music", 1, false, {}};
    put(r.dst + "/song", "copy");
    // Entered in the other order, so that the order of the result is the repairs' own.
    Ledger::beginMove(r);
    Ledger::beginSwap(root_ + "/s.bin", InflightKind::compress);
    Ledger::beginSwap(root_ + "/d.bin", InflightKind::dedupe);
    Ledger::beginCompact(root_ + "/c.db");
    const Lines expected = {
        "c.db: compression finished, leftover backup removed",
        "s.bin: restored after an interrupted compression",
        "d.bin: leftover clone copy removed",
        "Recovered interrupted move of Music \u2014 the verified copy is at " + r.dst + "; any leftover partial went to the Trash.",
    };
    EXPECT_EQ(Ledger::repairInterrupted(), expected);
    EXPECT_EQ(repairLines(), prefixed(expected));
    EXPECT_EQ(contents(root_ + "/s.bin"), "OLD");
    EXPECT_EQ(Ledger::repairInterrupted(), Lines{});
}

}  // namespace
}  // namespace orvane
