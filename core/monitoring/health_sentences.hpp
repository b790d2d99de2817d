// What the health figures mean for a person: swap, free space against what macOS needs, and
// whether this is a small Mac.
#pragma once

#include <cstdint>
#include <string>

namespace orvane {

// A sentence on the swap in use; -1 (unknown) says so.
std::string swapSentence(std::int64_t swapUsed);

// The free space macOS needs for updates and swap on a disk of `diskCapacity` bytes: 20 GB below
// 200 GB, else a tenth, at most 35 GB.
std::int64_t recommendedHeadroom(std::int64_t diskCapacity);

struct Headroom {
    bool ok = true;  // false only when the free space is known and below the headroom
    std::string text;
    bool operator==(const Headroom&) const = default;
};
// Unknown figures (free below 0, capacity below 1) are ok: nothing was measured to warn about.
Headroom headroomSentence(std::int64_t free, std::int64_t capacity);

// At most 8 GiB of memory, or a disk of at most 300 GB; an unknown capacity (0 or less) is not small.
bool isSmallMac(std::uint64_t memoryBytes, std::int64_t diskCapacity);

// Whole gibibytes, rounded, as Apple names memory: "16 GB".
std::string memoryLabel(std::uint64_t bytes);

}  // namespace orvane
