// One point of the free-space trend: how much was free and reclaimable, and bytes per category.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "core/common/format.hpp"

namespace orvane {

struct ScanSnapshot {
    TimePoint date;
    std::int64_t free = -1;
    std::int64_t reclaimable = 0;
    std::map<std::string, std::int64_t> sizes;  // bytes per category
    bool operator==(const ScanSnapshot&) const = default;
};

// {"date":seconds since 2001,"free":...,"reclaimable":...,"sizes":{...}}; every key required.
nlohmann::ordered_json toJSON(const ScanSnapshot& snapshot);
std::optional<ScanSnapshot> scanSnapshotFromJSON(const nlohmann::json& value);

}  // namespace orvane
