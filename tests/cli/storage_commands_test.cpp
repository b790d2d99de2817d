// storage and unreadable end to end: on the recorded Mac built from real captures, and on this
// machine with a folder another user may not read.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "tests/cli/run_orvane.hpp"

namespace orvane {
namespace {

using testing::CommandCase;
using C = CommandCase;
const std::string& kAlex = testing::kAlexReplay;

TEST(StorageCommand, TheRecordedMac) {
    testing::TempDir scratch;
    const auto o = testing::runOrvane(kAlex + "storage --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    const auto json = nlohmann::json::parse(o.out);
    // The recorded Mac's own figures, and nothing scanned under a recording.
    EXPECT_EQ(json["path"], "/Users/alex");
    EXPECT_EQ(json["scanned"], 0);
    EXPECT_EQ(json["reconciliation"]["capacity"], 499963174912);
    EXPECT_EQ(json["reconciliation"]["purgeable"], 52428800000 - 31457280000);
    // Mojave's container: disk1 holds the boot volume; the volume without a role counts as a sibling.
    EXPECT_EQ(json["container"]["reference"], "disk1");
    EXPECT_EQ(json["container"]["volumes"][3]["name"], "VM");
    EXPECT_EQ(json["container"]["volumes"][3]["role"], "VM");
    EXPECT_EQ(json["pinningSnapshots"], 1);
    const auto& facts = json["reconciliation"]["facts"];
    ASSERT_EQ(facts.size(), 8u);
    EXPECT_EQ(facts[2]["label"], "Time Machine local snapshots");
    EXPECT_EQ(facts[2]["confidence"], "Not knowable");
    // The first listed snapshot is marked "(dataless)" and still counts.
    EXPECT_EQ(facts[2]["what"].get<std::string>().rfind("7 snapshots of your disk", 0), 0u) << facts[2]["what"];
    EXPECT_EQ(facts[6]["confidence"], "Permission-limited");  // Safari and Mail refused
    EXPECT_EQ(json["fullDiskAccess"], false);
    EXPECT_EQ(json["unreadable"].size(), 3u);
    EXPECT_EQ(json["unreadable"][0]["browser"], "Chrome");
    EXPECT_EQ(json["skipped"][0]["title"], "iCloud Drive");
    bool snapshotsLine = false;
    for (const auto& line : json["systemData"]["lines"])
        if (line["id"] == "snapshots") snapshotsLine = line["action"] == nlohmann::json{{"thinSnapshots", nlohmann::json::object()}};
    EXPECT_TRUE(snapshotsLine);
}

TEST(StorageCommand, StatusAndAnswer) {
    const C cases[] = {
        {kAlex + "storage --scanned 1000", 0, C::out, "The scan itemised 1 KB.", C::contains},
        {kAlex + "storage", 0, C::out, "Volumes of the container disk1 (499.96 GB, ", C::contains},
        {kAlex + "storage --scanned many", 2, C::err,
         "orvane: --scanned takes a whole number of bytes, such as 120000000000, not \"many\".\n"},
        {kAlex + "storage --scanned -5", 2, C::err, "--scanned takes a whole number", C::contains},
        {kAlex + "storage /Users/nobody", 2, C::err, "orvane: /Users/nobody is not a folder.\n"},
        {"storage /proc/self", 2, C::err, "is not on the disk of the home folder", C::contains},
        {kAlex + "unreadable", 1, C::out, "Chrome data couldn't be checked: needs Full Disk Access.", C::contains},
        {kAlex + "unreadable /Users/alex/Documents", 0, C::out, "Every folder could be read.\n", C::contains},
    };
    testing::expectCommands(cases);
}

// What this machine's own kernel refuses, seen by a user who is not root.
TEST(UnreadableCommand, ARealRefusal) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to make a folder another user cannot read";
    const auto setup = [](const testing::TempDir& d) {
        for (const char* folder :
             {"home/open", "home/secret/inner", "home/Library/Application Support/Firefox/x", "home/Library/Mail/V10"})
            std::filesystem::create_directories(d / folder);
        ::chmod(d.path().c_str(), 0755);
        // Mail is the one Full Disk Access probe there, and it is refused: access counts as not granted.
        for (const char* folder : {"home/secret", "home/Library/Application Support/Firefox", "home/Library/Mail"})
            ::chmod((d / folder).c_str(), 0700);
    };
    const C cases[] = {
        {"unreadable --json {D}/home", 1, C::out,
         R"("path": "{D}/home/Library/Application Support/Firefox",
      "reason": "browserNeedsFullDiskAccess",
      "browser": "Firefox",)",
         C::contains, setup, "runuser -u nobody -- env HOME={D}/home"},
        {"unreadable {D}/home", 1, C::out, "  {D}/home/secret\n", C::contains, setup, "runuser -u nobody -- env HOME={D}/home"},
        {"unreadable {D}/home/open", 0, C::out, "Every folder could be read.\n", C::contains, setup,
         "runuser -u nobody -- env HOME={D}/home"},
    };
    testing::expectCommands(cases);
}

}  // namespace
}  // namespace orvane
