#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/cli/run_orvane.hpp"

namespace {

namespace fs = std::filesystem;
using orvane::readFile;
using orvane::testing::runOrvane;

class LedgerCommand : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/orvane-ledgercli-XXXXXX";
        dir_ = fs::canonical(mkdtemp(pattern)).string();
        ledger_ = dir_ + "/ledger";
        fs::create_directories(ledger_);
    }
    void TearDown() override { fs::remove_all(dir_); }
    static void put(const std::string& path, const std::string& bytes) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
    }
    orvane::testing::Outcome run(const std::string& arguments) {
        return runOrvane("--ledger-dir " + ledger_ + " " + arguments, dir_);
    }
    std::string dir_, ledger_;
};

using RepairCommand = LedgerCommand;
using HistoryCommand = LedgerCommand;
using MovesCommand = LedgerCommand;

TEST_F(RepairCommand, NothingToRepair) {
    auto plain = run("repair");
    EXPECT_EQ(plain.status, 0) << plain.err;
    EXPECT_EQ(plain.out, "Nothing to repair.\n");
    EXPECT_EQ(plain.err, "");
    auto json = run("repair --json");
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(nlohmann::json::parse(json.out), nlohmann::json::parse(R"({"messages":[]})"));
}

TEST_F(RepairCommand, FinishesAnInterruptedMoveCompressionAndDedupe) {
    // What a front end killed in the middle of its work leaves behind.
    const std::string src = dir_ + "/home/Movies", dst = dir_ + "/Drive/Movies";
    put(src + "/film.mov", "original");
    put(dst + "/film.mov", "copy");
    const std::string doc = dir_ + "/home/report.pdf";  // moved aside, compressed copy not in place yet
    put(doc + ".ov-compress-orig", "OLD");
    put(doc + ".ov-compress-tmp-1", "half written");
    const std::string clone = dir_ + "/home/photo.jpg";
    put(clone, "photo");
    put(clone + ".ov-clone-tmp", "clone");
    const std::string db = dir_ + "/home/mail.db";  // compacted, backup not yet deleted
    put(db, "NEW");
    put(db + ".ov-compact-orig", "OLD");
    put(ledger_ + "/moves-inflight.json", R"({"v":1,"data":[{"date":700000000,"title":"Movies","src":")" + src +
                                              R"(","dst":")" + dst + R"(","bytes":1500000,"symlinked":true}]})");
    put(ledger_ + "/swap-inflight.json",
        R"([{"path":")" + doc + R"(","kind":"compress"},{"path":")" + clone + R"(","kind":"dedupe"}])");
    put(ledger_ + "/compact-inflight.json", R"({"v":1,"data":[")" + db + R"("]})");

    auto repaired = run("repair");
    EXPECT_EQ(repaired.status, 0) << repaired.err;
    EXPECT_EQ(repaired.out, "mail.db: compression finished, leftover backup removed\n"
                            "report.pdf: restored after an interrupted compression\n"
                            "photo.jpg: leftover clone copy removed\n"
                            "Recovered interrupted move of Movies \u2014 " + src + " now points at " + dst +
                                "; any leftover partial went to the Trash.\n");
    EXPECT_EQ(fs::read_symlink(src), dst);
    EXPECT_EQ(readFile(ledger_ + "/Trash/Movies/film.mov"), "original");
    EXPECT_EQ(readFile(doc), "OLD");
    EXPECT_FALSE(fs::exists(doc + ".ov-compress-tmp-1"));
    EXPECT_FALSE(fs::exists(clone + ".ov-clone-tmp"));
    EXPECT_EQ(readFile(clone), "photo");
    EXPECT_EQ(readFile(db), "NEW");
    EXPECT_FALSE(fs::exists(db + ".ov-compact-orig"));
    for (const char* journal : {"moves-inflight.json", "swap-inflight.json", "compact-inflight.json"})
        EXPECT_EQ(readFile(ledger_ + "/" + journal), R"({"v":1,"data":[]})") << journal;

    auto history = run("history");
    EXPECT_EQ(history.status, 0);
    EXPECT_NE(history.out.find("] REPAIR report.pdf: restored after an interrupted compression\n"), std::string::npos) << history.out;
    EXPECT_NE(history.out.find("] REPAIR Recovered interrupted move of Movies"), std::string::npos);

    auto moves = run("moves --json");
    auto parsed = nlohmann::json::parse(moves.out);
    ASSERT_EQ(parsed["moves"].size(), 1u);
    EXPECT_EQ(parsed["moves"][0]["dst"], dst);
    EXPECT_EQ(parsed["moves"][0]["size"], "1.5 MB");

    EXPECT_EQ(run("repair").out, "Nothing to repair.\n");
}

