#include "core/monitoring/health_sentences.hpp"

#include <algorithm>
#include <cmath>

#include "core/common/format.hpp"

namespace orvane {

std::string swapSentence(std::int64_t swapUsed) {
    if (swapUsed < 0) return "macOS didn't report how much swap is in use.";
    if (swapUsed < 1'000'000'000) return "Swap is low: macOS is barely using the disk as extra memory.";
    if (swapUsed < 4'000'000'000)
        return "macOS is using " + fmtBytes(swapUsed) +
               " of disk as extra memory. That's normal on a small Mac; a restart clears it.";
    return "macOS is using " + fmtBytes(swapUsed) +
           " of disk as extra memory. That takes space and slows things down; quitting apps you aren't using, or a "
           "restart, brings it back.";
}

std::int64_t recommendedHeadroom(std::int64_t diskCapacity) {
    if (diskCapacity < 200'000'000'000) return 20'000'000'000;
    return std::min<std::int64_t>(diskCapacity / 10, 35'000'000'000);
}

Headroom headroomSentence(std::int64_t free, std::int64_t capacity) {
    if (free < 0 || capacity < 1) return {true, "Free space hasn't been measured yet."};
    const std::int64_t needed = recommendedHeadroom(capacity);
    if (free < needed)
        return {false, fmtBytes(free) + " free, less than the " + fmtBytes(needed) +
                           " macOS needs for updates and swap. Free up " + fmtBytes(needed - free) + " or more."};
    return {true, fmtBytes(free) + " free. That's enough for macOS updates and swap (keep at least " +
                      fmtBytes(needed) + " free)."};
}

bool isSmallMac(std::uint64_t memoryBytes, std::int64_t diskCapacity) {
    return memoryBytes <= 8'589'934'592ull || (diskCapacity >= 1 && diskCapacity <= 300'000'000'000);
}

std::string memoryLabel(std::uint64_t bytes) {
    return std::to_string(std::llround(static_cast<double>(bytes) / 1073741824.0)) + " GB";
}

}  // namespace orvane
