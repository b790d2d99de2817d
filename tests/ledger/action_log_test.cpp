#include "core/ledger/action_log.hpp"

#include <gtest/gtest.h>

#include <regex>

#include "core/common/path.hpp"
#include "core/ledger/auto_actions.hpp"
#include "core/ledger/user_defaults.hpp"
#include "tests/ledger/ledger_fixture.hpp"

namespace orvane {
namespace {

using testing::LedgerFixture;
namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

class LedgerActionLog : public LedgerFixture {
  protected:
    // "[2026-01-01T00:00:00Z] TEXT" with the seconds after 2026-01-01 given.
    static std::string dated(int seconds, const std::string& text) {
        return "[" + iso8601(*parseISO8601("2026-01-01T00:00:00Z") + std::chrono::seconds(seconds)) + "] " + text;
    }
};

TEST_F(LedgerActionLog, LineFormAndOneLinePerCall) {
    const auto before = std::chrono::floor<std::chrono::seconds>(Clock::now());
    Ledger::log("MERGED 2 duplicate copies");
    Ledger::log("REPAIR a\nforged line\r");
    Ledger::flush();
    const auto after = Clock::now();
    const auto text = ledgerFile("actions.log");
    const std::regex form(R"(\[(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)\] MERGED 2 duplicate copies\n)"
                          R"(\[\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\] REPAIR a\\nforged line\\r\n)");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(text, match, form)) << text;
    const auto stamped = parseISO8601(match[1].str());
    ASSERT_TRUE(stamped);
    EXPECT_GE(*stamped, before);
    EXPECT_LE(*stamped, after);
}

TEST_F(LedgerActionLog, RotatesAboveTwoMillionBytesKeepingOneGeneration) {
    struct Case {
        std::size_t size;
        bool rotates;
    };
    for (const auto& c : {Case{2'000'000, false}, Case{2'000'001, true}}) {
        putLedgerFile("actions.log.1", "older generation\n");
        putLedgerFile("actions.log", std::string(c.size - 1, 'x') + "\n");
        Ledger::log("EMPTY-TRASH 1 item");
        Ledger::flush();
        const auto log = ledgerFile("actions.log");
        const auto rotated = ledgerFile("actions.log.1");
        if (c.rotates) {
            EXPECT_EQ(rotated.size(), c.size);
            EXPECT_TRUE(log.starts_with("[")) << log.substr(0, 40);
            EXPECT_TRUE(log.ends_with("] EMPTY-TRASH 1 item\n"));
            EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
        } else {
            EXPECT_EQ(rotated, "older generation\n");
            EXPECT_GT(log.size(), c.size);
            EXPECT_TRUE(log.ends_with("] EMPTY-TRASH 1 item\n"));
        }
        EXPECT_EQ(names(ledger_), (Lines{"actions.log", "actions.log.1"}));
    }
}

TEST_F(LedgerActionLog, Tail) {
    EXPECT_TRUE(Ledger::tail(5).empty());
    putLedgerFile("actions.log", "a\n\nb\nc\n\n");
    EXPECT_EQ(Ledger::tail(2), (Lines{"b", "c"}));
    EXPECT_EQ(Ledger::tail(10), (Lines{"a", "b", "c"}));
    EXPECT_EQ(Ledger::tail(0), Lines{});
    putLedgerFile("actions.log", "a\n\xC3(\nb\n");  // not UTF-8: the whole read fails
    EXPECT_TRUE(Ledger::tail(5).empty());
}

TEST_F(LedgerActionLog, ActionsReadOnlyTheLast128KiB) {
    // Exactly 131,072 bytes: the window is the whole file, so its first line is whole and kept.
    const std::string first = dated(1, "MERGED first") + "\n";
    std::string body = first;
    while (body.size() < 131'072 - 200) body += dated(2, "MERGED filler " + std::to_string(body.size())) + "\n";
    std::string last = dated(3, "MERGED last ");
    last += std::string(131'072 - body.size() - last.size() - 1, 'z') + "\n";
    body += last;
    ASSERT_EQ(body.size(), 131'072u);
    putLedgerFile("actions.log", body);
    auto all = Ledger::actions(parseISO8601("2000-01-01T00:00:00Z"));
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(all.front() + "\n", first);

    // One byte more: the window starts inside the first line, which is dropped.
    putLedgerFile("actions.log", "x" + body);
    all = Ledger::actions(parseISO8601("2000-01-01T00:00:00Z"));
    ASSERT_FALSE(all.empty());
    EXPECT_NE(all.front() + "\n", first);
    EXPECT_TRUE(all.front().starts_with(dated(2, "MERGED filler"))) << all.front();

    // A 2 MB log: nothing before its last 128 KiB is seen.
    std::string big = dated(0, "MERGED ancient") + "\n";
    while (big.size() < 2'000'000) big += dated(5, "DEDUPE " + std::string(60, 'd')) + "\n";
    putLedgerFile("actions.log", big);
    const auto recent = Ledger::actions(std::nullopt);
    EXPECT_EQ(recent.size(), Ledger::actionsDefaultLines);
    for (const auto& line : Ledger::actions(parseISO8601("2025-01-01T00:00:00Z")))
        ASSERT_EQ(line.find("ancient"), std::string::npos);
}

TEST_F(LedgerActionLog, ActionsSinceADate) {
    const std::string log = dated(10, "MERGED at ten") + "\n" + dated(11, "MERGED at eleven") + "\n" +
                            "no date here\n" + "[garbage] MERGED\n" + "[2026-01-01T00:00:12Z MERGED no bracket\n" +
                            dated(12, "MERGED at twelve") + "\n\n";
    putLedgerFile("actions.log", log);
    const auto at = [](int s) { return *parseISO8601("2026-01-01T00:00:00Z") + std::chrono::seconds(s); };
    EXPECT_EQ(Ledger::actions(at(10)), (Lines{dated(11, "MERGED at eleven"), dated(12, "MERGED at twelve")}));  // not at, after
    EXPECT_EQ(Ledger::actions(at(9) + std::chrono::milliseconds(999)).size(), 3u);
    EXPECT_EQ(Ledger::actions(at(12)), Lines{});
    EXPECT_EQ(Ledger::actions(std::nullopt).size(), 6u);  // without a date every line counts
    EXPECT_TRUE(Ledger::actions(std::nullopt).front().ends_with("MERGED at ten"));

    std::string many;
    for (int i = 0; i < 250; ++i) many += dated(i, "MERGED " + std::to_string(i)) + "\n";
    putLedgerFile("actions.log", many);
    const auto recent = Ledger::actions(std::nullopt);
    ASSERT_EQ(recent.size(), 200u);
    EXPECT_EQ(recent.front(), dated(50, "MERGED 50"));
    EXPECT_EQ(recent.back(), dated(249, "MERGED 249"));

    putLedgerFile("actions.log", dated(20, "MERGED caf\xC3") + "\n");  // invalid bytes are repaired, not fatal
    EXPECT_EQ(Ledger::actions(std::nullopt), Lines{dated(20, "MERGED caf\xEF\xBF\xBD")});
}

TEST_F(LedgerActionLog, WholeLogReadsBothGenerations) {
    putLedgerFile("actions.log.1", "old 1\nold 2");
    putLedgerFile("actions.log", "new 1\n");
    EXPECT_EQ(Ledger::wholeLog(), (Lines{"old 1", "old 2", "new 1"}));
}

TEST(LedgerLeakedLines, Recognised) {
    struct Case {
        std::string line;
        bool leaked;
    };
    const Case cases[] = {
        {"[2026-01-01T00:00:00Z] REPAIR doc.pdf: compression finished, leftover backup removed", true},
        {"[2026-01-01T00:00:00Z]    REPAIR file2: restored after an interrupted compression", true},
        {"REPAIR legacy.doc: restored after an interrupted compression", true},
        {"[x] REPAIR Recovered interrupted move of Model live \u2014 /var/folders/ab/T/x now points at /y", true},
        {"[x] REPAIR Recovered interrupted move of Model repair-honest \u2014 the verified copy is at /var/folders/q", true},
        {"[x] REPAIR Recovered interrupted move of Model live \u2014 /Users/a/x now points at /y", false},
        {"[x] REPAIR Recovered interrupted move of Model other \u2014 /var/folders/x", false},
        {"[x] REPAIR doc.pdf: compression finished, leftover backup removed ", false},
        {"[x] REPAIR mine.pdf: compression finished, leftover backup removed", false},
        {"REPAIR doc.pdf: compression finished", false},
        {"", false},
    };
    for (const auto& c : cases) EXPECT_EQ(isLeakedTestLogLine(c.line), c.leaked) << c.line;
}

TEST_F(LedgerActionLog, PurgeLeakedTestLines) {
    putLedgerFile("actions.log", "[a] MERGED mine\n[b] REPAIR file2: restored after an interrupted compression\n\n"
                                 "[c] REPAIR legacy.doc: restored after an interrupted compression\n[d] EMPTY-TRASH 1\n");
    EXPECT_EQ(Ledger::purgeLeakedTestLines(), 2);
    EXPECT_EQ(ledgerFile("actions.log"), "[a] MERGED mine\n\n[d] EMPTY-TRASH 1\n");
    EXPECT_EQ(Ledger::purgeLeakedTestLines(), 0);
    EXPECT_EQ(ledgerFile("actions.log"), "[a] MERGED mine\n\n[d] EMPTY-TRASH 1\n");
    putLedgerFile("actions.log", "\xFF REPAIR file2: restored after an interrupted compression\n");
    EXPECT_EQ(Ledger::purgeLeakedTestLines(), 0);
    fs::remove(ledger_ + "/actions.log");
    EXPECT_EQ(Ledger::purgeLeakedTestLines(), 0);
}

TEST(LedgerFold, Runs) {
    const std::string folded =
        "[2026-01-01T00:00:01Z] DEDUPE \u00D7 3 \u2014 duplicate copies merged; each is still in place, sharing storage "
        "with its original. The full list is in the log file.";
    struct Case {
        std::string name;
        Lines in, out;
    };
    const Case cases[] = {
        {"two stay", {"[t] DEDUPE a", "[t] DEDUPE b"}, {"[t] DEDUPE a", "[t] DEDUPE b"}},
        {"three fold",
         {"[2026-01-01T00:00:01Z] DEDUPE a", "[2026-01-01T00:00:02Z] DEDUPE b", "[2026-01-01T00:00:03Z] DEDUPE c"},
         {folded}},
        {"a line between breaks the run",
         {"[t] DEDUPE a", "[t] DEDUPE b", "[t] MERGED x", "[t] DEDUPE c"},
         {"[t] DEDUPE a", "[t] DEDUPE b", "[t] MERGED x", "[t] DEDUPE c"}},
        {"another verb breaks the run",
         {"[t] DEDUPE a", "[t] DEDUPE b", "[t] EMPTY-TRASH c", "[t] EMPTY-TRASH d"},
         {"[t] DEDUPE a", "[t] DEDUPE b", "[t] EMPTY-TRASH c", "[t] EMPTY-TRASH d"}},
        {"trash run without dates",
         {"EMPTY-TRASH a", "EMPTY-TRASH b", "EMPTY-TRASH c", "EMPTY-TRASH d", "MERGED"},
         {"EMPTY-TRASH \u00D7 4 \u2014 items removed from the Trash for good. The full list is in the log file.", "MERGED"}},
        {"the word needs its blank", {"[t] DEDUPE", "[t] DEDUPED a", "[t] DEDUPE"}, {"[t] DEDUPE", "[t] DEDUPED a", "[t] DEDUPE"}},
        {"empty", {}, {}},
    };
    for (const auto& c : cases) EXPECT_EQ(foldActionLog(c.in), c.out) << c.name;
}

TEST(LedgerMergeSummary, Wording) {
    EXPECT_EQ(mergeSummaryLine(1, 1, "2 KB", "Duplicates"),
              "MERGED 1 duplicate copy into 1 original \u2014 2 KB returned. Every file is still in place; the copies "
              "share storage with their originals. Started from Duplicates.");
    EXPECT_EQ(mergeSummaryLine(3, 2, "1.2 GB", "the watch"),
              "MERGED 3 duplicate copies into 2 originals \u2014 1.2 GB returned. Every file is still in place; the "
              "copies share storage with their originals. Started from the watch.");
    EXPECT_TRUE(mergeSummaryLine(0, 0, "Zero KB", "x").starts_with("MERGED 0 duplicate copies into 0 originals"));
}

TEST_F(LedgerActionLog, AutoActionsKeepTheNewest50) {
    for (int i = 1; i <= 51; ++i) recordAutoAction("moved " + std::to_string(i));
    const auto entries = autoActionLog();
    ASSERT_EQ(entries.size(), 50u);
    EXPECT_TRUE(std::regex_match(entries.front(), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\|moved 2)"))) << entries.front();
    EXPECT_TRUE(entries.back().ends_with("|moved 51"));
    const auto stored = nlohmann::json::parse(ledgerFile("user-defaults.json"));
    EXPECT_EQ(stored["autoActionLog"].size(), 50u);

    putLedgerFile("user-defaults.json", R"({"autoActionLog":"not a list","other":1})");
    recordAutoAction("fresh");
    EXPECT_EQ(autoActionLog().size(), 1u);
    EXPECT_EQ(userDefault("other"), nlohmann::json(1));  // other keys are kept
}

TEST_F(LedgerActionLog, AuditSnapshotCapture) {
    auto item = [](std::string path, std::string category, std::int64_t bytes) {
        SpaceItem i;
        i.id = std::move(path);
        i.title = lastPathComponent(i.id);
        i.category = std::move(category);
        i.sizeBytes = bytes;
        return i;
    };
    const std::vector<SpaceItem> items = {
        item("/Users/a/Movies", "Media", 5'000'000),
        item("/Users/a/Movies/film.mov", "Media", 4'000'000),  // inside the one above: not counted again
        item("/Users/a/cache", "Junk", 999'999),
        item("/Users/a/vm", "VM", 7'000'000),
        item("/Users/a/zero", "Junk", 0),
        item("/Users/a/unknown", "Junk", -1),
        item("/Users/a/tie", "VM", 5'000'000),
    };
    putLedgerFile("actions.log", dated(0, "MERGED old") + "\n" + dated(100, "MERGED new") + "\n");
    const auto before = Clock::now();
    const auto snapshot = AuditSnapshot::capture(items, 300, 200, 1.5, *parseISO8601("2026-01-01T00:00:50Z"));
    EXPECT_GE(snapshot.date, before);
    EXPECT_EQ(snapshot.scope, "Startup disk");
    EXPECT_EQ(snapshot.capacity, 200);
    EXPECT_EQ(snapshot.free, 300);
    EXPECT_EQ(snapshot.used, 0);  // never below 0
    EXPECT_EQ(snapshot.scanSeconds, 1.5);
    EXPECT_EQ(snapshot.categoryTotals, (std::map<std::string, std::int64_t>{{"Junk", 999'999}, {"Media", 5'000'000}, {"VM", 12'000'000}}));
    ASSERT_EQ(snapshot.topFindings.size(), 3u);
    EXPECT_EQ(snapshot.topFindings[0], (AuditSnapshot::Finding{"/Users/a/vm", "vm", "VM", 7'000'000}));
    EXPECT_EQ(snapshot.topFindings[1].path, "/Users/a/tie");  // equal sizes: shorter path first, as topMostByPath ordered them
    EXPECT_EQ(snapshot.topFindings[2].path, "/Users/a/Movies");
    EXPECT_EQ(snapshot.actionsSince, Lines{dated(100, "MERGED new")});

    const auto unbounded = AuditSnapshot::capture({}, 100, 1000, std::nullopt, std::nullopt);
    EXPECT_EQ(unbounded.used, 900);
    EXPECT_EQ(unbounded.actionsSince.size(), 2u);
    EXPECT_TRUE(unbounded.topFindings.empty());
}

}  // namespace
}  // namespace orvane
