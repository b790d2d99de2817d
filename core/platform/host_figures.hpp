// Linux's figures of the host (/proc/stat, /proc/meminfo, /proc/pressure/memory and the
// power-supply folder) read as values. Compiled everywhere, so their tests run on every system.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/platform/platform.hpp"

namespace orvane::platform {

// The ticks of the "cpu" line, folded into macOS's four counters: user; system with the time
// spent on interrupts; idle with the time spent waiting for the disk; nice. Stolen and guest time
// are left out (guest time is counted in user already). Each counter keeps its low 32 bits, so it
// wraps as macOS's does. None when there is no well-formed "cpu" line.
std::optional<CPUTicks> parseCPUTicks(std::string_view procStat);

// MemTotal less MemAvailable as `held` of MemTotal, and SwapTotal less SwapFree, in bytes. A
// figure whose lines are missing or malformed is none.
HostMemory parseMemInfo(std::string_view procMeminfo);

// The pressure file's "some avg10" below 10 is 1 (normal); else a "full avg10" of at least 10 is 4
// (critical); else 2 (warning). None when either line is missing or malformed.
std::optional<std::int32_t> parseMemoryPressureLevel(std::string_view pressure);

// The first entry of a power-supply folder (/sys/class/power_supply), by name, whose "type" is
// "Battery" and whose "capacity" is a whole number; "status" "Charging" means charging. None when
// there is none. Only regular files are read, each within a few KiB and without waiting.
std::optional<BatteryReading> batteryIn(const std::string& powerSupplyFolder);
// The two halves of batteryIn: the entries of type "Battery", by name, and the first of them that
// tells its charge.
std::vector<std::string> batteryNamesIn(const std::string& powerSupplyFolder);
std::optional<BatteryReading> batteryReadingIn(const std::string& powerSupplyFolder,
                                               const std::vector<std::string>& batteryNames);

// A small kernel file's text, at most `maxBytes`: opened without following a final link or
// waiting, and only if it is a regular file (as /proc and /sys files are). None otherwise.
std::optional<std::string> readKernelFile(const std::string& path, std::size_t maxBytes);

}  // namespace orvane::platform
