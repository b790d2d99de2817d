#include "core/monitoring/memory_pressure.hpp"

#include "core/platform/platform.hpp"

namespace orvane {

MemoryPressure memoryPressure(std::int32_t kernelLevel) {
    switch (kernelLevel) {
        case 1: return MemoryPressure::normal;
        case 2: return MemoryPressure::warning;
        case 4: return MemoryPressure::critical;
        default: return MemoryPressure::unknown;
    }
}

MemoryPressure currentMemoryPressure() {
    const auto level = platform::memoryPressureLevel();
    return level ? memoryPressure(*level) : MemoryPressure::unknown;
}

std::string_view sentence(MemoryPressure pressure) {
    switch (pressure) {
        case MemoryPressure::normal: return "Memory is fine right now: what you have open fits.";
        case MemoryPressure::warning:
            return "Memory is tight right now. macOS is squeezing apps to fit, so things may feel slower. Quitting "
                   "apps and browser tabs you aren't using helps most.";
        case MemoryPressure::critical:
            return "Memory is full right now, so macOS is using the disk as extra memory and things will feel slow. "
                   "Quit apps you aren't using, starting with the biggest.";
        case MemoryPressure::unknown: break;
    }
    return "macOS didn't report how much memory is under pressure.";
}

std::string_view rawValue(MemoryPressure pressure) {
    switch (pressure) {
        case MemoryPressure::normal: return "normal";
        case MemoryPressure::warning: return "warning";
        case MemoryPressure::critical: return "critical";
        case MemoryPressure::unknown: break;
    }
    return "unknown";
}

}  // namespace orvane
