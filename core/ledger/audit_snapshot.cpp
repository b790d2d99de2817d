#include "core/ledger/audit_snapshot.hpp"

#include <algorithm>

#include "core/common/byte_counts.hpp"
#include "core/common/checked.hpp"
#include "core/common/json_fields.hpp"
#include "core/common/json_files.hpp"
#include "core/ledger/action_log.hpp"
#include "core/scan/top_most.hpp"

namespace orvane {

namespace {
constexpr std::int64_t kFindingMinimumBytes = 1'000'000;
}

AuditSnapshot AuditSnapshot::capture(const std::vector<SpaceItem>& items, std::int64_t free,
                                     std::int64_t capacity, std::optional<double> seconds,
                                     std::optional<TimePoint> since) {
    std::vector<SpaceItem> sized;
    for (const auto& item : items)
        if (item.sizeBytes >= 1) sized.push_back(item);
    const auto topMost = topMostByPath(sized);

    AuditSnapshot snapshot;
    for (const auto& item : topMost) {
        auto& total = snapshot.categoryTotals[item.category];
        // Sizes from a cache or a dump hold at most kMaxByteCount each, yet many can pass 64 bits.
        total = addBytesOrUnknown(total, item.sizeBytes);
    }
    std::vector<SpaceItem> big;
    for (const auto& item : topMost)
        if (item.sizeBytes >= kFindingMinimumBytes) big.push_back(item);
    std::stable_sort(big.begin(), big.end(),
                     [](const SpaceItem& a, const SpaceItem& b) { return a.sizeBytes > b.sizeBytes; });
    for (const auto& item : big)
        snapshot.topFindings.push_back({item.path(), item.title, item.category, std::max<std::int64_t>(0, item.sizeBytes)});

    snapshot.actionsSince = Ledger::actions(since);
    snapshot.date = Clock::now();
    snapshot.capacity = capacity;
    snapshot.free = free;
    snapshot.used = std::max<std::int64_t>(0, checkedSub(capacity, free));
    snapshot.scanSeconds = seconds;
    return snapshot;
}

nlohmann::ordered_json JSONCoding<AuditSnapshot::Finding>::encode(const AuditSnapshot::Finding& finding) {
    nlohmann::ordered_json out;
    out["path"] = finding.path;
    out["title"] = finding.title;
    out["category"] = finding.category;
    out["bytes"] = finding.bytes;
    return out;
}

std::optional<AuditSnapshot::Finding> JSONCoding<AuditSnapshot::Finding>::decode(const nlohmann::json& value) {
    JSONFields fields(value, "a finding");
    AuditSnapshot::Finding finding{fields.string("path"), fields.string("title"), fields.string("category"),
                                   fields.byteCount("bytes")};
    if (!fields) return std::nullopt;
    return finding;
}

nlohmann::ordered_json JSONCoding<AuditSnapshot>::encode(const AuditSnapshot& snapshot) {
    nlohmann::ordered_json out;
    out["date"] = secondsSinceReferenceDate(snapshot.date);
    out["scope"] = snapshot.scope;
    out["capacity"] = snapshot.capacity;
    out["free"] = snapshot.free;
    out["used"] = snapshot.used;
    if (snapshot.scanSeconds) out["scanSeconds"] = *snapshot.scanSeconds;
    nlohmann::ordered_json totals = nlohmann::ordered_json::object();
    for (const auto& [category, bytes] : snapshot.categoryTotals) totals[category] = bytes;
    out["categoryTotals"] = std::move(totals);
    out["topFindings"] = JSONCoding<std::vector<AuditSnapshot::Finding>>::encode(snapshot.topFindings);
    out["actionsSince"] = snapshot.actionsSince;
    return out;
}

std::optional<AuditSnapshot> JSONCoding<AuditSnapshot>::decode(const nlohmann::json& value) {
    JSONFields fields(value, "an audit snapshot");
    AuditSnapshot snapshot;
    snapshot.date = fields.date("date");
    snapshot.scope = fields.string("scope");
    snapshot.capacity = fields.byteCount("capacity");
    snapshot.free = fields.byteCount("free");
    snapshot.used = fields.byteCount("used");
    snapshot.scanSeconds = fields.optionalNumber("scanSeconds");
    snapshot.categoryTotals = fields.byteCounts("categoryTotals");
    if (const auto* findings = fields.value("topFindings")) {
        auto decoded = JSONCoding<std::vector<AuditSnapshot::Finding>>::decode(*findings);
        if (decoded) snapshot.topFindings = std::move(*decoded);
        else fields.fail("topFindings", "must be an array of findings");
    }
    snapshot.actionsSince = fields.strings("actionsSince");
    if (!fields) return std::nullopt;
    return snapshot;
}

}  // namespace orvane
