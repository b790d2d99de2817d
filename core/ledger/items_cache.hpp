// The scan caches of the ledger: the items of the last scan of a scope, and its disk tree.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/common/format.hpp"
#include "core/ledger/versioned_payload.hpp"
#include "core/scan/space_item.hpp"

namespace orvane::Ledger {

// The schema of the items cache that this build writes. The loader never compares it with a
// cache's `schema`; whoever reads a cache decides whether an older one is still of use.
inline constexpr int cacheSchema = 44;

struct ItemsCache {
    TimePoint date;
    std::vector<SpaceItem> items;
    std::int64_t free = 0;
    std::int64_t total = 0;
    std::optional<int> schema;
    bool operator==(const ItemsCache&) const = default;
};

// The items under each folder of a scan, keyed by the folder's path.
using DiskTree = std::map<std::string, std::vector<SpaceItem>>;

}  // namespace orvane::Ledger

namespace orvane {

// {"date","items","free","total","schema"}, not versioned; "schema" is left out when absent and
// may be missing when read. Items carry their dates as seconds since 2001-01-01.
template <>
struct JSONCoding<Ledger::ItemsCache> {
    static nlohmann::ordered_json encode(const Ledger::ItemsCache& cache);
    static std::optional<Ledger::ItemsCache> decode(const nlohmann::json& value);
};

// An object from path to an array of items; one bad item fails the whole tree.
template <>
struct JSONCoding<Ledger::DiskTree> {
    static nlohmann::ordered_json encode(const Ledger::DiskTree& tree);
    static std::optional<Ledger::DiskTree> decode(const nlohmann::json& value);
};

}  // namespace orvane
