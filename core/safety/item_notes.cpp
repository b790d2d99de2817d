#include "core/safety/item_notes.hpp"

#include <algorithm>
#include <map>

#include "core/common/byte_counts.hpp"
#include "core/common/format.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {
namespace {

constexpr std::string_view kAnotherDrive = "another drive";

std::string driveOf(std::string_view path) {
    if (!path.starts_with("/Volumes/")) return std::string(kAnotherDrive);
    std::string_view rest = path.substr(9);
    const std::string_view name = rest.substr(0, rest.find('/'));
    return name.empty() ? std::string(kAnotherDrive) : std::string(name);
}

}  // namespace

std::optional<std::string> offVolumeNote(const std::vector<SizedPath>& items,
                                         const std::function<bool(const std::string&)>& isHere) {
    std::map<std::string, std::int64_t> perDrive;
    for (const auto& item : items) {
        if (item.bytes <= 0 || isHere(item.path)) continue;
        auto& sum = perDrive[driveOf(item.path)];
        sum = addBytesOrUnknown(sum, item.bytes);  // sizes from a scan may add up past any disk
    }
    if (perDrive.empty()) return std::nullopt;
    std::vector<std::pair<std::string, std::int64_t>> drives(perDrive.begin(), perDrive.end());
    // The map already orders by name, so a stable sort by size leaves equal sums by name.
    std::stable_sort(drives.begin(), drives.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    std::string note;
    for (const auto& [name, bytes] : drives) {
        if (!note.empty()) note += ", ";
        note += fmtBytes(bytes) + " on " + name;
    }
    return note + " — not on this Mac";
}

bool holdsActivationData(std::string_view path) {
    const std::string lower = lowercased(path) + "/";
    return std::any_of(activationPathFragments.begin(), activationPathFragments.end(),
                       [&](std::string_view fragment) { return lower.find(fragment) != std::string::npos; });
}

}  // namespace orvane
