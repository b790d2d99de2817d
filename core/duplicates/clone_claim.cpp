#include "core/duplicates/clone_claim.hpp"

#include <algorithm>
#include <set>

#include "core/platform/platform.hpp"

namespace orvane {

std::optional<std::int64_t> physicalStart(const std::string& path) { return platform::physicalStart(path); }

DupeClaim cloneAwareDupeClaim(std::int64_t groupSize, const std::vector<std::optional<std::int64_t>>& starts) {
    std::set<std::string> keys;
    for (std::size_t i = 0; i < starts.size(); ++i)
        keys.insert(starts[i] ? std::to_string(*starts[i]) : "unique-" + std::to_string(i));
    const auto n = static_cast<std::int64_t>(keys.size());
    // Claiming an already merged group again would count space that can't come back.
    if (n < 2) return {};
    return {static_cast<int>(n - 1), groupSize * (n - 1)};
}

std::int64_t keepOneReclaimBytes(const std::vector<std::int64_t>& sizes) {
    if (sizes.size() < 2) return 0;
    std::int64_t sum = 0;
    std::int64_t largest = 0;
    for (std::int64_t size : sizes) {
        const std::int64_t clamped = std::max<std::int64_t>(size, 0);
        sum += clamped;
        largest = std::max(largest, clamped);
    }
    return sum - largest;
}

}  // namespace orvane
