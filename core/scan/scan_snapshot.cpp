#include "core/scan/scan_snapshot.hpp"

#include "core/common/json_files.hpp"

namespace orvane {

nlohmann::ordered_json toJSON(const ScanSnapshot& snapshot) {
    nlohmann::ordered_json out;
    out["date"] = secondsSinceReferenceDate(snapshot.date);
    out["free"] = snapshot.free;
    out["reclaimable"] = snapshot.reclaimable;
    nlohmann::ordered_json sizes = nlohmann::ordered_json::object();
    for (const auto& [category, bytes] : snapshot.sizes) sizes[category] = bytes;
    out["sizes"] = std::move(sizes);
    return out;
}

std::optional<ScanSnapshot> scanSnapshotFromJSON(const nlohmann::json& value) {
    if (!value.is_object()) return std::nullopt;
    auto date = value.find("date");
    auto free = value.find("free");
    auto reclaimable = value.find("reclaimable");
    auto sizes = value.find("sizes");
    if (date == value.end() || free == value.end() || reclaimable == value.end() || sizes == value.end())
        return std::nullopt;
    if (!date->is_number() || !sizes->is_object()) return std::nullopt;
    auto freeBytes = jsonByteCount(*free);
    auto reclaimableBytes = jsonByteCount(*reclaimable);
    auto when = dateFromReferenceSeconds(date->get<double>());
    if (!freeBytes || !reclaimableBytes || !when) return std::nullopt;
    ScanSnapshot snapshot;
    snapshot.date = *when;
    snapshot.free = *freeBytes;
    snapshot.reclaimable = *reclaimableBytes;
    for (auto it = sizes->begin(); it != sizes->end(); ++it) {
        auto bytes = jsonByteCount(it.value());
        if (!bytes) return std::nullopt;
        snapshot.sizes[it.key()] = *bytes;
    }
    return snapshot;
}

}  // namespace orvane
