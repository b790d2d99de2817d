#include "core/scan/scan_snapshot.hpp"

#include "core/common/json_fields.hpp"
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
    JSONFields fields(value, "a trend point");
    ScanSnapshot snapshot{fields.date("date"), fields.byteCount("free"), fields.byteCount("reclaimable"),
                          fields.byteCounts("sizes")};
    if (!fields) return std::nullopt;
    return snapshot;
}

}  // namespace orvane
