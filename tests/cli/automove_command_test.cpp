// orvane automove end to end: the rule's file, exit statuses, the choice over a scan document, and
// a recorded Mac, which is never written.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/run_orvane.hpp"

namespace orvane {
namespace {

using testing::CommandCase;
using C = CommandCase;
const std::string kLedger = "--ledger-dir {D}/ledger ";

// An item as orvane scan --json prints it.
nlohmann::json scanItem(const std::string& id, const char* category, double gb, const char* lastUsed) {
    return {{"id", id},         {"title", id.substr(id.rfind('/') + 1)},
            {"category", category}, {"safety", "Review"},
            {"suggested", "Move to external"}, {"note", ""},
            {"contentsOnly", false}, {"extra", nlohmann::json::array()},
            {"isDir", true},        {"sizeBytes", static_cast<std::int64_t>(gb * 1e9)},
            {"lastUsed", lastUsed}};
}

void damagedRule(const testing::TempDir& d) { testing::writeFile(d.path() + "/ledger/auto-move-rule.json", "{\"version\":"); }

TEST(AutoMoveCommand, StatusesAndBadInput) {
    const C cases[] = {
        {kLedger + "automove --free 1000", 1, C::out, "Automatic moves: off (no rule is set: this is the default rule)\n",
         C::contains},
        {kLedger + "automove --free 1000", 1, C::out, "\nNo move is due.\nWanted: 33 GB,", C::contains},
        {kLedger + "automove --free 12k", 2, C::err,
         "orvane: --free must be a whole number of bytes, 0 or more, not \"12k\".\n"},
        {kLedger + "automove --items {D}/none.json", 2, C::err, "orvane: Cannot read {D}/none.json: it does not exist.\n"},
        {kLedger + "automove --items - < {D}/bad.json", 2, C::err, "orvane: The items cannot be read.", C::contains,
         [](const testing::TempDir& d) { testing::writeFile(d.path() + "/bad.json", "{\"items\":"); }},
        {kLedger + "automove --items {D}/list.json", 2, C::err,
         "orvane: The items must be a JSON object with an \"items\" array, as orvane scan --json prints it.\n",
         C::whole, [](const testing::TempDir& d) { testing::writeFile(d.path() + "/list.json", "[]"); }},
        {kLedger + "automove set --kinds media,music", 2, C::err,
         "orvane: Unknown kind \"music\" for --kinds: the kinds are aiModels, media and devFolders.\n"},
        {kLedger + "automove set --unused-days=-1", 2, C::err,
         "orvane: --unused-days must be a whole number of days, 0 or more, not \"-1\".\n"},
        {kLedger + "automove set --enable --disable", 2, C::err, "orvane: Give --enable or --disable, not both.\n"},
        // A rule that does not decode is reported, not used, and never overwritten.
        {kLedger + "automove --free 0", 1, C::err,
         "orvane: The automatic-move rule at {D}/ledger/auto-move-rule.json is damaged or from a newer release; it is "
         "not used and is left as it is.\n",
         C::whole, damagedRule},
        {kLedger + "automove set --enable --drive Archive", 1, C::err, "Remove it to set a new rule.\n", C::contains,
         damagedRule},
    };
    testing::expectCommands(cases);

    testing::TempDir d;
    damagedRule(d);
    EXPECT_EQ(testing::runOrvane("--ledger-dir " + d.path() + "/ledger automove set --enable", d.path()).status, 1);
    EXPECT_EQ(readFile(d.path() + "/ledger/auto-move-rule.json"), "{\"version\":");
}

TEST(AutoMoveCommand, SettingTheRuleAndChoosing) {
    testing::TempDir d;
    const std::string ledger = "--ledger-dir " + d.path() + "/ledger ";
    auto o = testing::runOrvane(ledger + "automove set --enable --drive Archive --kinds media,aiModels --unused-days 30",
                                d.path());
    ASSERT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(readFile(d.path() + "/ledger/auto-move-rule.json"),
              R"({"version":1,"enabled":true,"thresholdGB":30,"kinds":["aiModels","media"],"unusedDays":30,)"
              R"("driveName":"Archive","moveWithoutAsking":false})" "\n");
    // Only what is typed changes.
    ASSERT_EQ(testing::runOrvane(ledger + "automove set --threshold-gb 40", d.path()).status, 0);
    o = testing::runOrvane(ledger + "automove --free 39999999999 --json", d.path());
    EXPECT_EQ(o.status, 0) << o.err;
    auto json = nlohmann::json::parse(o.out);
    EXPECT_EQ(json["rule"]["driveName"], "Archive");
    EXPECT_EQ(json["rule"]["thresholdGB"], 40);
    EXPECT_EQ(json["due"], true);
    EXPECT_FALSE(json.contains("candidates"));
    EXPECT_EQ(testing::runOrvane(ledger + "automove --free 40000000000", d.path()).status, 1);

    // 34 GB wanted at 10 GB free: the protected model and the recent one stay, the two next
    // largest are taken, and then the aim is reached.
    const std::string old = "2020-01-01T00:00:00Z";
    const nlohmann::json scan = {
        {"items",
         {scanItem("/Users/a/Models/big", "AI models & caches", 60, old.c_str()),
          scanItem("/Users/a/Models/recent", "AI models & caches", 50, "2999-01-01T00:00:00Z"),
          scanItem("/Users/a/Models/llama", "AI models & caches", 30, old.c_str()),
          scanItem("/Users/a/Movies/trip.mov", "Media & big downloads (external candidates)", 20, old.c_str()),
          scanItem("/Users/a/Movies/cat.mov", "Media & big downloads (external candidates)", 10, old.c_str())}}};
    testing::writeFile(d.path() + "/scan.json", scan.dump());
    testing::writeFile(d.path() + "/ledger/protect-list.json",
                       R"({"version":1,"entries":[{"kind":"folder","value":"/Users/a/Models/big","label":"big",)"
                       R"("appFolders":[],"added":0}]})");
    o = testing::runOrvane(ledger + "automove --free 10000000000 --json --items " + d.path() + "/scan.json", d.path());
    EXPECT_EQ(o.status, 0) << o.err;
    json = nlohmann::json::parse(o.out);
    EXPECT_EQ(json["wanted"], 34'000'000'000);
    EXPECT_EQ(json["candidates"],
              nlohmann::json::parse(R"([{"id":"/Users/a/Models/llama","title":"llama","sizeBytes":30000000000,)"
                                    R"("kind":"AI models"},{"id":"/Users/a/Movies/trip.mov","title":"trip.mov",)"
                                    R"("sizeBytes":20000000000,"kind":"Media and big old files"}])"));
    EXPECT_EQ(json["totalBytes"], 50'000'000'000);

    o = testing::runOrvane(ledger + "automove --free 10000000000 --items - < " + d.path() + "/scan.json", d.path());
    EXPECT_TRUE(o.out.ends_with("A move is due.\nWanted: 34 GB, to reach ten per cent above the threshold.\n\n"
                                "A run would move:\n"
                                "30 GB  AI models                /Users/a/Models/llama\n"
                                "20 GB  Media and big old files  /Users/a/Movies/trip.mov\n"
                                "Total: 50 GB in 2 items.\n"))
        << o.out;
}

TEST(AutoMoveCommand, TheRecordedMac) {
    const std::string alex = testing::kAlexReplay + kLedger;
    const C cases[] = {
        // 31.46 GB free is above the default 30 GB, and the default rule is off anyway.
        {alex + "automove", 1, C::out, "Free space: 31.46 GB\nNo move is due.\nWanted: 1.54 GB,", C::contains},
        {alex + "automove set --enable --drive Archive", 1, C::out,
         "Would write /Users/alex/Library/Application Support/Velloran Orvane/auto-move-rule.json: "
         R"({"version":1,"enabled":true,"thresholdGB":30,"kinds":["aiModels","media"],"unusedDays":90,)"
         R"("driveName":"Archive","moveWithoutAsking":false})" "\n"},
        {alex + "automove set --enable --drive Archive", 1, C::err, "orvane: Nothing was changed: this is a recorded Mac.\n"},
    };
    testing::expectCommands(cases);
}

}  // namespace
}  // namespace orvane
