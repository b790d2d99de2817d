#include "core/storage/container_report.hpp"

#include <cmath>

#include "core/common/property_list.hpp"

namespace orvane {
namespace {

constexpr const char* kDiskutil = "/usr/sbin/diskutil";
constexpr double kDiskutilTimeout = 20;

std::optional<nlohmann::json> propertyListOf(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) {
        if (!text.empty()) text += '\n';
        text += line;
    }
    return parsePropertyList(text);
}

bool isArrayOfObjects(const nlohmann::json* value) {
    if (!value || !value->is_array()) return false;
    for (const auto& entry : *value)
        if (!entry.is_object()) return false;
    return true;
}

const nlohmann::json* field(const nlohmann::json& object, const char* key) {
    auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

// A number's long long value; a value that is missing or not a number is 0, and so is a real
// outside what 64 bits hold.
std::int64_t longLongValue(const nlohmann::json* value) {
    if (!value) return 0;
    if (value->is_number_integer()) return value->get<std::int64_t>();
    if (value->is_number_float()) {
        const double d = std::trunc(value->get<double>());
        if (d >= -9223372036854775808.0 && d < 9223372036854775808.0) return static_cast<std::int64_t>(d);
    }
    return 0;
}

std::string stringOr(const nlohmann::json* value, std::string fallback) {
    return value && value->is_string() ? value->get<std::string>() : std::move(fallback);
}

ContainerVolume volumeFrom(const nlohmann::json& entry) {
    ContainerVolume volume;
    volume.device = stringOr(field(entry, "DeviceIdentifier"), "");
    volume.name = stringOr(field(entry, "Name"), "—");
    if (const auto* roles = field(entry, "Roles"); roles && roles->is_array() && !roles->empty())
        volume.role = stringOr(&roles->front(), "");
    volume.bytesInUse = longLongValue(field(entry, "CapacityInUse"));
    return volume;
}

}  // namespace

std::int64_t ContainerReport::siblingBytes() const {
    // Every entry counts, whatever its sign; but the figures are a tool's, so a sum that cannot be
    // held is unknown rather than a reason to stop the program.
    std::int64_t sum = 0;
    for (const auto& volume : volumes)
        if (volume.role != "Data" && __builtin_add_overflow(sum, volume.bytesInUse, &sum)) return -1;
    return sum;
}

std::vector<ContainerVolume> ContainerReport::siblingsInUse() const {
    std::vector<ContainerVolume> siblings;
    for (const auto& volume : volumes)
        if (volume.role != "Data" && volume.bytesInUse > 0) siblings.push_back(volume);
    return siblings;
}

std::optional<std::string> containerReference(std::string_view device) {
    const auto slash = device.rfind('/');
    const std::string_view last = slash == std::string_view::npos ? device : device.substr(slash + 1);
    if (!last.starts_with("disk")) return std::nullopt;
    std::size_t end = 4;
    while (end < last.size() && last[end] >= '0' && last[end] <= '9') ++end;
    if (end == 4) return std::nullopt;
    return std::string(last.substr(0, end));
}

std::optional<std::string> bootContainerReference(const Facts& facts) {
    auto mount = facts.mount("/");
    if (!mount) return std::nullopt;
    return containerReference(mount->device);
}

std::optional<ContainerReport> parseContainerReport(const std::vector<std::string>& lines, std::string_view reference) {
    auto root = propertyListOf(lines);
    if (!root || !root->is_object()) return std::nullopt;
    const auto* containers = field(*root, "Containers");
    if (!isArrayOfObjects(containers)) return std::nullopt;
    for (const auto& container : *containers) {
        const auto* name = field(container, "ContainerReference");
        if (!name || !name->is_string() || name->get_ref<const std::string&>() != reference) continue;
        const auto* volumes = field(container, "Volumes");
        if (!isArrayOfObjects(volumes)) return std::nullopt;
        ContainerReport report;
        report.reference = std::string(reference);
        report.capacity = longLongValue(field(container, "CapacityCeiling"));
        report.free = longLongValue(field(container, "CapacityFree"));
        for (const auto& volume : *volumes) report.volumes.push_back(volumeFrom(volume));
        return report;
    }
    return std::nullopt;
}

std::optional<ContainerReport> bootContainerReport(const Facts& facts) {
    auto reference = bootContainerReference(facts);
    if (!reference) return std::nullopt;
    auto run = facts.run(kDiskutil, {"apfs", "list", "-plist"}, kDiskutilTimeout, false, ToolErrors::discarded);
    if (run.timedOut) return std::nullopt;
    return parseContainerReport(run.lines, *reference);
}

int countPinningSnapshots(const std::vector<std::string>& lines) {
    auto root = propertyListOf(lines);
    if (!root || !root->is_object()) return 0;
    const auto* snapshots = field(*root, "Snapshots");
    if (!isArrayOfObjects(snapshots)) return 0;
    int pinning = 0;
    for (const auto& snapshot : *snapshots)
        if (const auto* limiting = field(snapshot, "LimitingContainerShrink");
            limiting && limiting->is_boolean() && limiting->get<bool>())
            ++pinning;
    return pinning;
}

int snapshotsPinningContainer(const Facts& facts) {
    auto run = facts.run(kDiskutil, {"apfs", "listSnapshots", "-plist", "/System/Volumes/Data"}, kDiskutilTimeout,
                         false, ToolErrors::discarded);
    if (run.timedOut) return 0;
    return countPinningSnapshots(run.lines);
}

nlohmann::ordered_json toJSON(const ContainerReport& report) {
    nlohmann::ordered_json volumes = nlohmann::ordered_json::array();
    for (const auto& volume : report.volumes)
        volumes.push_back({{"device", volume.device},
                           {"name", volume.name},
                           {"role", volume.role},
                           {"bytesInUse", volume.bytesInUse}});
    return {{"reference", report.reference},
            {"capacity", report.capacity},
            {"free", report.free},
            {"siblingBytes", report.siblingBytes()},
            {"volumes", std::move(volumes)}};
}

}  // namespace orvane
