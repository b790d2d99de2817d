#include "core/monitoring/health_sample.hpp"

#include <gtest/gtest.h>

#include <deque>

#include "core/monitoring/health_sentences.hpp"
#include "core/monitoring/memory_pressure.hpp"

namespace orvane {
namespace {

using platform::CPUTicks;

TEST(HealthSampler, FiguresAndTheProcessorShareSinceTheLastSample) {
    std::deque<std::optional<CPUTicks>> ticks = {
        CPUTicks{100, 50, 800, 10},
        CPUTicks{110, 60, 830, 10},  // 20 busy of 50
        CPUTicks{110, 60, 830, 10},  // no tick passed
        std::nullopt,                // a failed read keeps the last reading
        CPUTicks{105, 70, 900, 10},  // user went backwards: no figure, and the reading is not kept
        CPUTicks{120, 70, 850, 10},  // measured against the second reading: 20 busy of 40
    };
    platform::HostMemory memory{200, 100, 4096};
    std::optional<platform::BatteryReading> battery = platform::BatteryReading{55, true};
    HealthReaders readers;
    readers.cpuTicks = [&] {
        auto next = ticks.front();
        ticks.pop_front();
        return next;
    };
    readers.memory = [&] { return memory; };
    readers.battery = [&] { return battery; };
    readers.freeBytes = [](const std::string& path) -> std::optional<std::int64_t> {
        if (path == "/home/sam") return 7'000;
        if (path == "/scope") return 9'000;
        return std::nullopt;
    };
    readers.home = "/home/sam";
    HealthSampler sampler(readers);

    // Held memory above all memory is clipped to 100.
    EXPECT_EQ(sampler.sample(std::nullopt), (SystemHealthSample{std::nullopt, 100, 55, true, 4096, 7'000, -1}));
    memory = {};
    battery = std::nullopt;
    auto second = sampler.sample("/scope");
    ASSERT_TRUE(second.cpuPercent);
    EXPECT_DOUBLE_EQ(*second.cpuPercent, 40.0);
    second.cpuPercent.reset();
    EXPECT_EQ(second, (SystemHealthSample{std::nullopt, 0, -1, false, -1, 7'000, 9'000}));
    EXPECT_EQ(sampler.sample("/gone").cpuPercent, std::nullopt);
    EXPECT_EQ(sampler.sample("/gone").scopeFree, -1);
    EXPECT_EQ(sampler.sample(std::nullopt).cpuPercent, std::nullopt);
    EXPECT_EQ(sampler.sample(std::nullopt).cpuPercent, 50.0);

    EXPECT_EQ(cpuBusyPercent(CPUTicks{1, 1, 1, 1}, CPUTicks{1, 1, 1, 0}), std::nullopt);
    EXPECT_DOUBLE_EQ(cpuBusyPercent(CPUTicks{0xFFFFFFF0u, 0, 0, 0}, CPUTicks{0xFFFFFFFFu, 0, 15, 5}).value(), 20.0 / 35 * 100);
    EXPECT_TRUE(healthTickStillCurrent(std::nullopt, std::nullopt));
    EXPECT_TRUE(healthTickStillCurrent("/a", "/a"));
    EXPECT_FALSE(healthTickStillCurrent("/a", std::nullopt));
    EXPECT_FALSE(healthTickStillCurrent("/a", "/b"));
}

TEST(HealthSampler, TheLiveMachineAnswers) {
    HealthSampler sampler;
    const auto first = sampler.sample("/");
    EXPECT_EQ(first.cpuPercent, std::nullopt);
    EXPECT_GT(first.memPressure, 0);
    EXPECT_GT(first.scopeFree, 0);
    EXPECT_GT(first.bootFree, 0);
    EXPECT_GE(first.swapUsed, 0);
}

TEST(HealthSentences, AtTheirEdges) {
    EXPECT_EQ(memoryPressure(1), MemoryPressure::normal);
    EXPECT_EQ(memoryPressure(2), MemoryPressure::warning);
    EXPECT_EQ(memoryPressure(4), MemoryPressure::critical);
    for (const std::int32_t level : {0, 3, 5, -1}) EXPECT_EQ(memoryPressure(level), MemoryPressure::unknown) << level;

    const struct {
        std::int64_t swap;
        std::string text;
    } swaps[] = {
        {-1, "macOS didn't report how much swap is in use."},
        {999'999'999, "Swap is low: macOS is barely using the disk as extra memory."},
        {1'000'000'000, "macOS is using 1 GB of disk as extra memory. That's normal on a small Mac; a restart clears it."},
        {4'000'000'000,
         "macOS is using 4 GB of disk as extra memory. That takes space and slows things down; quitting apps you aren't "
         "using, or a restart, brings it back."},
    };
    for (const auto& c : swaps) EXPECT_EQ(swapSentence(c.swap), c.text) << c.swap;

    EXPECT_EQ(recommendedHeadroom(199'999'999'999), 20'000'000'000);
    EXPECT_EQ(recommendedHeadroom(200'000'000'000), 20'000'000'000);
    EXPECT_EQ(recommendedHeadroom(300'000'000'009), 30'000'000'000);
    EXPECT_EQ(recommendedHeadroom(400'000'000'000), 35'000'000'000);

    const struct {
        std::int64_t free, capacity;
        Headroom headroom;
    } rooms[] = {
        {-1, 500'000'000'000, {true, "Free space hasn't been measured yet."}},
        {5, 0, {true, "Free space hasn't been measured yet."}},
        {35'000'000'000, 500'000'000'000,
         {true, "35 GB free. That's enough for macOS updates and swap (keep at least 35 GB free)."}},
        {12'500'000'000, 250'000'000'000,
         {false, "12.5 GB free, less than the 25 GB macOS needs for updates and swap. Free up 12.5 GB or more."}},
    };
    for (const auto& c : rooms) EXPECT_EQ(headroomSentence(c.free, c.capacity), c.headroom) << c.free;

    EXPECT_TRUE(isSmallMac(8'589'934'592, 0));
    EXPECT_FALSE(isSmallMac(8'589'934'593, 0));
    EXPECT_FALSE(isSmallMac(8'589'934'593, -1));
    EXPECT_TRUE(isSmallMac(17'179'869'184, 300'000'000'000));
    EXPECT_FALSE(isSmallMac(17'179'869'184, 300'000'000'001));

    EXPECT_EQ(memoryLabel(17'179'869'184), "16 GB");
    EXPECT_EQ(memoryLabel(1'610'612'736), "2 GB");  // 1.5 rounds up
    EXPECT_EQ(memoryLabel(0), "0 GB");
}

}  // namespace
}  // namespace orvane
