#include "core/monitoring/health_sample.hpp"

#include <algorithm>

#include "core/common/path.hpp"

namespace orvane {

HealthSampler::HealthSampler(HealthReaders readers) : readers_(std::move(readers)) {
    if (readers_.home.empty()) readers_.home = home();
}

SystemHealthSample HealthSampler::sample(const std::optional<std::string>& scopeRoot) {
    SystemHealthSample sample;

    if (const auto ticks = readers_.cpuTicks()) {
        std::optional<platform::CPUTicks> previous;
        {
            std::lock_guard guard(ticksLock);
            previous = prevTicks;
            // A user count that went backwards keeps the older reading, so that the next sample is
            // measured against something this one could not use rather than against nothing.
            if (!prevTicks || ticks->user >= prevTicks->user) prevTicks = ticks;
        }
        sample.cpuPercent = cpuBusyPercent(previous, *ticks);
    }

    const platform::HostMemory memory = readers_.memory();
    if (memory.held && memory.total) {
        const double total = static_cast<double>(std::max<std::uint64_t>(*memory.total, 1));
        sample.memPressure = std::min(100.0, static_cast<double>(*memory.held) / total * 100);
    }

    if (const auto battery = readers_.battery()) {
        sample.batteryPercent = battery->percent;
        sample.batteryCharging = battery->charging;
    }

    sample.swapUsed = memory.swapUsed.value_or(-1);
    if (scopeRoot) sample.scopeFree = readers_.freeBytes(*scopeRoot).value_or(-1);
    sample.bootFree = readers_.freeBytes(readers_.home).value_or(-1);
    return sample;
}

std::optional<double> cpuBusyPercent(const std::optional<platform::CPUTicks>& previous,
                                     const platform::CPUTicks& current) {
    if (!previous) return std::nullopt;
    if (current.user < previous->user || current.system < previous->system || current.idle < previous->idle ||
        current.nice < previous->nice)
        return std::nullopt;
    const std::uint64_t user = current.user - previous->user, system = current.system - previous->system,
                        idle = current.idle - previous->idle, nice = current.nice - previous->nice;
    const std::uint64_t total = user + system + idle + nice;
    if (total == 0) return std::nullopt;
    return static_cast<double>(user + system + nice) / static_cast<double>(total) * 100;
}

bool healthTickStillCurrent(const std::optional<std::string>& measuredRoot,
                            const std::optional<std::string>& currentRoot) {
    return measuredRoot == currentRoot;
}

std::int64_t currentSwapUsed() { return platform::hostMemory().swapUsed.value_or(-1); }

}  // namespace orvane
