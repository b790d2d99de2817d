// orvane watch end to end: a real scan of a temporary home writes the history, two earlier points
// are added to it, and the watch reads it all back, findings checked against the disk.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/cli/run_orvane.hpp"

namespace orvane {
namespace {

using Json = nlohmann::json;
constexpr std::int64_t GB = 1'000'000'000;
constexpr std::int64_t kFreeBeforeUpdate = std::int64_t{1} << 59;

std::int64_t allocated(const std::string& path) {
    struct stat st{};
    return ::lstat(path.c_str(), &st) == 0 ? static_cast<std::int64_t>(st.st_blocks) * 512 : -1;
}

void age(const std::string& path, int days) {
    std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - std::chrono::hours(24 * days));
}

TEST(WatchCommand, ScansMakeTheHistory) {
    testing::TempDir d;
    const std::string home = d.mkdir("home"), ledger = d / "ledger";
    const std::string big = d.write("home/big.bin", std::string(11'000'000, 'b'));
    const std::string recent = d.write("home/Downloads/new.zip", std::string(65'536, 'n'));
    const std::string middle = d.write("home/Downloads/deep/er/half.iso", std::string(65'536, 'h'));
    const std::string old = d.write("home/Downloads/old.dmg", std::string(65'536, 'o'));
    age(middle, 100);
    age(old, 400);
    // Neither a link nor a FIFO counts, and the FIFO is never waited on.
    ASSERT_EQ(::symlink(big.c_str(), (d / "home/Downloads/link.bin").c_str()), 0);
    ASSERT_EQ(::mkfifo((d / "home/Downloads/pipe").c_str(), 0600), 0);
    // The newest scan so far ran under another system version, with far more free.
    d.write("ledger/user-defaults.json", "{\"ruleFloorOn\":false,\"ov.watch.osAtNewestScan\":\"Old OS 1\","
                                         "\"ov.watch.freeAtNewestScan\":" + std::to_string(kFreeBeforeUpdate) + "}");
    const std::string prefix = "HOME=" + home;
    const std::string inLedger = "--ledger-dir " + ledger + " ";

    const auto scan = testing::runOrvane(inLedger + "scan " + home + " --json", d.path(), prefix);
    ASSERT_EQ(scan.status, 0) << scan.err;
    Json trends = Json::parse(readFile(ledger + "/trends.json").value_or("null"));
    ASSERT_EQ(trends["data"].size(), 1u);
    const Json point = trends["data"][0];
    const std::int64_t free = point["free"];
    ASSERT_GE(free, 0);
    EXPECT_EQ(point["reclaimable"], Json::parse(scan.out)["items"][0]["sizeBytes"]);
    // Two weeks of history before it, losing 1 GB a week.
    auto earlier = [&](int days, std::int64_t more) {
        return Json{{"date", point["date"].get<double>() - days * 86'400.0}, {"free", free + more},
                    {"reclaimable", 0}, {"sizes", Json::object()}};
    };
    trends["data"] = Json::array({earlier(14, 2 * GB), earlier(7, GB), point});
    d.write("ledger/trends.json", trends.dump());
    std::filesystem::remove(big);

    auto watch = testing::runOrvane(inLedger + "watch --json", d.path(), prefix);
    ASSERT_EQ(watch.status, 0) << watch.err;
    const Json json = Json::parse(watch.out);
    std::vector<std::string> keys;
    const auto ordered = nlohmann::ordered_json::parse(watch.out);
    for (const auto& [key, value] : ordered.items()) keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"free", "tone", "forecast", "forecastSentence", "runway", "lowestFree",
                                              "weekAgo", "growth", "osUpdateLoss", "swap", "downloads", "reconciled",
                                              "reclaimable", "cleanupSplit", "nextSteps", "config"}));
    EXPECT_EQ(json["free"], free);
    EXPECT_EQ(json["tone"], "normal");
    EXPECT_NEAR(json["forecast"]["lossPerWeek"].get<double>(), GB, 2);
    EXPECT_NEAR(json["forecast"]["weeksLeft"].get<double>(), static_cast<double>(free) / GB, 1e-6);
    EXPECT_EQ(json["weekAgo"]["free"], free + GB);
    EXPECT_EQ(json["lowestFree"]["free"], free);
    EXPECT_TRUE(json["lowestFree"]["date"].get<std::string>().ends_with("Z"));
    EXPECT_EQ(json["osUpdateLoss"], kFreeBeforeUpdate - free);
    EXPECT_EQ(json["downloads"], (Json{{"recent", allocated(recent)}, {"middle", allocated(middle)},
                                       {"old", allocated(old)}, {"undated", 0},
                                       {"total", allocated(recent) + allocated(middle) + allocated(old)},
                                       {"capGB", 5}, {"over", false}}));
    EXPECT_EQ(json["reconciled"]["vanished"], Json::array({big}));
    EXPECT_EQ(json["reconciled"]["lostBytes"], point["reclaimable"]);
    EXPECT_EQ(json["reclaimable"]["total"], 0);
    EXPECT_EQ(testing::column(json["nextSteps"], "kind"), Json({"scan", "freeSafe", "moveToExternal", "review"}));
    EXPECT_EQ(testing::column(json["nextSteps"], "done"), Json({true, true, true, true}));
    EXPECT_EQ(json["config"]["ruleFloorOn"], false);

    // A floor above any disk: the tone is low and the exit status says so.
    d.write("ledger/user-defaults.json", "{\"ruleFloorGB\":2000000000}");
    watch = testing::runOrvane(inLedger + "watch", d.path(), prefix);
    EXPECT_EQ(watch.status, 1);
    EXPECT_NE(watch.out.find(": below your floor.\n"), std::string::npos) << watch.out;
}

TEST(WatchCommand, NothingRecordedAndARecordedMac) {
    testing::TempDir d;
    const std::string home = d.mkdir("home");
    const auto empty = testing::runOrvane("--ledger-dir " + d / "ledger watch --json", d.path(), "HOME=" + home);
    ASSERT_EQ(empty.status, 0) << empty.err;
    const Json json = Json::parse(empty.out);
    EXPECT_EQ(json["free"], nullptr);
    EXPECT_EQ(json["forecast"], nullptr);
    EXPECT_EQ(json["weekAgo"], nullptr);
    EXPECT_EQ(testing::column(json["nextSteps"], "done"), Json({false, false, false, false}));

    const auto replayed = testing::runOrvane(testing::kAlexReplay + "watch", d.path());
    EXPECT_EQ(replayed.status, 2);
    EXPECT_EQ(replayed.err, "orvane: orvane watch needs this machine: it reads the scan history kept here, which a "
                            "recorded Mac does not carry.\n");
    // A recorded Mac's scan leaves nothing in the ledger.
    EXPECT_EQ(testing::runOrvane("--ledger-dir " + d / "ledger2 " + testing::kAlexReplay + "scan /Users/alex", d.path())
                  .status,
              0);
    EXPECT_FALSE(std::filesystem::exists(d / "ledger2"));
}

}  // namespace
}  // namespace orvane
