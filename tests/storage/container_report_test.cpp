#include "core/storage/container_report.hpp"

#include <gtest/gtest.h>

#include "tests/storage/storage_fixtures.hpp"

namespace orvane {
namespace {

using testing::apfsList;
using testing::capturedLines;
using testing::FakeMac;
using testing::printed;

TEST(ContainerReport, ReferenceNamesTheWholeContainer) {
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"/dev/disk3s1s1", "disk3"}, {"/dev/disk12s5", "disk12"},    {"disk4", "disk4"}, {"/dev/sda1", std::nullopt},
        {"/dev/disk", std::nullopt}, {"/dev/diskXs1", std::nullopt}, {"", std::nullopt}, {"/dev/disk3/", std::nullopt},
    };
    for (const auto& [device, reference] : cases) EXPECT_EQ(containerReference(device), reference) << device;
}

TEST(ContainerReport, ReadsTheRealMojaveListing) {
    const auto lines = capturedLines("diskutil", "apfs-list-plist-mojave-eden.plist");
    const auto report = parseContainerReport(lines, "disk1");
    ASSERT_TRUE(report);
    EXPECT_EQ(report->capacity, 499963174912);
    EXPECT_EQ(report->free, 30714478592);
    ASSERT_EQ(report->volumes.size(), 7u);
    EXPECT_EQ(report->volumes[0], (ContainerVolume{"disk1s1", "Macintosh HD", "", 461308219392}));
    EXPECT_EQ(report->volumes[3], (ContainerVolume{"disk1s4", "VM", "VM", 6442676224}));
    // Mojave gives its data volume no role, so every volume counts as a sibling.
    EXPECT_EQ(report->siblingBytes(), 461308219392 + 43061248 + 510382080 + 6442676224 + 790528 + 781156352 + 925696);

    EXPECT_EQ(parseContainerReport(lines, "disk2"), std::nullopt);
    EXPECT_EQ(parseContainerReport(lines, "disk"), std::nullopt);  // an exact match, not a prefix
    EXPECT_EQ(
        parseContainerReport(capturedLines("diskutil", "apfs-list-plist-applesilicon-iSC-fleet-edited.plist"), "disk1"),
        std::nullopt);
}

TEST(ContainerReport, MissingFieldsTakeTheirDefaultsAndWrongShapesGiveNone) {
    auto wrap = [](const std::string& containers) {
        return std::vector<std::string>{"<plist version=\"1.0\"><dict><key>Containers</key>" + containers +
                                        "</dict></plist>"};
    };
    // No capacity, a volume without name or roles, one with an empty role list.
    const auto sparse = parseContainerReport(
        wrap("<array><dict><key>ContainerReference</key><string>disk3</string><key>Volumes</key><array>"
             "<dict><key>CapacityInUse</key><integer>700</integer></dict>"
             "<dict><key>Name</key><string>Data</string><key>Roles</key><array><string>Data</string></array>"
             "<key>CapacityInUse</key><integer>5000</integer></dict>"
             "<dict><key>Roles</key><array/><key>CapacityInUse</key><real>20.9</real></dict>"
             "</array></dict></array>"),
        "disk3");
    ASSERT_TRUE(sparse);
    EXPECT_EQ(*sparse,
              (ContainerReport{"disk3", 0, 0, {{"", "—", "", 700}, {"", "Data", "Data", 5000}, {"", "—", "", 20}}}));
    EXPECT_EQ(sparse->siblingBytes(), 720);
    EXPECT_EQ(ContainerReport{}.siblingBytes(), 0);

    const std::string wrongShapes[] = {
        "<string>disk3</string>",
        "<array><string>disk3</string></array>",
        "<array><dict><key>ContainerReference</key><string>disk3</string></dict></array>",
        "<array><dict><key>ContainerReference</key><string>disk3</string><key>Volumes</key>"
        "<array><string>disk3s1</string></array></dict></array>",
    };
    for (const auto& containers : wrongShapes)
        EXPECT_EQ(parseContainerReport(wrap(containers), "disk3"), std::nullopt) << containers;
}

TEST(ContainerReport, BootReportAsksDiskutilAboutTheRootsContainer) {
    FakeMac mac;
    mac.rootDevice = "/dev/disk1s1s1";
    mac.tools[{"/usr/sbin/diskutil", "apfs", "list", "-plist"}] =
        printed(capturedLines("diskutil", "apfs-list-plist-mojave-eden.plist"));
    auto report = bootContainerReport(mac.facts());
    ASSERT_TRUE(report);
    EXPECT_EQ(report->reference, "disk1");
    EXPECT_EQ(
        mac.runs,
        (std::vector<std::vector<std::string>>{{"/usr/sbin/diskutil", "apfs", "list", "-plist", "20", "discarded"}}));

    mac.tools[{"/usr/sbin/diskutil", "apfs", "list", "-plist"}].timedOut = true;
    EXPECT_EQ(bootContainerReport(mac.facts()), std::nullopt);

    mac.runs.clear();
    mac.rootDevice = "/dev/sda1";
    EXPECT_EQ(bootContainerReport(mac.facts()), std::nullopt);
    EXPECT_TRUE(mac.runs.empty());
}

TEST(ContainerReport, PinningSnapshotsCountOnlyABooleanTrue) {
    const std::vector<std::string> listing = {
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
        "<plist version=\"1.0\">",
        "<dict>",
        "<key>Snapshots</key><array>",
        "<dict><key>SnapshotName</key><string>com.apple.TimeMachine.2025-07-10-054158.local</string>"
        "<key>LimitingContainerShrink</key><true/></dict>",
        "<dict><key>SnapshotName</key><string>a</string><key>LimitingContainerShrink</key><false/></dict>",
        "<dict><key>SnapshotName</key><string>b</string><key>LimitingContainerShrink</key><string>true</string></dict>",
        "<dict><key>SnapshotName</key><string>c</string></dict>",
        "</array>",
        "</dict>",
        "</plist>"};
    EXPECT_EQ(countPinningSnapshots(listing), 1);
    EXPECT_EQ(
        countPinningSnapshots({"<plist><dict><key>Snapshots</key><array><string>x</string></array></dict></plist>"}),
        0);
    EXPECT_EQ(countPinningSnapshots(capturedLines("diskutil", "apfs-list-plist-mojave-eden.plist")), 0);

    FakeMac mac;
    const std::vector<std::string> argv = {"/usr/sbin/diskutil", "apfs", "listSnapshots", "-plist",
                                           "/System/Volumes/Data"};
    mac.tools[argv] = printed(listing);
    EXPECT_EQ(snapshotsPinningContainer(mac.facts()), 1);
    mac.tools[argv].timedOut = true;
    EXPECT_EQ(snapshotsPinningContainer(mac.facts()), 0);
}

TEST(ContainerReport, JSONKeepsItsKeyOrder) {
    const ContainerReport report{"disk3", 1000, 400, {{"disk3s6", "VM", "VM", 30}, {"disk3s5", "Data", "Data", 500}}};
    EXPECT_EQ(toJSON(report).dump(), R"({"reference":"disk3","capacity":1000,"free":400,"siblingBytes":30,"volumes":[)"
                                     R"({"device":"disk3s6","name":"VM","role":"VM","bytesInUse":30},)"
                                     R"({"device":"disk3s5","name":"Data","role":"Data","bytesInUse":500}]})");
}

}  // namespace
}  // namespace orvane
