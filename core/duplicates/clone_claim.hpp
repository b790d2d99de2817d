// How much merging an identical group can honestly give back: copies that already share their
// storage are one copy, not two.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

// The device offset of the file's first byte; two files with the same start are already clones.
// None when the file cannot be opened or the file system will not tell.
std::optional<std::int64_t> physicalStart(const std::string& path);

struct DupeClaim {
    int copies = 0;
    std::int64_t bytes = 0;
    bool operator==(const DupeClaim&) const = default;
};

// `groupSize` is one copy's size, `starts` each copy's physicalStart. Copies with the same known
// start count once; an unknown start is never taken for a clone of anything. A group that comes
// to fewer than two distinct copies claims nothing: it is already merged.
DupeClaim cloneAwareDupeClaim(std::int64_t groupSize, const std::vector<std::optional<std::int64_t>>& starts);

// Keeping the largest copy and dropping the rest: the sum of the sizes (negatives as 0) less the
// largest. Fewer than two sizes give 0.
std::int64_t keepOneReclaimBytes(const std::vector<std::int64_t>& sizes);

}  // namespace orvane