TEST_F(RepairCommand, APendingMoveIsReportedAtEveryRun) {
    put(dir_ + "/home/Music/song", "original");
    put(ledger_ + "/moves-inflight.json", R"({"v":1,"data":[{"date":1,"title":"Music","src":")" + dir_ +
                                              R"(/home/Music","dst":")" + dir_ + R"(/Drive/Music","bytes":1,"symlinked":true}]})");
    const std::string pending = "Move of Music is pending \u2014 the drive holding its copy at " + dir_ +
                                "/Drive/Music isn't connected; reconnect it and relaunch to finish.\n";
    EXPECT_EQ(run("repair").out, pending);
    auto json = run("repair --json");
    EXPECT_EQ(nlohmann::json::parse(json.out)["messages"][0], pending.substr(0, pending.size() - 1));
    EXPECT_EQ(readFile(dir_ + "/home/Music/song"), "original");
}

TEST_F(HistoryCommand, FoldsFiltersAndReadsBothGenerations) {
    EXPECT_EQ(run("history").out, "The action log is empty.\n");
    put(ledger_ + "/actions.log.1", "[2026-01-01T00:00:00Z] MERGED in the older generation\n");
    put(ledger_ + "/actions.log", "[2026-02-01T00:00:01Z] DEDUPE /a\n[2026-02-01T00:00:02Z] DEDUPE /b\n"
                                  "[2026-02-01T00:00:03Z] DEDUPE /c\n[2026-02-02T00:00:00Z] MERGED 3 duplicate copies\n");
    const std::string folded =
        "[2026-02-01T00:00:01Z] DEDUPE \u00D7 3 \u2014 duplicate copies merged; each is still in place, sharing storage "
        "with its original. The full list is in the log file.\n";
    auto recent = run("history");
    EXPECT_EQ(recent.status, 0);
    EXPECT_EQ(recent.out, folded + "[2026-02-02T00:00:00Z] MERGED 3 duplicate copies\n");

    auto since = run("history --since 2026-02-01T00:00:02Z");
    EXPECT_EQ(since.out, "[2026-02-01T00:00:03Z] DEDUPE /c\n[2026-02-02T00:00:00Z] MERGED 3 duplicate copies\n");
    EXPECT_EQ(run("history --since 2026-03-01T00:00:00Z").out, "Nothing was logged after 2026-03-01T00:00:00Z.\n");

    auto all = run("history --all");
    EXPECT_EQ(all.out, "[2026-01-01T00:00:00Z] MERGED in the older generation\n" + folded +
                           "[2026-02-02T00:00:00Z] MERGED 3 duplicate copies\n");

    auto json = run("history --json");
    auto parsed = nlohmann::json::parse(json.out);
    ASSERT_EQ(parsed["lines"].size(), 2u);
    EXPECT_EQ(parsed["lines"][1], "[2026-02-02T00:00:00Z] MERGED 3 duplicate copies");
}

TEST_F(HistoryCommand, BadUsage) {
    auto badDate = run("history --since yesterday");
    EXPECT_EQ(badDate.status, 2);
    EXPECT_EQ(badDate.out, "");
    EXPECT_EQ(badDate.err, "orvane: \"yesterday\" is not an ISO 8601 date such as 2026-01-31T12:00:00Z.\n");
    auto both = run("history --all --since 2026-01-01T00:00:00Z");
    EXPECT_EQ(both.status, 2);
    EXPECT_EQ(std::count(both.err.begin(), both.err.end(), '\n'), 1) << both.err;
    auto help = run("history --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--since"), std::string::npos);
    auto repairHelp = run("repair --help");
    EXPECT_EQ(repairHelp.status, 0);
    EXPECT_NE(repairHelp.out.find("at launch"), std::string::npos) << repairHelp.out;
}

