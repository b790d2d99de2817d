// How the machine is doing while a long job runs: processor load, memory, battery, swap and free
// space, sampled on demand.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "core/platform/platform.hpp"

namespace orvane {

struct SystemHealthSample {
    std::optional<double> cpuPercent;  // busy share since the sampler's last sample; none on its first
    double memPressure = 0;            // held memory as a percentage of all, at most 100; 0 when unread
    std::int32_t batteryPercent = -1;  // -1: no battery, or unread
    bool batteryCharging = false;
    std::int64_t swapUsed = -1;   // bytes; -1 unknown
    std::int64_t bootFree = -1;   // free bytes of the home folder's volume; -1 unknown
    std::int64_t scopeFree = -1;  // free bytes at the scan's root; -1 without one, or unknown
    bool operator==(const SystemHealthSample&) const = default;
};

// Where a sampler's figures come from: this machine unless a test says otherwise.
struct HealthReaders {
    std::function<std::optional<platform::CPUTicks>()> cpuTicks = platform::cpuLoadTicks;
    std::function<platform::HostMemory()> memory = platform::hostMemory;
    std::function<std::optional<platform::BatteryReading>()> battery = platform::battery;
    std::function<std::optional<std::int64_t>(const std::string&)> freeBytes = platform::freeBytes;
    std::string home;  // the home folder whose volume `bootFree` is; empty: the running user's
};

// One per job it watches: the processor figure of a sample is the share since the one before.
// `sample` may be called from any thread.
class HealthSampler {
public:
    explicit HealthSampler(HealthReaders readers = {});
    SystemHealthSample sample(const std::optional<std::string>& scopeRoot);

private:
    HealthReaders readers_;
    std::mutex ticksLock;
    std::optional<platform::CPUTicks> prevTicks;
};

// The busy share (user, system and nice) of the ticks between two readings, in percent. None
// without a previous reading, when a counter went backwards (it wrapped, or the machine slept),
// or when no tick passed.
std::optional<double> cpuBusyPercent(const std::optional<platform::CPUTicks>& previous,
                                     const platform::CPUTicks& current);

// Whether a sample measured for `measuredRoot` still belongs to the scope shown now.
bool healthTickStillCurrent(const std::optional<std::string>& measuredRoot,
                            const std::optional<std::string>& currentRoot);

// Bytes of swap in use; -1 when the kernel does not say.
std::int64_t currentSwapUsed();

}  // namespace orvane
