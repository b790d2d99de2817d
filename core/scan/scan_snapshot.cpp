#include "core/scan/scan_snapshot.hpp"

#include <cmath>

#include "core/common/json_files.hpp"

namespace orvane {
namespace {

std::optional<std::int64_t> wholeNumber(const nlohmann::json& value) {
    if (value.is_number_integer()) return value.get<std::int64_t>();
    if (value.is_number_unsigned()) {
        auto n = value.get<std::uint64_t>();
        if (n > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
        return static_cast<std::int64_t>(n);
    }
    if (value.is_number_float()) {
        double d = value.get<double>();
        if (std::floor(d) != d || !(d >= -9.2e18 && d <= 9.2e18)) return std::nullopt;
        return static_cast<std::int64_t>(d);
    }
    return std::nullopt;
}

}  // namespace

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
    auto freeBytes = wholeNumber(*free);
    auto reclaimableBytes = wholeNumber(*reclaimable);
    if (!freeBytes || !reclaimableBytes) return std::nullopt;
    ScanSnapshot snapshot;
    snapshot.date = dateFromReferenceSeconds(date->get<double>());
    snapshot.free = *freeBytes;
    snapshot.reclaimable = *reclaimableBytes;
    for (auto it = sizes->begin(); it != sizes->end(); ++it) {
        auto bytes = wholeNumber(it.value());
        if (!bytes) return std::nullopt;
        snapshot.sizes[it.key()] = *bytes;
    }
    return snapshot;
}

}  // namespace orvane
