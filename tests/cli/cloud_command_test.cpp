// orvane cloud end to end: the recorded Mac of alex, whose Google Drive holds placeholders of a
// video saved twice and a scan filed under another name, and folders made here.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/run_orvane.hpp"

namespace orvane {
namespace {

using testing::CommandCase;
using C = CommandCase;
using Json = nlohmann::json;

TEST(CloudCommand, TheRecordedMac) {
    testing::TempDir scratch;
    const auto o = testing::runOrvane(testing::kAlexReplay + "cloud --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    const Json json = Json::parse(o.out);
    ASSERT_EQ(json["providers"].size(), 2u);
    const Json& drive = json["providers"][1];
    const std::string root = "/Users/alex/Library/CloudStorage/GoogleDrive-alex@Example.com";
    EXPECT_EQ(drive["provider"], "GoogleDrive");
    EXPECT_EQ(drive["account"], "connected (account at example.com)");
    EXPECT_EQ(drive["root"], root);
    EXPECT_EQ(drive["files"], 5);
    EXPECT_EQ(drive["cloudOnly"], 3);
    EXPECT_EQ(drive["opaque"], 1);
    EXPECT_EQ(drive["remoteBytes"], 8'404'800'000);
    EXPECT_EQ(drive["localBytes"], 2'404'352);
    EXPECT_EQ(drive["largest"][0]["modified"], "2024-04-20T18:30:12Z");

    const Json& groups = drive["dupeGroups"];
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(groups[0]["id"], root + "/My Drive/Wedding.mov");
    EXPECT_EQ(groups[0]["confidence"], "High confidence");
    EXPECT_EQ(groups[0]["reclaimable"], 4'200'000'000);
    EXPECT_EQ(groups[0]["files"][1]["path"], root + "/My Drive/Backup/Wedding (1).mov");
    EXPECT_EQ(groups[0]["files"][1]["onDisk"], false);
    EXPECT_EQ(groups[0]["signals"].back()["label"], "Contents not compared");
    EXPECT_EQ(groups[1]["confidence"], "Probable");
    EXPECT_EQ(groups[1]["signals"][4]["detail"],
              "1 of 2 also occupy space on this Mac, so removing them frees both the plan and this disk.");
    EXPECT_EQ(json["providers"][0]["provider"], "Dropbox");
    EXPECT_EQ(json["caveat"],
              "Velloran Orvane can't verify the contents without downloading both copies, so the final call is yours.");

    const C cases[] = {
        {testing::kAlexReplay + "cloud", 0, C::out,
         "GoogleDrive, connected (account at example.com)\n"
         "  " + root + "\n"
         "  5 files, 3 only in the cloud, 1 cloud document whose real size can't be read here\n"
         "  In the cloud: 8.4 GB · here: 2.4 MB\n",
         C::contains},
        {testing::kAlexReplay + "cloud", 0, C::out,
         "  High confidence — 2 files of 4.2 GB each, 4.2 GB reclaimable\n", C::contains},
        {testing::kAlexReplay + "cloud /Users/alex/Music --provider Music", 0, C::out, "Music\n  /Users/alex/Music\n",
         C::contains},
        {"cloud", 0, C::out, "No cloud folder in {D}/Library/CloudStorage.\n", C::whole, {}, "HOME={D}"},
        {"cloud {D}/missing", 2, C::err, "orvane: {D}/missing is not a folder.\n"},
    };
    testing::expectCommands(cases);
}

}  // namespace
}  // namespace orvane
