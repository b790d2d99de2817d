// Byte counts that come from files and tools: the range a record may hold, and totals for display
// that turn unknown instead of aborting.
#pragma once

#include <cstdint>

namespace orvane {

// The largest byte count a record may hold, 2^60 bytes (1 EiB): far beyond any disk, and low
// enough that adding two such counts cannot overflow.
inline constexpr std::int64_t kMaxByteCount = std::int64_t{1} << 60;

// `total` plus `bytes` for a total shown to the user: -1 (unknown) when either is unknown
// (negative) or the sum passes kMaxByteCount. Counts read from a file or a tool can add up past
// what 64 bits hold; such a total is unknown, never a wrapped figure and never an abort.
inline std::int64_t addBytesOrUnknown(std::int64_t total, std::int64_t bytes) {
    if (total < 0 || bytes < 0 || total > kMaxByteCount || bytes > kMaxByteCount - total) return -1;
    return total + bytes;
}

}  // namespace orvane
