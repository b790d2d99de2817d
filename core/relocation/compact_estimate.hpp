// What rewriting files in the file system's compressed form would give back, said before anything
// is rewritten: a few samples of a few files compressed on the spot. The exact figure is measured
// while the action runs; this is the sentence for its confirmation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/scan/space_item.hpp"

namespace orvane {

// The most files one estimate looks at, whatever the selection holds.
inline constexpr std::size_t compactEstimateSampleLimit = 20;

// The estimated size of one file after compression, `size` being what it takes now; none below
// 4097 bytes (a single block either way) or when it cannot be read. At most three samples of
// 2 MiB are compressed; an answer is remembered for the same path at the same size. Reads the
// disk, so it does not belong on an interactive thread. Never waits on a FIFO or follows a link.
std::optional<std::int64_t> sampledCompactBytes(const std::string& path, std::int64_t size);

// The files to sample: largest first, and beyond the limit spread evenly over the sizes.
std::vector<SpaceItem> compactEstimateSample(const std::vector<SpaceItem>& items);

// One estimate with its figures, for a caller who shows more than the sentence.
struct CompactEstimate {
    struct Sampled {
        SpaceItem item;
        std::optional<std::int64_t> estimate;  // none: the file could not be estimated
        bool operator==(const Sampled&) const = default;
    };
    std::int64_t total = 0;     // bytes of the whole selection, unknown sizes as 0
    std::int64_t files = 0;     // items that are files with a size
    std::vector<Sampled> sample;
    std::int64_t sampled = 0;    // bytes of the sampled files that gave an estimate
    std::int64_t estimated = 0;  // their estimated bytes after compression
    std::optional<std::int64_t> percent;  // none when the line is the general advice
    std::string line;            // compactEstimateLine's sentence
    bool operator==(const CompactEstimate&) const = default;
};
CompactEstimate compactEstimate(const std::vector<SpaceItem>& items);

// The sentence for the confirmation, with its leading blank line.
std::string compactEstimateLine(const std::vector<SpaceItem>& items);

// The file's entry on the list of those that came out no smaller: path, size and modification
// second from lstat, so a file that changes leaves the list by itself. None when lstat fails.
std::optional<std::string> incompressibleKey(const std::string& path);
// Notes the file on that list (the user default "ov.incompressible"), keeping the newest 2000.
void rememberIncompressible(const std::string& path);
// The list as stored; empty when missing or not a list.
std::vector<std::string> incompressibleKeys();

}  // namespace orvane
