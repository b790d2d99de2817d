// AuditSnapshot: what one scan found, kept so that later scans can be compared with it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/common/format.hpp"
#include "core/ledger/versioned_payload.hpp"
#include "core/scan/space_item.hpp"

namespace orvane {

struct AuditSnapshot {
    struct Finding {
        std::string path;
        std::string title;
        std::string category;
        std::int64_t bytes = 0;
        bool operator==(const Finding&) const = default;
    };

    TimePoint date;
    std::string scope = "Startup disk";
    std::int64_t capacity = 0;
    std::int64_t free = 0;
    std::int64_t used = 0;  // capacity minus free, not below 0
    std::optional<double> scanSeconds;
    std::map<std::string, std::int64_t> categoryTotals;  // bytes per category
    std::vector<Finding> topFindings;                    // findings of at least 1,000,000 bytes
    std::vector<std::string> actionsSince;               // log lines after the time given

    // A snapshot of `items` taken now: the top-most items of at least one byte, added up per
    // category; those of at least 1,000,000 bytes as findings, biggest first; and the log lines
    // of `Ledger::actions(since)`. Reads the log through the ledger's queue, so it must not be
    // called from a task of that queue. Aborts when a category's sum overflows.
    static AuditSnapshot capture(const std::vector<SpaceItem>& items, std::int64_t free,
                                 std::int64_t capacity, std::optional<double> seconds,
                                 std::optional<TimePoint> since);

    bool operator==(const AuditSnapshot&) const = default;
};

// {"date","scope","capacity","free","used","scanSeconds","categoryTotals","topFindings",
//  "actionsSince"}; "scanSeconds" is left out when absent. Findings: {"path","title","category","bytes"}.
template <>
struct JSONCoding<AuditSnapshot::Finding> {
    static nlohmann::ordered_json encode(const AuditSnapshot::Finding& finding);
    static std::optional<AuditSnapshot::Finding> decode(const nlohmann::json& value);
};
template <>
struct JSONCoding<AuditSnapshot> {
    static nlohmann::ordered_json encode(const AuditSnapshot& snapshot);
    static std::optional<AuditSnapshot> decode(const nlohmann::json& value);
};

}  // namespace orvane
