// What moving or deleting something would really give back, where clones share their storage.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

// The bytes only this file holds; a clone's is near zero however large the file. None when the
// file system will not tell.
std::optional<std::int64_t> privateBytesOfFile(const std::string& path);

// For a regular file its privateBytesOfFile; for a folder the sum over the regular files within,
// none past `maxFiles` of them or when any one is unknown; 0 for anything else (links count
// nothing). None when the path can't be reached. `ofFile` stands for privateBytesOfFile.
std::optional<std::int64_t> privateBytes(
    const std::string& path, std::int64_t maxFiles,
    const std::function<std::optional<std::int64_t>(const std::string&)>& ofFile = privateBytesOfFile);

// The warning before a move of `paths` (of `selectedBytes` in all) that would free far less than
// that on this Mac; none where it would free most of it, or where that can't be known.
std::optional<std::string> sharedStorageWarning(const std::vector<std::string>& paths, std::int64_t selectedBytes);
// The same from the private total already summed (none when unknown).
std::optional<std::string> sharedStorageWarningOf(std::optional<std::int64_t> privateTotal, std::int64_t selectedBytes);

inline constexpr std::int64_t kSharedStorageMaxFiles = 5000;

}  // namespace orvane
