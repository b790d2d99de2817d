#include "core/monitoring/space_watch.hpp"

#include <gtest/gtest.h>

#include "core/monitoring/fill_forecast.hpp"
#include "core/monitoring/os_version.hpp"
#include "core/monitoring/watch_inputs.hpp"

namespace orvane {
namespace {

constexpr std::int64_t GB = 1'000'000'000;
const TimePoint t0 = Clock::from_time_t(1'800'000'000);

TimePoint day(double days) {
    return t0 + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(days * 86'400));
}

ScanSnapshot snap(double days, std::int64_t free, std::map<std::string, std::int64_t> sizes = {}) {
    return ScanSnapshot{day(days), free, 0, std::move(sizes)};
}

SpaceItem item(std::string id, std::int64_t size, Safety safety = Safety::review, std::string category = "",
               bool contentsOnly = false) {
    SpaceItem i;
    i.id = std::move(id);
    i.sizeBytes = size;
    i.safety = safety;
    i.category = std::move(category);
    i.contentsOnly = contentsOnly;
    return i;
}

TEST(SpaceWatch, Forecasts) {
    struct Case {
        const char* name;
        std::vector<FreePoint> points;
        std::optional<std::int64_t> lossPerWeek;
    };
    const Case cases[] = {
        {"two points", {{day(0), 30 * GB}, {day(14), 10 * GB}}, std::nullopt},
        {"three over six days", {{day(0), 30 * GB}, {day(3), 20 * GB}, {day(6), 10 * GB}}, std::nullopt},
        {"three over seven days", {{day(0), 28 * GB}, {day(3.5), 24'500'000'000}, {day(7), 21 * GB}}, 7 * GB},
        {"rising", {{day(0), 10 * GB}, {day(4), 20 * GB}, {day(8), 30 * GB}}, std::nullopt},
        {"unknown and future points left out",
         {{day(0), 28 * GB}, {day(1), -1}, {day(3.5), 24'500'000'000}, {day(7), 21 * GB}, {day(30), 0}},
         7 * GB},
        {"out of order", {{day(7), 21 * GB}, {day(0), 28 * GB}, {day(3.5), 24'500'000'000}}, 7 * GB},
    };
    for (const auto& c : cases) {
        auto forecast = fillForecast(c.points, day(10));
        EXPECT_EQ(forecast ? std::optional(forecast->lossPerWeek) : std::nullopt, c.lossPerWeek) << c.name;
    }
    EXPECT_DOUBLE_EQ(fillForecast(cases[2].points, day(10))->weeksLeft, 3.0);
    EXPECT_FALSE(fillForecast({{day(7), 3}, {day(7), 2}, {day(7), 1}}, day(8))) << "all at one time";

    const std::pair<FillForecast, const char*> sentences[] = {
        {{10 * GB, 10}, "At this rate (10 GB a week), the disk fills in about 2 months. An estimate from your recent scans."},
        {{GB, 0.99}, "At this rate (1 GB a week), the disk fills within a week. An estimate from your recent scans."},
        {{GB, 1.4}, "At this rate (1 GB a week), the disk fills in about 1 week. An estimate from your recent scans."},
        {{GB, 7.6}, "At this rate (1 GB a week), the disk fills in about 8 weeks. An estimate from your recent scans."},
        {{GB, 52}, "Free space is shrinking slowly (1 GB a week); it won't run out this year at this rate."},
    };
    for (const auto& [forecast, expected] : sentences) EXPECT_EQ(forecastSentence(forecast), expected);
    EXPECT_FALSE(forecastSentence(std::nullopt));

    struct Runway {
        std::vector<ScanSnapshot> trends;
        bool floorOn;
        std::optional<std::string> expected;
    };
    const Runway runways[] = {
        {{snap(0, 50 * GB)}, true, std::nullopt},
        {{snap(0, 50 * GB), snap(1, 51 * GB)}, true, std::nullopt},
        {{snap(0, 50 * GB), snap(1, 50 * GB - 40'000'000)}, true, std::nullopt},
        {{snap(0, 50 * GB), snap(0.25, 49 * GB)}, false, "At this pace (−2 GB/day), this disk fills in ≈ 24 days."},
        {{snap(0, 50 * GB), snap(0.25, 49 * GB)}, true, "At this pace (−2 GB/day) you'll hit your 30 GB floor in ≈ 9 days."},
        {{snap(0, 50 * GB), snap(1, 29 * GB)}, true, std::nullopt},  // already under the floor
        // Only the last six count: the fall before them is out of view.
        {{snap(0, 90 * GB), snap(1, 50 * GB), snap(2, 50 * GB), snap(3, 50 * GB), snap(4, 50 * GB), snap(5, 50 * GB),
          snap(6, 50 * GB)},
         false,
         std::nullopt},
    };
    for (const auto& r : runways) EXPECT_EQ(spaceWatchRunway(r.trends, 30, r.floorOn), r.expected);
}

TEST(SpaceWatch, HistoryAndTone) {
    const std::vector<ScanSnapshot> history = {snap(0, 40 * GB, {{"a", 100}, {"b", 0}, {"c", -1}}), snap(2, 30 * GB),
                                               snap(5, 30 * GB), snap(8, -1), snap(9, 35 * GB, {{"a", 300}, {"b", 250}, {"c", 900}, {"d", 999}})};
    EXPECT_EQ(weekAgoSnapshot(history)->date, day(2));
    EXPECT_EQ(weekAgoSnapshot({snap(0, 1), snap(3, 1), snap(4, 1)})->date, day(0)) << "none six days before";
    EXPECT_FALSE(weekAgoSnapshot({snap(3, 1)}));
    EXPECT_EQ(lowestFreePoint(history)->date, day(5)) << "the later of equal ones";
    EXPECT_FALSE(lowestFreePoint({snap(0, -1)}));
    EXPECT_EQ(biggestGrowth(history[0].sizes, history[4].sizes, 200, 5), (std::vector<Growth>{{"b", 250}, {"a", 200}}));
    EXPECT_EQ(biggestGrowth(history[0].sizes, history[4].sizes, 1, 1), (std::vector<Growth>{{"b", 250}}));

    struct Tone {
        std::int64_t free;
        std::optional<std::int64_t> previous;
        TrendTone expected;
    };
    const Tone tones[] = {
        {-1, 100 * GB, TrendTone::drop},   // never low, still a fall
        {-1, std::nullopt, TrendTone::normal},
        {20 * GB, 100 * GB, TrendTone::low},
        {460 * GB, 500 * GB, TrendTone::normal},  // 40 GB is not a tenth of 500
        {80 * GB, 100 * GB, TrendTone::drop},
        {95 * GB, 100 * GB, TrendTone::normal},  // under 10 GB
        {31 * GB, 0, TrendTone::normal},
    };
    for (const auto& t : tones) EXPECT_EQ(trendTone(t.free, t.previous, 30 * GB), t.expected) << t.free;

    EXPECT_EQ(spaceLostAcrossOSUpdate("14.1", "14.2", 50 * GB, 45 * GB), 5 * GB);
    EXPECT_FALSE(spaceLostAcrossOSUpdate("14.2", "14.2", 50 * GB, 45 * GB));
    EXPECT_FALSE(spaceLostAcrossOSUpdate("", "14.2", 50 * GB, 45 * GB));
    EXPECT_FALSE(spaceLostAcrossOSUpdate("14.1", "14.2", 50 * GB, 49 * GB + 1));
    EXPECT_FALSE(spaceLostAcrossOSUpdate("14.1", "14.2", 50 * GB, 0));

    EXPECT_TRUE(notificationAllowed(std::nullopt, day(0), notificationMinimumGap));
    EXPECT_TRUE(notificationAllowed(day(0), day(3), notificationMinimumGap));
    EXPECT_FALSE(notificationAllowed(day(0), day(2.9), notificationMinimumGap));
    EXPECT_TRUE(notificationAllowed(day(1), day(0), notificationMinimumGap)) << "the clock went back";

    // What a scan leaves: the system at the scan before an update, and an unknown figure changing nothing.
    OSScanHistory os = afterScan({}, "A", 50 * GB);
    os = afterScan(os, "A", 48 * GB);
    EXPECT_EQ(afterScan(os, "B", -1), os);
    EXPECT_EQ(afterScan(os, "", GB), os);
    os = afterScan(os, "B", 40 * GB);
    os = afterScan(os, "B", 39 * GB);
    EXPECT_EQ(os, (OSScanHistory{OSAtScan{"A", 48 * GB}, OSAtScan{"B", 39 * GB}}));
    EXPECT_EQ(osReleaseValue("NAME=x\n# PRETTY_NAME=no\nPRETTY_NAME=\"Debian \\\"12\\\"\"\n", "PRETTY_NAME"),
              "Debian \"12\"");
    EXPECT_EQ(osReleaseValue("PRETTY_NAME='Arch'", "PRETTY_NAME"), "Arch");
    EXPECT_FALSE(osReleaseValue("PRETTY_NAMES=x\nPRETTY_NAME=\"\"", "PRETTY_NAME"));
}

TEST(SpaceWatch, ConfigSplitsAndSteps) {
    const std::map<std::string, nlohmann::json, std::less<>> stored = {
        {"ruleDLCapGB", 9},     {"ruleFloorGB", "40"},     {"ruleShotsDays", 1.5},   {"ruleTrashCapGB", 3.0},
        {"ruleFloorOn", false}, {"ruleDLOn", 1},           {"autoDLAct", true},      {"autoEvictAct", true},
        {"autoDLDays", 1e12},   {"autoSummaryDir", "/x"}, {"autoSummaryFormat", 7},
    };
    const SpaceWatchConfig config = SpaceWatchConfig::from([&](std::string_view key) -> std::optional<nlohmann::json> {
        auto it = stored.find(key);
        if (it == stored.end()) return std::nullopt;
        return it->second;
    });
    SpaceWatchConfig expected = SpaceWatchConfig::default_();
    expected.ruleDLCapGB = 9;
    expected.ruleTrashCapGB = 3;
    expected.ruleFloorOn = false;
    expected.autoSummaryDir = "/x";
    EXPECT_EQ(config, expected);

    const std::vector<SpaceItem> found = {
        item("/a", 100, Safety::safe, std::string(catDev)), item("/a/inner", 50, Safety::safe),
        item("/b", 30, Safety::safe), item("/t", 20, Safety::safe, "", true), item("/m", 400),
        item("/zero", 0, Safety::safe), item("/r", 7),
    };
    EXPECT_EQ(reclaimableSplit(found, {"/a", "/a/inner", "/b", "/t"}, {"/m"}), (ReclaimableSplit{557, 150, 400, 7}));
    EXPECT_EQ(reclaimableSplit(found, {"/m", "/r"}, {"/m", "/a"}), (ReclaimableSplit{557, 407, 150, 0}));
    EXPECT_EQ(safeCleanupSplit({found[0], found[1], found[2], found[3], found[5]}), (CleanupSplit{80, 120}));
    EXPECT_EQ(reclaimableSplit({}, {}, {}), (ReclaimableSplit{}));

    using K = NextStep::Kind;
    EXPECT_EQ(nextSteps(false, 0, 0, 0), (std::vector<NextStep>{{K::scan, std::nullopt, false}, {K::freeSafe, 0, false},
                                                                {K::moveToExternal, 0, false}, {K::review, 0, false}}));
    EXPECT_EQ(nextSteps(true, -5, 100'000'000, 99'999'999),
              (std::vector<NextStep>{{K::scan, std::nullopt, true}, {K::freeSafe, 0, true},
                                     {K::moveToExternal, 100'000'000, false}, {K::review, 99'999'999, true}}));

    const DownloadsAge age = downloadsAge({{10, day(0)}, {20, day(-29.9)}, {40, day(-30)}, {80, day(-182)},
                                           {160, std::nullopt}, {0, std::nullopt}, {320, day(5)}},
                                          day(0));
    EXPECT_EQ(age, (DownloadsAge{350, 40, 80, 160}));
    EXPECT_EQ(age.total(), 630);
    EXPECT_FALSE(swapWorthMentioning(999'999'999));
    EXPECT_EQ(swapWorthMentioning(GB), GB);
}

}  // namespace
}  // namespace orvane
