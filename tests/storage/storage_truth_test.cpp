#include "core/storage/storage_truth.hpp"

#include <gtest/gtest.h>

#include "tests/storage/storage_fixtures.hpp"

namespace orvane {
namespace {

using testing::FakeMac;
using C = StorageConfidence;

const std::vector<std::string> kTmutil = {"/usr/bin/tmutil", "listlocalsnapshots", "/"};
const std::vector<std::string> kApfsList = {"/usr/sbin/diskutil", "apfs", "list", "-plist"};
const std::vector<std::string> kPinning = {"/usr/sbin/diskutil", "apfs", "listSnapshots", "-plist",
                                           "/System/Volumes/Data"};
const std::vector<std::string> kLsof = {"/usr/sbin/lsof", "-n", "-P", "+L1", "-Fcsi"};

std::vector<std::string> pinningList(int limiting, int others) {
    std::vector<std::string> lines = {"<plist version=\"1.0\"><dict><key>Snapshots</key><array>"};
    for (int i = 0; i < limiting + others; ++i)
        lines.push_back(std::string("<dict><key>LimitingContainerShrink</key>") + (i < limiting ? "<true/>" : "<false/>") +
                        "</dict>");
    lines.push_back("</array></dict></plist>");
    return lines;
}

struct Reconciled {
    StorageTruth::Reconciliation r;
    const StorageFact* find(std::string_view label) const {
        for (const auto& fact : r.facts)
            if (fact.label == label) return &fact;
        return nullptr;
    }
};

Reconciled reconcileOn(const FakeMac& mac, std::int64_t scanned, std::int64_t cloud = 0) {
    Facts facts = mac.facts();
    facts.home = [](std::string_view component) { return appendingPathComponent("/Users/a", component); };
    return {StorageTruth::reconcile(scanned, cloud, facts)};
}

FakeMac macWith(std::int64_t total, std::int64_t available, std::optional<std::int64_t> important) {
    FakeMac mac;
    mac.volume = {total, available, important};
    return mac;
}

TEST(Reconcile, FiguresAndTheRestAtTheEdges) {
    // Important usage below what is free gives no negative purgeable; missing, it is what is free.
    auto r = reconcileOn(macWith(1000, 400, 300), 100).r;
    EXPECT_EQ((std::array{r.capacity, r.freeNow, r.freeIfPurged, r.purgeable, r.used, r.attributed}),
              (std::array<std::int64_t, 6>{1000, 400, 300, 0, 600, 100}));
    EXPECT_EQ(reconcileOn(macWith(1000, 400, std::nullopt), 0).r.freeIfPurged, 400);
    EXPECT_EQ(reconcileOn(macWith(1000, 400, 700), 0).r.purgeable, 300);

    const struct {
        std::int64_t scanned;
        std::optional<std::int64_t> rest;
        C confidence;
    } cases[] = {
        {100, 500, C::estimated},
        {600, 0, C::estimated},  // everything itemised: a true zero
        {601, std::nullopt, C::unavailable},  // more than used: never shown as 0
        {-1, std::nullopt, C::unavailable},
    };
    for (const auto& c : cases) {
        const auto rest = reconcileOn(macWith(1000, 400, 400), c.scanned).r.facts.back();
        EXPECT_EQ(rest.label, "System and everything not itemised");
        EXPECT_EQ(rest.bytes, c.rest) << c.scanned;
        EXPECT_EQ(rest.confidence, c.confidence) << c.scanned;
        EXPECT_EQ(rest.pageID, "map");
    }
    // A volume query that failed leaves zeros, and then no subtraction means anything.
    EXPECT_EQ(reconcileOn(FakeMac{}, 0).r.facts.back().bytes, std::nullopt);
}

TEST(Reconcile, CloudAndOpenFiles) {
    for (std::int64_t cloud : {0, -5}) {
        const auto fact = *reconcileOn(FakeMac{}, 0, cloud).find("Cloud files that aren't really here");
        EXPECT_EQ(fact.confidence, C::notMeasured);
        EXPECT_EQ(fact.bytes, std::nullopt);
        EXPECT_TRUE(fact.what.ends_with("choose “Look in the cloud” to measure yours.")) << fact.what;
    }
    EXPECT_EQ(reconcileOn(FakeMac{}, 0, 42).find("Cloud files that aren't really here")->bytes, 42);

    FakeMac mac;
    mac.tools[kLsof] = testing::printed({"p10", "cmail", "f5", "s4096", "i77"});
    auto open = *reconcileOn(mac, 0).find("Deleted files still being held open");
    EXPECT_EQ(open.bytes, 4096);
    EXPECT_EQ(open.confidence, C::permissionLimited);
    mac.tools[kLsof] = testing::printed({});
    open = *reconcileOn(mac, 0).find("Deleted files still being held open");
    EXPECT_EQ(open.bytes, std::nullopt);
    EXPECT_EQ(open.confidence, C::permissionLimited);
    mac.tools[kLsof] = testing::timedOut();
    EXPECT_EQ(reconcileOn(mac, 0).find("Deleted files still being held open")->confidence, C::unavailable);
}

TEST(Reconcile, ContainerAndSnapshots) {
    FakeMac mac = macWith(1000, 400, 400);
    EXPECT_EQ(reconcileOn(mac, 0).r.facts.size(), 7u);  // no container report: no line for other volumes
    mac.tools[kApfsList] = testing::printed(testing::apfsList("disk3", {{"disk3s5", "Data", "Data", 900}}));
    EXPECT_EQ(reconcileOn(mac, 0).find("Other volumes on this disk"), nullptr);

    mac.tools[kApfsList] = testing::printed(testing::apfsList(
        "disk3", {{"disk3s1", "Macintosh HD", "System", 11'000'000'000},
                  {"disk3s2", "Preboot", "Preboot", 7'000'000'000},
                  {"disk3s5", "Data", "Data", 900},
                  {"disk3s3", "Recovery", "Recovery", 1'000'000'000},
                  {"disk3s6", "VM", "VM", 2'000'000'000},
                  {"disk3s7", "Update", "Update", 5'000'000}}));
    const auto r = reconcileOn(mac, 0);
    ASSERT_EQ(r.r.facts.size(), 8u);
    const StorageFact& others = r.r.facts[1];
    EXPECT_EQ(others.bytes, 21'005'000'000);
    EXPECT_EQ(others.what,
              "Your disk is one APFS container holding several volumes that share its 994.66 GB: Macintosh HD 11 GB, "
              "Preboot 7 GB, VM 2 GB, Recovery 1 GB. They are not folders, so no scan of your files can reach them.");

    auto snapshots = *r.find("Time Machine local snapshots");
    EXPECT_EQ(snapshots.what, "None on this Mac right now.");
    EXPECT_EQ(snapshots.confidence, C::measured);
    EXPECT_EQ(snapshots.pageID, std::nullopt);

    mac.tools[kTmutil] = testing::printed(testing::capturedLines("tmutil", "listlocalsnapshots-2025-duplicati6409.txt"));
    const struct {
        int limiting;
        const char* ending;
    } cases[] = {
        {0, "restore without the backup drive attached."},
        {1, " 1 of them currently limits how far the disk can shrink, which is why some space cannot be reclaimed "
            "even when nothing is using it."},
        {2, " 2 of them currently limit how far"},
    };
    for (const auto& c : cases) {
        mac.tools[kPinning] = testing::printed(pinningList(c.limiting, 1));
        snapshots = *reconcileOn(mac, 0).find("Time Machine local snapshots");
        EXPECT_NE(snapshots.what.find(c.ending), std::string::npos) << snapshots.what;
        EXPECT_EQ(snapshots.confidence, C::unavailable);
        EXPECT_EQ(snapshots.bytes, std::nullopt);
        EXPECT_EQ(snapshots.pageID, "items");
    }
}

TEST(StorageResidual, OnlyWhenMeaningful) {
    EXPECT_EQ(storageResidual(100, 40), 60);
    EXPECT_EQ(storageResidual(100, 100), 0);
    EXPECT_EQ(storageResidual(100, 101), std::nullopt);
    EXPECT_EQ(storageResidual(100, -1), std::nullopt);
    EXPECT_EQ(storageResidual(0, 0), std::nullopt);
}

}  // namespace
}  // namespace orvane
