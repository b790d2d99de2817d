#include "core/storage/local_snapshots.hpp"

#include <gtest/gtest.h>

#include "tests/storage/storage_fixtures.hpp"

namespace orvane {
namespace {

using testing::capturedLines;
using testing::FakeMac;
using testing::localTime;
using testing::printed;

using Dates = std::vector<std::string>;

TEST(LocalSnapshots, DatesOfTheRealListings) {
    const std::pair<std::string, Dates> cases[] = {
        {"listlocalsnapshots-2023-hacktricks.txt", {"2023-05-29-001751"}},
        {"listlocalsnapshots-2025-duplicati6409.txt", {"2025-07-10-054158", "2025-07-11-062316"}},
        // A snapshot marked " (dataless)" still exists.
        {"listlocalsnapshots-sonoma14.4-volumegroup-dataless-superfile126.txt",
         {"2023-09-12-174710", "2024-05-10-113226", "2024-05-10-123328", "2024-05-10-133146", "2024-05-10-143817", "2024-05-10-154314",
          "2024-05-10-155305"}},
        {"listlocalsnapshots-highsierra-single-line-dataless-SE115868.txt", {"2017-12-23-090037"}},
    };
    for (const auto& [file, dates] : cases) {
        const auto lines = capturedLines("tmutil", file);
        ASSERT_FALSE(lines.empty()) << file;
        EXPECT_EQ(snapshotDates(lines), dates) << file;
    }
}

TEST(LocalSnapshots, OneLineGivesADateOnlyInTheExactShape) {
    const std::pair<std::string, std::optional<std::string>> cases[] = {
        {"  com.apple.TimeMachine.2023-05-29-001751.local\r\n", "2023-05-29-001751"},
        {"com.apple.TimeMachine.2017-12-23-090037", "2017-12-23-090037"},
        {"Snapshots for disk /:", std::nullopt},
        {"com.apple.TimeMachine.2023-05-29-001751.local.local", std::nullopt},
        {"com.apple.TimeMachine.2023-05-29-001751 (dataless) (dataless)", std::nullopt},
        {"com.apple.TimeMachine.2023-05-29-00175", std::nullopt},
        {"com.apple.TimeMachine.2023-05-29T001751", std::nullopt},
        {"com.apple.TimeMachine.2023-05-29-00175x", std::nullopt},
        {"com.apple.timemachine.2023-05-29-001751", std::nullopt},
        {"2023-05-29-001751", std::nullopt},
    };
    for (const auto& [line, date] : cases) EXPECT_EQ(snapshotDate(line), date) << line;
}

TEST(LocalSnapshots, SummaryCountsEveryDateAndAgesThoseThatAreRealTimes) {
    const TimePoint now = localTime(2025, 7, 12, 6, 23, 16);
    const std::pair<Dates, std::string> cases[] = {
        {{}, "None on this Mac right now."},
        {{"2025-07-12-052316"}, "1 local snapshot, made 1 hour ago."},
        {{"2025-07-11-062316", "2025-07-10-054158"},
         "2 local snapshots, the oldest made 2 days ago, the newest 1 day ago."},
        {{"2025-07-11-062316", "2025-02-30-000000"}, "2 local snapshots, made 1 day ago."},
        {{"2025-13-01-000000"}, "1 local snapshot."},
    };
    for (const auto& [dates, summary] : cases) EXPECT_EQ(snapshotSummary(dates, now), summary);
}

TEST(LocalSnapshots, AsksTmutilAboutTheRoot) {
    FakeMac mac;
    mac.tools[{"/usr/bin/tmutil", "listlocalsnapshots", "/"}] =
        printed(capturedLines("tmutil", "listlocalsnapshots-2023-hacktricks.txt"));
    EXPECT_EQ(localSnapshotDates(mac.facts()), Dates{"2023-05-29-001751"});
    EXPECT_EQ(mac.runs.front(),
              (std::vector<std::string>{"/usr/bin/tmutil", "listlocalsnapshots", "/", "15", "discarded"}));
}

}  // namespace
}  // namespace orvane
