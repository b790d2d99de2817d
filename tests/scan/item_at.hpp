// A finding with only what the item rules look at: its id (a path, or a group's name), size and
// extra members.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/scan/space_item.hpp"

namespace orvane::testing {

inline SpaceItem at(std::string id, std::int64_t size = 1, std::vector<std::string> extra = {}) {
    SpaceItem item;
    item.id = std::move(id);
    item.extra = std::move(extra);
    item.sizeBytes = size;
    return item;
}

}  // namespace orvane::testing
