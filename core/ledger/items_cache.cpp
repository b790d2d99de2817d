#include "core/ledger/items_cache.hpp"

#include <climits>

#include "core/common/json_fields.hpp"
#include "core/common/json_files.hpp"

namespace orvane {

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
    JSONFields fields(value, "the items cache");
    Ledger::ItemsCache cache;
    cache.date = fields.date("date");
    if (const auto* items = fields.value("items")) {
        auto decoded = decodeSpaceItems(*items);
        if (decoded.items) cache.items = std::move(*decoded.items);
        else fields.fail(std::move(decoded.error));
    }
    cache.free = fields.byteCount("free");
    cache.total = fields.byteCount("total");
    if (auto schema = fields.optionalWholeNumber("schema", INT_MIN, INT_MAX)) cache.schema = static_cast<int>(*schema);
    if (!fields) return std::nullopt;
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
