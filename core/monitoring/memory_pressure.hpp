// The kernel's own word on memory: whether what is open still fits.
#pragma once

#include <cstdint>
#include <string_view>

namespace orvane {

enum class MemoryPressure {
    normal,
    warning,
    critical,
    unknown,
};

// The kernel's level as macOS numbers it: 1 normal, 2 warning, 4 critical. Every other value,
// 3 among them, is unknown: macOS defines no level 3, and guessing one would put words in its mouth.
MemoryPressure memoryPressure(std::int32_t kernelLevel);
// The level now; unknown when the kernel does not say.
MemoryPressure currentMemoryPressure();
// The sentence for the person.
std::string_view sentence(MemoryPressure pressure);
// The case name: "normal", "warning", "critical", "unknown".
std::string_view rawValue(MemoryPressure pressure);

}  // namespace orvane
