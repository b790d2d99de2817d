// Adding up item sizes without counting the same bytes twice, and the memo that keeps it cheap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "core/scan/space_item.hpp"

namespace orvane {

// The sum of sizeBytes over the items that are safe, suggested for deletion and larger than 0.
// No nesting check: pass a list that went through topMostByPath or cannot nest. -1 (unknown) once
// the sum passes kMaxByteCount: sizes read from a file can add up past 64 bits.
std::int64_t safeReclaimBytes(const std::vector<SpaceItem>& items);

// Whether a member path of a pseudo-group (only members beginning with "/") is in `countedPaths`
// or lies inside one of them, parent by parent down to two-character texts, so that "/" itself
// never covers anything.
bool pseudoGroupAlreadyCounted(const SpaceItem& item,
                               const std::unordered_set<std::string>& countedPaths);

// One row per distinct stretch of disk: a path inside a kept path goes, the first of two equal
// paths stays, and a pseudo-group goes when a member lies at or inside a kept path. The result
// is ordered by id length (in characters), ties in input order. Memoised in TopMostMemo::shared()
// on a hash of the ids, sizes and pseudo-group members; a hit is returned unverified, so two
// inputs that differ only in other fields get the first one's rows.
std::vector<SpaceItem> topMostByPath(const std::vector<SpaceItem>& items);

// The sum of sizeBytes over topMostByPath(items), negative sizes counted as 0; -1 (unknown) once the
// sum passes kMaxByteCount.
std::int64_t topMostBytes(const std::vector<SpaceItem>& items);

// A small cache of topMostByPath results. Each read and each write takes the lock on its own;
// once full the cache is dropped whole and fills again, so it needs no eviction order.
class TopMostMemo {
  public:
    static constexpr std::size_t capacity = 65;

    // The process-wide instance that topMostByPath uses.
    static TopMostMemo& shared();

    std::optional<std::vector<SpaceItem>> value(std::int64_t key) const;
    void store(std::int64_t key, std::vector<SpaceItem> items);

  private:
    mutable std::mutex lock_;
    std::unordered_map<std::int64_t, std::vector<SpaceItem>> store_;
};

}  // namespace orvane
