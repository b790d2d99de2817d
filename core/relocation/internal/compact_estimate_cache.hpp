// The estimates remembered by path and size, reached directly only by tests and benchmarks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orvane::relocation::internal {

// The key of an estimate: the path, "|" and the size.
std::string compactEstimateKey(const std::string& path, std::int64_t size);
std::optional<std::int64_t> cachedCompactEstimate(const std::string& key);
// Beyond 512 keys the oldest 256 are forgotten, so the cache stays small however long the process.
void rememberCompactEstimate(const std::string& key, std::int64_t value);
// Forgets every estimate, so that a benchmark measures the compression and not the memory.
void forgetCompactEstimates();

}  // namespace orvane::relocation::internal
