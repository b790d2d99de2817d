#include "core/platform/host_figures.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/temp_dir.hpp"

namespace orvane::platform {
namespace {

std::string captured(const std::string& name) { return readKernelFile(std::string(TEST_DATA_DIR) + "/proc/" + name, 1 << 20).value();
}

TEST(HostFigures, ProcessorTicks) {
    // Interrupt time counts as system time, disk waits as idle; stolen time is left out.
    EXPECT_EQ(parseCPUTicks(captured("stat.txt")), (CPUTicks{8137034, 1160852 + 4278, 3022738 + 44148, 0}));
    const struct {
        std::string_view text;
        std::optional<CPUTicks> ticks;
    } cases[] = {
        {"cpu 1 2 3 4\n", CPUTicks{1, 3, 4, 2}},  // a kernel of the 2.4 line stops after idle
        {"cpu  4294967301 0 0 0 0 0 0\n", CPUTicks{5, 0, 0, 0}},  // wraps at 32 bits as macOS's counters do
        {"intr 1 2\ncpu 1 2 3 4 5 6 7 8\ncpu0 9 9 9 9\n", CPUTicks{1, 3 + 6 + 7, 4 + 5, 2}},
        {"cpu0 1 2 3 4\n", std::nullopt},
        {"cpu 1 x 3 4\n", std::nullopt},
        {"cpu 1 2 3\n", std::nullopt},
        {"cpu 1 2 3 -4\n", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(parseCPUTicks(c.text), c.ticks) << c.text;
}

TEST(HostFigures, MemoryAndSwap) {
    const HostMemory idle = parseMemInfo(captured("meminfo.txt"));
    EXPECT_EQ(idle, (HostMemory{(24684084ull - 23766536ull) * 1024, 24684084ull * 1024, 0}));
    EXPECT_EQ(parseMemInfo(captured("meminfo-swapping.txt")).swapUsed, (2097148 - 524284) * 1024);

    const struct {
        std::string_view text;
        HostMemory memory;
    } cases[] = {
        {"MemTotal: 100 kB\nSwapTotal: 10 kB\nSwapFree: 4 kB\n", {std::nullopt, std::nullopt, 6 * 1024}},
        {"MemTotal: 100 kB\nMemAvailable: 101 kB\n", {}},  // more available than there is: not believed
        {"MemTotal: 100 MB\nMemAvailable: 1 kB\n", {}},    // not the kernel's unit
        {"MemTotal: 100 kB\nMemAvailable: 40 kB\nSwapFree: 4 kB\n", {60 * 1024, 100 * 1024, std::nullopt}},
        {"", {}},
    };
    for (const auto& c : cases) EXPECT_EQ(parseMemInfo(c.text), c.memory) << c.text;
}

TEST(HostFigures, PressureLevel) {
    EXPECT_EQ(parseMemoryPressureLevel(captured("pressure-memory.txt")), 1);
    const struct {
        std::string_view text;
        std::optional<std::int32_t> level;
    } cases[] = {
        {"some avg10=9.99 avg60=0 total=1\nfull avg10=50.00 avg60=0 total=1\n", 1},
        {"some avg10=10.00 avg60=0 total=1\nfull avg10=9.99 avg60=0 total=1\n", 2},
        {"some avg10=80.00 avg60=0 total=1\nfull avg10=10.00 avg60=0 total=1\n", 4},
        {"some avg10=1.00 avg60=0 total=1\n", std::nullopt},
        {"some avg10=abc\nfull avg10=1.00\n", std::nullopt},
        {"some avg60=1.00\nfull avg10=1.00\n", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(parseMemoryPressureLevel(c.text), c.level) << c.text;
}

TEST(HostFigures, BatteryFromThePowerSupplyFolder) {
    testing::TempDir d;
    const std::string folder = d.mkdir("power_supply");
    EXPECT_EQ(batteryIn(d / "missing"), std::nullopt);
    d.write("power_supply/AC/type", "Mains\n");
    d.write("power_supply/AC/online", "1\n");
    EXPECT_EQ(batteryIn(folder), std::nullopt);

    // A FIFO where an attribute should be is passed over at once, never waited on.
    d.mkdir("power_supply/A0");
    ASSERT_EQ(::mkfifo((d / "power_supply/A0/type").c_str(), 0600), 0);
    d.write("power_supply/BAT0/type", "Battery\n");
    d.write("power_supply/BAT0/capacity", "unknown\n");
    // The kernel's entries are links to the devices' folders.
    d.write("devices/bat1/type", "Battery\n");
    d.write("devices/bat1/capacity", "87\n");
    d.write("devices/bat1/status", "Charging\n");
    std::filesystem::create_directory_symlink(d / "devices/bat1", d / "power_supply/BAT1");
    d.write("power_supply/BAT2/type", "Battery\n");
    d.write("power_supply/BAT2/capacity", "20\n");
    EXPECT_EQ(batteryIn(folder), (BatteryReading{87, true}));

    d.write("devices/bat1/status", "Discharging\n");
    EXPECT_EQ(batteryIn(folder), (BatteryReading{87, false}));
}

}  // namespace
}  // namespace orvane::platform
