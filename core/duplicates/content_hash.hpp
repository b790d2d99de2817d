// Whether two local files hold the same bytes: a cheap sample to pick candidates, then the proof.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orvane {

inline constexpr std::int64_t kSampleBlockBytes = 4 * 1024 * 1024;
inline constexpr std::int64_t kFullHashChunkBytes = 8 * 1024 * 1024;

// SHA-256, as 64 lowercase hex digits, of up to three 4 MiB blocks: at 0, at size/2 when the size
// is above 8 MiB, at size - 4 MiB when it is above 4 MiB. The size is not part of the digest, so
// a caller compares sizes first and takes a match only as a reason to run fullHash. None when the
// file cannot be opened.
std::optional<std::string> sampleHash(const std::string& path);

// SHA-256 of the whole file, read 8 MiB at a time. A read error ends the reading and still gives
// the digest of what was read: none means only that the file could not be opened.
std::optional<std::string> fullHash(const std::string& path);

}  // namespace orvane
