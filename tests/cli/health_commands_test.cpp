// orvane health and orvane compress-estimate end to end, on this machine: they measure it, so a
// recorded Mac gets one sentence and exit 2.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>

#include "tests/cli/run_orvane.hpp"

namespace orvane {
namespace {

using testing::CommandCase;
using C = CommandCase;
using Json = nlohmann::json;
using Ordered = nlohmann::ordered_json;

// The keys of an object in the order they were printed.
std::vector<std::string> keysOf(const Ordered& object) {
    std::vector<std::string> keys;
    for (auto it = object.begin(); it != object.end(); ++it) keys.push_back(it.key());
    return keys;
}

TEST(HealthCommand, ThisMachine) {
    testing::TempDir d;
    const auto o = testing::runOrvane("health " + d.path() + " --interval 0.2 --json", d.path());
    const Ordered json = Ordered::parse(o.out);
    EXPECT_EQ(keysOf(json), (std::vector<std::string>{"sample", "memoryPressure", "memorySentence", "swapSentence", "headroom",
                                              "recommendedHeadroom", "capacity", "memoryBytes", "memoryLabel",
                                              "smallMac"}));
    EXPECT_EQ(keysOf(json["sample"]), (std::vector<std::string>{"cpuPercent", "memPressure", "batteryPercent", "batteryCharging",
                                                    "swapUsed", "bootFree", "scopeFree"}));
    // Two samples apart, so the processor figure has one to measure against.
    EXPECT_TRUE(json["sample"]["cpuPercent"].is_number());
    EXPECT_GT(json["sample"]["scopeFree"].get<std::int64_t>(), 0);
    EXPECT_EQ(o.status, json["headroom"]["ok"].get<bool>() ? 0 : 1);

    const C cases[] = {
        {"health --interval 0.1", o.status, C::out, "Memory pressure  ", C::contains},
        {"health {D}/missing", 2, C::err, "orvane: {D}/missing does not exist.\n"},
        {"health --interval 0", 2, C::err,
         "orvane: The interval must be a number of seconds above 0 and at most 3600, not \"0\".\n"},
        {"health --interval nan", 2, C::err, "not \"nan\".\n", C::contains},
        {testing::kAlexReplay + "health", 2, C::err,
         "orvane: The health command measures this machine, and a recorded Mac holds no such figures.\n"},
        {testing::kAlexReplay + "compress-estimate /Users/alex", 2, C::err,
         "orvane: The compress-estimate command compresses this machine's files, and a recorded Mac holds none of "
         "their bytes.\n"},
        {"compress-estimate {D}/missing", 2, C::err, "orvane: {D}/missing does not exist.\n"},
    };
    testing::expectCommands(cases);
}

TEST(CompressEstimateCommand, AFolderOfLogsAndMedia) {
    testing::TempDir d, outside;
    std::string log;
    for (int i = 0; log.size() < 300'000; ++i) log += "2026-11-25 01:00:00 request " + std::to_string(i) + " served\n";
    const std::string logPath = d.write("logs/app.log", log);
    std::mt19937 generator(3);
    std::string noise(200'000, '\0');
    for (auto& byte : noise) byte = static_cast<char>(generator() & 0xFF);
    const std::string clip = d.write("media/clip.mov", noise);
    d.write("tiny.txt", "hello");
    // Not followed or waited on: a link to a big file elsewhere, and a FIFO.
    std::filesystem::create_symlink(outside.write("big.log", log + log), d / "logs/link.log");
    ASSERT_EQ(::mkfifo((d / "logs/pipe").c_str(), 0600), 0);
    // The clip is known not to compress, under its current size and date.
    struct stat st{};
    ASSERT_EQ(::lstat(clip.c_str(), &st), 0);
    testing::writeFile(outside / "ledger/user-defaults.json",
                       Json{{"ov.incompressible", {clip + "|200000|" + std::to_string(st.st_mtim.tv_sec)}}}.dump());

    const std::string command = "--ledger-dir " + outside.path() + "/ledger compress-estimate " + d.path() + " " + logPath;
    const auto o = testing::runOrvane(command + " --json", outside.path());
    ASSERT_EQ(o.status, 0) << o.err;
    const Json json = Json::parse(o.out);
    const Ordered ordered = Ordered::parse(o.out);
    EXPECT_EQ(keysOf(ordered), (std::vector<std::string>{"line", "total", "files", "sampled", "estimated", "percent", "sample"}));
    EXPECT_EQ(json["files"], 3);  // the log typed twice counts once
    EXPECT_EQ(testing::column(json["sample"], "path"), Json({logPath, clip, d / "tiny.txt"}));
    EXPECT_EQ(testing::column(json["sample"], "knownIncompressible"), Json({false, true, false}));
    EXPECT_EQ(json["sample"][1]["estimate"], json["sample"][1]["sizeBytes"]);
    EXPECT_EQ(json["sample"][2]["estimate"], nullptr);  // one block either way
    // The small file gave no estimate, so the sample is not the whole.
    EXPECT_TRUE(json["line"].get<std::string>().starts_with("\n\nSampled ")) << json["line"];
    EXPECT_NE(json["line"].get<std::string>().find(" of it just now: expect about "), std::string::npos);
    EXPECT_GT(json["percent"].get<int>(), 40);

    const auto text = testing::runOrvane(command, outside.path());
    EXPECT_EQ(text.status, 0);
    EXPECT_TRUE(text.out.starts_with("Sampled ")) << text.out;
    EXPECT_NE(text.out.find(clip + "  → about 201 KB (known not to compress)\n"), std::string::npos) << text.out;
    // Nothing was written.
    EXPECT_EQ(std::filesystem::directory_iterator(outside / "ledger")->path().filename(), "user-defaults.json");

    const C cases[] = {
        {"compress-estimate {D}", 0, C::out,
         "Best for old, rarely-touched data; already-compressed media saves little.\n"},
    };
    testing::expectCommands(cases);
}

}  // namespace
}  // namespace orvane