TEST_F(MovesCommand, NewestFirstWithSizes) {
    EXPECT_EQ(run("moves").out, "No moves on record.\n");
    put(ledger_ + "/moves.json",
        R"({"v":1,"data":[)"
        R"({"date":700000000,"title":"Old Photos","src":"/Users/a/Old Photos","dst":"/Volumes/Drive/Old Photos","bytes":2500000000,"symlinked":true},)"
        R"({"date":800000000,"title":"Movies","src":"/Users/a/Movies","dst":"/Volumes/Drive/Movies","bytes":1500000,"symlinked":false,"adminScope":true}]})");
    auto plain = run("moves");
    EXPECT_EQ(plain.status, 0) << plain.err;
    const auto movies = plain.out.find("Movies (1.5 MB)\n    /Users/a/Movies moved to /Volumes/Drive/Movies\n");
    const auto photos = plain.out.find("Old Photos (2.5 GB)\n    /Users/a/Old Photos -> /Volumes/Drive/Old Photos\n");
    ASSERT_NE(movies, std::string::npos) << plain.out;
    ASSERT_NE(photos, std::string::npos) << plain.out;
    EXPECT_LT(movies, photos);  // newest first
    EXPECT_TRUE(plain.out.ends_with("2 moves, 2.5 GB in all.\n")) << plain.out;

    auto json = nlohmann::json::parse(run("moves --json").out);
    ASSERT_EQ(json["moves"].size(), 2u);
    EXPECT_EQ(json["moves"][0]["title"], "Movies");
    EXPECT_EQ(json["moves"][0]["date"], "2026-05-09T06:13:20Z");
    EXPECT_EQ(json["moves"][0]["adminScope"], true);
    EXPECT_FALSE(json["moves"][1].contains("adminScope"));
    EXPECT_EQ(json["moves"][1]["bytes"], 2500000000LL);
    EXPECT_EQ(json["totalBytes"], 2501500000LL);
}

TEST_F(LedgerCommand, FIFOsInTheLedgerReadAsEmptyAndNeverHang) {
    // No writer ever comes: a blocking open of any of them would hang the command for good.
    for (const char* name : {"actions.log", "actions.log.1", "moves.json", "moves-inflight.json",
                             "swap-inflight.json", "compact-inflight.json"})
        ASSERT_EQ(::mkfifo((ledger_ + "/" + name).c_str(), 0600), 0) << name;
    const std::pair<const char*, const char*> cases[] = {
        {"history", "The action log is empty.\n"},
        {"history --all", "The action log is empty.\n"},
        {"moves", "No moves on record.\n"},
        {"repair", "Nothing to repair.\n"},
    };
    for (const auto& [command, out] : cases) {
        auto r = run(command);
        EXPECT_EQ(r.status, 0) << command;
        EXPECT_EQ(r.out, out) << command;
    }
}

TEST_F(MovesCommand, ATotalPastAnyDiskIsUnknownAndAFarDateKeepsItsYear) {
    std::string records;
    for (int i = 0; i < 8; ++i) {  // each within what a record may hold, together past 64 bits
        const std::string date = i == 0 ? "252406756800" : "700000000";  // 9999-06-15T12:00:00Z
        records += std::string(i ? "," : "") + R"({"date":)" + date + R"(,"title":"T)" + std::to_string(i) +
                   R"(","src":"/a","dst":"/d)" + std::to_string(i) + R"(","bytes":1152921504606846976,"symlinked":true})";
    }
    put(ledger_ + "/moves.json", R"({"v":1,"data":[)" + records + "]}");
    auto plain = run("moves");
    EXPECT_EQ(plain.status, 0) << plain.err;
    EXPECT_TRUE(plain.out.starts_with("6/15/99  T0 (1.15 EB)\n")) << plain.out;
    EXPECT_TRUE(plain.out.ends_with("8 moves, unknown in all.\n")) << plain.out;
    auto json = nlohmann::json::parse(run("moves --json").out);
    EXPECT_EQ(json["moves"][0]["date"], "9999-06-15T12:00:00Z");
    EXPECT_TRUE(json["totalBytes"].is_null());
}

TEST_F(LedgerCommand, ControlCharactersAreEscapedOnTheTerminalAndExactInJSON) {
    put(ledger_ + "/moves.json", R"({"v":1,"data":[{"date":1,"title":"Evil\n\u001b[2J","src":"/a","dst":"/d",)"
                                 R"("bytes":1,"symlinked":true}]})");
    put(ledger_ + "/actions.log", "[2026-02-01T00:00:01Z] MERGED a\x1b[2Jb\n");  // a line feed would end the line
    struct Case {
        const char* command;
        const char* shown;    // a line of the readable output
        const char* pointer;  // where --json holds the text
        const char* exact;
    } cases[] = {
        {"moves", "  Evil\\n\\x1B[2J (1 byte)\n", "/moves/0/title", "Evil\n\x1b[2J"},
        {"history", "[2026-02-01T00:00:01Z] MERGED a\\x1B[2Jb\n", "/lines/0", "[2026-02-01T00:00:01Z] MERGED a\x1b[2Jb"},
    };
    for (const auto& c : cases) {
        auto plain = run(c.command);
        EXPECT_NE(plain.out.find(c.shown), std::string::npos) << plain.out;
        auto json = nlohmann::json::parse(run(std::string(c.command) + " --json").out);
        EXPECT_EQ(json[nlohmann::json::json_pointer(c.pointer)], c.exact) << c.command;
    }
}

}  // namespace
