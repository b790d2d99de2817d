#include "core/safety/item_notes.hpp"

#include <gtest/gtest.h>

namespace orvane {
namespace {

TEST(OffVolumeNote, SummedPerDriveLargestFirst) {
    auto nowhere = [](const std::string&) { return false; };
    auto everywhere = [](const std::string&) { return true; };
    EXPECT_EQ(offVolumeNote({{"/Volumes/Drive/x", 2'000'000'000}}, everywhere), std::nullopt);
    EXPECT_EQ(offVolumeNote({}, nowhere), std::nullopt);
    EXPECT_EQ(offVolumeNote({{"/Volumes/Drive/x", 2'000'000'000}}, nowhere), "2 GB on Drive — not on this Mac");
    EXPECT_EQ(offVolumeNote({{"/Users/a/link", 5'000'000}}, nowhere), "5 MB on another drive — not on this Mac");
    EXPECT_EQ(offVolumeNote({{"/Volumes/Drive/x", 0}, {"/Volumes/Drive/y", -1}}, nowhere), std::nullopt);
    EXPECT_EQ(offVolumeNote({{"/Volumes//x", 1'000}, {"/Volumes/", 1'000}}, nowhere),
              "2 KB on another drive — not on this Mac");
    EXPECT_EQ(offVolumeNote({{"/Volumes/B/x", 1'000'000},
                             {"/Volumes/A/y", 1'000'000}, {"/Volumes/Big/z", 3'000'000}, {"/Volumes/B/w", 500'000},
                             {"/Volumes/Here/v", 9'000'000}},
                            [](const std::string& p) { return p.starts_with("/Volumes/Here"); }),
              "3 MB on Big, 1.5 MB on B, 1 MB on A — not on this Mac");
    EXPECT_EQ(offVolumeNote({{"/Volumes/B/x", 1'000'000}, {"/Volumes/A/y", 1'000'000}}, nowhere),
              "1 MB on A, 1 MB on B — not on this Mac");
}

TEST(HoldsActivationData, FragmentsNeedTheirSlashes) {
    struct Case {
        std::string path;
        bool expected;
    };
    const std::vector<Case> cases = {
        {"/Library/Application Support/PACE", true}, {"/Library/Application Support/PACE/x", true},
        {"/Users/a/space/x", false}, {"/Library/Application Support/iLok License Manager", true},
        {"/Library/Application Support/Native Instruments/Service Center/x.xml", true},
        {"/Library/Application Support/Waves/Licenses", true},
        {"/Library/Application Support/Plugin Alliance/Licenses", true},
        {"/Library/Application Support/Waves/Plugins", false}, {"/Users/a/Music/Ableton/Live/Unlock", true},
        {"/Users/a/ableton/live", false},
    };
    for (const auto& c : cases) EXPECT_EQ(holdsActivationData(c.path), c.expected) << c.path;
}

}  // namespace
}  // namespace orvane
