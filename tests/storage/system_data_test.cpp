#include "core/storage/system_data.hpp"

#include <gtest/gtest.h>

#include "core/storage/apple_models.hpp"
#include "tests/storage/storage_fixtures.hpp"

namespace orvane {
namespace {

using testing::apfsList;
using testing::capturedLines;
using testing::FakeMac;
using testing::printed;
using namespace system_data_action;

constexpr const char* kHome = "/Users/alex";
const std::string kAssets = "/System/Library/AssetsV2";
const std::string kLanguageModels = kAssets + "/com_apple_MobileAsset_UAF_FM_GenerativeModels";
const std::string kSiriModels = kAssets + "/com_apple_MobileAsset_UAF_Siri_Understanding";
const std::string kTemporary = "/var/folders/xy/abc123";
const std::string kSpotlight = "/System/Volumes/Data/.Spotlight-V100";
const std::string kDockerVMs = "/Users/alex/Library/Containers/com.docker.docker/Data/vms";
const std::string kUTM = "/Users/alex/Library/Containers/com.utmapp.UTM/Data/Documents";

ToolResult du(std::vector<std::string> lines, std::vector<std::string> errLines = {}) {
    ToolResult result = printed(std::move(lines));
    result.errLines = std::move(errLines);
    return result;
}

// Used: 7,000,000 bytes; a scan of 2,000,000; something on every line.
FakeMac aMac() {
    FakeMac mac;
    mac.volume = {10'000'000, 3'000'000, 3'500'000};
    mac.tools[{"/usr/bin/tmutil", "listlocalsnapshots", "/"}] =
        printed(capturedLines("tmutil", "listlocalsnapshots-2025-duplicati6409.txt"));
    mac.tools[{"/usr/sbin/diskutil", "apfs", "list", "-plist"}] =
        printed(apfsList("disk3", {{"disk3s1", "Macintosh HD", "System", 10'000},
                                   {"disk3s5", "Data", "Data", 500'000},
                                   {"disk3s6", "VM", "VM", 20'000},
                                   {"disk3s2", "Preboot", "Preboot", 0},
                                   {"disk3s3", "xART", "xART", 1'000}}));
    mac.files["/private/var/vm/sleepimage"] = 8'192;
    mac.folders = {kAssets,    kLanguageModels, kSiriModels, kAssets + "/com_apple_MobileAsset_Font7",
                   kSpotlight, kDockerVMs,      kUTM};
    mac.tools[{"/usr/bin/du", "-skx", "--", kLanguageModels, kSiriModels}] =
        du({"30\t" + kLanguageModels, "10\t" + kSiriModels});
    mac.tools[{"/usr/bin/du", "-sxk", kTemporary}] =
        du({"4\t" + kTemporary}, {"du: " + kTemporary + "/0: Permission denied"});
    mac.refused = {kSpotlight};
    mac.tools[{"/usr/bin/du", "-sxk", kDockerVMs}] = du({"1000\t" + kDockerVMs});
    mac.tools[{"/usr/bin/du", "-sxk", kUTM}] = du({"0\t" + kUTM});
    mac.tools[{kMacLsofTool, "-n", "-P", "+L1", "-Fcsi"}] = printed({"p1", "cA", "s5000", "i7"});
    return mac;
}

struct Asked {
    std::int64_t scanned = 2'000'000;
    int unreadable = 2;
    bool fixable = true;
};

SystemDataReport measureOn(const FakeMac& mac, Asked asked = {}) {
    const std::set<std::string> counted = {"container:disk3s1", "zombies"};
    return SystemDataReport::measure(
        asked.scanned, [&](const std::string& key) { return counted.contains(key); }, asked.unreadable, asked.fixable,
        300'000, kHome, mac.facts());
}

const SystemDataLine* lineOf(const SystemDataReport& report, std::string_view id) {
    for (const auto& line : report.lines)
        if (line.id == id) return &line;
    return nullptr;
}

TEST(SystemData, ItemisesEveryPartOfAMac) {
    const auto report = measureOn(aMac());
    std::vector<std::string> ids;
    for (const auto& line : report.lines) ids.push_back(line.id);
    EXPECT_EQ(ids, (std::vector<std::string>{"purgeable", "snapshots", "vol:Macintosh HD", "vol:VM", "vol:xART",
                                             "sleepimage", "models", "tmp", "spotlight", "vm:Docker", "simulators",
                                             "open-deleted", "unreadable", "clones"}));
    EXPECT_EQ(report.used, 7'000'000);
    // Subtracted: VM, xART, the sleep image, the models, tmp and Docker. Purgeable overlaps; the
    // System volume, the simulators and the open files are in the scan.
    EXPECT_EQ(report.unexplained, 7'000'000 - 2'000'000 - (20'000 + 1'000 + 8'192 + 40'960 + 4'096 + 1'024'000));

    const auto& snapshots = *lineOf(report, "snapshots");
    EXPECT_EQ(snapshots.detail,
              "2 local snapshots, the oldest made 2 days ago, the newest 1 day ago. macOS doesn't say how much space "
              "a snapshot holds, so this is an estimate: at most the purgeable space above. Thinning asks macOS to "
              "remove the ones it can spare.");
    EXPECT_EQ(snapshots.confidence, StorageConfidence::estimated);
    EXPECT_EQ(lineOf(report, "vol:xART")->label, "xART volume");
    EXPECT_EQ(lineOf(report, "purgeable")->bytes, 500'000);
    EXPECT_EQ(lineOf(report, "tmp")->confidence, StorageConfidence::permissionLimited);
    EXPECT_EQ(lineOf(report, "spotlight")->confidence, StorageConfidence::unavailable);
    EXPECT_EQ(lineOf(report, "spotlight")->bytes, std::nullopt);
    const auto& docker = *lineOf(report, "vm:Docker");
    EXPECT_EQ(docker.detail,
              "A virtual machine's disk inside Docker's own folder. Shrink or remove it from Docker itself; deleting "
              "the file by hand can break the app.");
    EXPECT_EQ(docker.action, SystemDataAction(OpenApp{"com.docker.docker", "Docker"}));
    EXPECT_EQ(lineOf(report, "unreadable")->detail,
              "2 folders macOS kept from the scan. Their size is somewhere in the unexplained part below. They're "
              "listed on this page.");
}

TEST(SystemData, EdgesOfAMac) {
    struct Case {
        std::string name;
        std::function<void(FakeMac&, Asked&)> change;
        std::function<void(const SystemDataReport&)> check;
    };
    const Case cases[] = {
        {"the scan and the lines pass used: no unexplained rest, never a negative one",
         [](FakeMac&, Asked& asked) { asked.scanned = 6'000'000; },
         [](const SystemDataReport& r) { EXPECT_EQ(r.unexplained, std::nullopt); }},
        {"no snapshots: measured, and nothing to thin",
         [](FakeMac& mac, Asked&) {
             mac.tools.erase({"/usr/bin/tmutil", "listlocalsnapshots", "/"});
         },
         [](const SystemDataReport& r) {
             EXPECT_EQ(
                 *lineOf(r, "snapshots"),
                 (SystemDataLine{"snapshots", "Time Machine local snapshots", std::nullopt, StorageConfidence::measured,
                                 "None on this Mac right now.", false, false, std::nullopt}));
         }},
        {"one unreadable folder that access would not fix",
         [](FakeMac&, Asked& asked) {
             asked.unreadable = 1;
             asked.fixable = false;
         },
         [](const SystemDataReport& r) {
             EXPECT_TRUE(lineOf(r, "unreadable")->detail.starts_with("1 folder macOS kept from the scan."));
             EXPECT_EQ(lineOf(r, "unreadable")->action, std::nullopt);
         }},
        {"nothing unreadable, no line", [](FakeMac&, Asked& asked) { asked.unreadable = 0; },
         [](const SystemDataReport& r) { EXPECT_EQ(lineOf(r, "unreadable"), nullptr); }},
        {"a VM folder that does not exist gives no line", [](FakeMac& mac, Asked&) { mac.folders.erase(kDockerVMs); },
         [](const SystemDataReport& r) { EXPECT_EQ(lineOf(r, "vm:Docker"), nullptr); }},
        {"a readable index is measured",
         [](FakeMac& mac, Asked&) {
             mac.refused.clear();
             mac.tools[{"/usr/bin/du", "-sxk", kSpotlight}] = du({"2048\t" + kSpotlight});
         },
         [](const SystemDataReport& r) {
             EXPECT_EQ(lineOf(r, "spotlight")->bytes, 2'097'152);
             EXPECT_EQ(lineOf(r, "spotlight")->confidence, StorageConfidence::measured);
         }},
        {"an index du could not read fully is not knowable",
         [](FakeMac& mac, Asked&) {
             mac.refused.clear();
             mac.tools[{"/usr/bin/du", "-sxk", kSpotlight}] =
                 du({"2048\t" + kSpotlight}, {"du: " + kSpotlight + "/Store-V2: Operation not permitted"});
         },
         [](const SystemDataReport& r) { EXPECT_EQ(lineOf(r, "spotlight")->bytes, std::nullopt); }},
        {"no container report, no sleep image, no models, no lsof: those lines are left out",
         [](FakeMac& mac, Asked&) {
             mac.rootDevice = "/dev/sda1";
             mac.files.clear();
             mac.folders.erase(kAssets);
             mac.tools.erase({kMacLsofTool, "-n", "-P", "+L1", "-Fcsi"});
         },
         [](const SystemDataReport& r) {
             for (const char* id : {"vol:VM", "sleepimage", "models", "open-deleted"})
                 EXPECT_EQ(lineOf(r, id), nullptr) << id;
         }},
        {"a temporary folder outside /var/folders gives no line",
         [](FakeMac& mac, Asked&) { mac.temporaryFolder = "/tmp"; },
         [](const SystemDataReport& r) { EXPECT_EQ(lineOf(r, "tmp"), nullptr); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        FakeMac mac = aMac();
        Asked asked;
        c.change(mac, asked);
        c.check(measureOn(mac, asked));
    }
}

TEST(SystemData, UnexplainedSubtractsOnlyWhatNothingElseCounted) {
    auto line = [](std::optional<std::int64_t> bytes, bool inScan, bool overlaps) {
        SystemDataLine l;
        l.bytes = bytes;
        l.inScan = inScan;
        l.overlaps = overlaps;
        return l;
    };
    const std::vector<SystemDataLine> lines = {line(100, false, false), line(1'000, true, false),
                                               line(1'000, false, true), line(-50, false, false),
                                               line(std::nullopt, false, false)};
    struct Case {
        std::int64_t used, scanned;
        std::optional<std::int64_t> unexplained;
    };
    const Case cases[] = {
        {1'000, 500, 400}, {600, 500, 0}, {599, 500, std::nullopt}, {0, 0, std::nullopt}, {1'000, -1, std::nullopt}};
    for (const auto& c : cases)
        EXPECT_EQ(systemDataUnexplained(c.used, c.scanned, lines), c.unexplained) << c.used << " " << c.scanned;
    EXPECT_EQ(systemDataUnexplained(kMaxByteCount, 0, {line(kMaxByteCount, false, false), line(2, false, false)}),
              std::nullopt);
}

TEST(SystemData, BreakdownPartsAlwaysAddUp) {
    struct Case {
        std::int64_t total, purgeable, swap;
        SystemDataBreakdown expected;
    };
    const Case cases[] = {
        {100, 30, 20, {100, 30, 20}}, {100, 130, 20, {100, 100, 0}}, {100, 30, 90, {100, 30, 70}},
        {-5, 30, 20, {0, 0, 0}},      {100, -30, -20, {100, 0, 0}},
    };
    for (const auto& c : cases) {
        const SystemDataBreakdown b(c.total, c.purgeable, c.swap);
        EXPECT_EQ(b, c.expected) << c.total << " " << c.purgeable << " " << c.swap;
        EXPECT_EQ(b.purgeable + b.swap + b.rest, b.total);
    }
}

TEST(SystemData, JSONOfLinesAndReport) {
    auto report = measureOn(aMac());
    EXPECT_EQ(toJSON(*lineOf(report, "snapshots"))["action"].dump(), R"({"thinSnapshots":{}})");
    EXPECT_EQ(toJSON(*lineOf(report, "vm:Docker")).dump(),
              R"({"id":"vm:Docker","label":"Docker virtual machine","bytes":1024000,"confidence":"Measured",)"
              R"("detail":"A virtual machine's disk inside Docker's own folder. Shrink or remove it from Docker )"
              R"(itself; deleting the file by hand can break the app.","inScan":false,"overlaps":false,)"
              R"("subtracted":true,"action":{"openApp":{"bundleID":"com.docker.docker","name":"Docker"}}})");
    EXPECT_EQ(toJSON(*lineOf(report, "simulators"))["action"].dump(), R"({"janitor":{"id":"simctl"}})");
    const auto clones = toJSON(*lineOf(report, "clones"));
    EXPECT_TRUE(clones["bytes"].is_null() && clones["action"].is_null());
    EXPECT_EQ(clones["confidence"], "Not knowable");

    report.unexplained.reset();
    const auto json = toJSON(report);
    std::vector<std::string> keys;
    for (const auto& [key, value] : json.items()) keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"used", "scanned", "lines", "unexplained"}));
    EXPECT_TRUE(json["unexplained"].is_null());
    EXPECT_EQ(json["lines"].size(), report.lines.size());
}

TEST(AppleModels, FoldersGroupIntoFamiliesBiggestFirst) {
    EXPECT_EQ(appleModelFamily(kAssets + "/com_apple_MobileAsset_UAF_Siri_TextToSpeech_en").name, "Siri voices");
    EXPECT_EQ(appleModelFamily("com_apple_MobileAsset_UAF_Siri_Understanding").name, "Siri understanding");
    EXPECT_EQ(appleModelFamily("/x/SummarizationKit").name, "Apple Intelligence language models");
    EXPECT_EQ(appleModelFamily("/x/com_apple_MobileAsset_UAF_Font").name, "Other on-device models");

    const std::map<std::string, std::int64_t> sizes = {
        {"/a/com_apple_MobileAsset_UAF_FM_A", 100},        {"/a/com_apple_MobileAsset_UAF_Photos_A", 300},
        {"/a/com_apple_MobileAsset_UAF_FM_B", 200},        {"/a/com_apple_MobileAsset_UAF_Speech_A", -1},
        {"/a/com_apple_MobileAsset_UAF_Translation_A", 0}, {"/a/com_apple_MobileAsset_UAF_IF_A", 300}};
    std::vector<std::pair<std::string, std::int64_t>> families;
    for (const auto& f : appleModelFamilies(sizes)) families.emplace_back(f.name, f.bytes);
    EXPECT_EQ(families, (std::vector<std::pair<std::string, std::int64_t>>{
                            {"Apple Intelligence language models", 300},  // first seen of the two at 300
                            {"Apple Intelligence planning", 300},
                            {"Photos features", 300}}));

    FakeMac mac = aMac();
    mac.tools[{"/usr/bin/du", "-skx", "--", kLanguageModels, kSiriModels}] =
        du({"30\t" + kLanguageModels}, {"du: " + kSiriModels + "/x: Permission denied"});
    const auto measured = measureAppleModelFamilies(kAssets, mac.facts());
    EXPECT_EQ(measured.total, 30'720);
    EXPECT_TRUE(measured.partial);
    EXPECT_EQ(measureAppleModelFamilies("/nowhere", mac.facts()), AppleModelMeasurement{});
}

}  // namespace
}  // namespace orvane
