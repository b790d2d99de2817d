#include "core/ledger/items_cache.hpp"

#include <climits>

#include "core/common/json_files.hpp"
#include "core/ledger/internal/json_fields.hpp"

namespace orvane {

using namespace ledger::internal;

nlohmann::ordered_json JSONCoding<Ledger::ItemsCache>::encode(const Ledger::ItemsCache& cache) {
    nlohmann::ordered_json out;
    out["date"] = secondsSinceReferenceDate(cache.date);
    out["items"] = toJSON(cache.items);
    out["free"] = cache.free;
    out["total"] = cache.total;
    if (cache.schema) out["schema"] = *cache.schema;
    return out;
}

std::optional<Ledger::ItemsCache> JSONCoding<Ledger::ItemsCache>::decode(const nlohmann::json& value) {
    auto date = dateField(value, "date");
    auto free = byteCountField(value, "free");
    auto total = byteCountField(value, "total");
    auto schema = optionalInt64Field(value, "schema");
    if (!date || !free || !total || !schema.valid) return std::nullopt;
    if (schema.value && (*schema.value < INT_MIN || *schema.value > INT_MAX)) return std::nullopt;
    auto items = value.find("items");
    if (items == value.end()) return std::nullopt;
    auto decoded = decodeSpaceItems(*items);
    if (!decoded.items) return std::nullopt;
    Ledger::ItemsCache cache;
    cache.date = *date;
    cache.items = std::move(*decoded.items);
    cache.free = *free;
    cache.total = *total;
    if (schema.value) cache.schema = static_cast<int>(*schema.value);
    return cache;
}

nlohmann::ordered_json JSONCoding<Ledger::DiskTree>::encode(const Ledger::DiskTree& tree) {
    nlohmann::ordered_json out = nlohmann::ordered_json::object();
    for (const auto& [folder, items] : tree) out[folder] = toJSON(items);
    return out;
}

std::optional<Ledger::DiskTree> JSONCoding<Ledger::DiskTree>::decode(const nlohmann::json& value) {
    if (!value.is_object()) return std::nullopt;
    Ledger::DiskTree tree;
    for (auto it = value.begin(); it != value.end(); ++it) {
        auto decoded = decodeSpaceItems(it.value());
        if (!decoded.items) return std::nullopt;
        tree.emplace(it.key(), std::move(*decoded.items));
    }
    return tree;
}

}  // namespace orvane
