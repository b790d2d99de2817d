#include "core/relocation/drive_mount.hpp"

#include <nlohmann/json.hpp>

#include "core/common/property_list.hpp"
#include "core/common/tool_runner.hpp"

namespace orvane {

namespace {

// An array under `key`, or an empty one when it is absent or of another type.
nlohmann::json arrayAt(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_array() ? *found : nlohmann::json::array();
}

std::string stringAt(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// lsblk nests partitions under their disk as "children".
std::optional<std::string> findUnmounted(std::string_view name, const nlohmann::json& devices) {
    for (const auto& device : devices) {
        if (!device.is_object()) continue;
        const auto label = device.find("label");
        if (label != device.end() && label->is_string() && *label == name && stringAt(device, "mountpoint").empty()) {
            const std::string path = stringAt(device, "path");
            if (!path.empty()) return path;
        }
        if (auto inside = findUnmounted(name, arrayAt(device, "children"))) return inside;
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> unmountedVolume(std::string_view name, std::string_view diskutilListPlist) {
    const auto root = parsePropertyList(diskutilListPlist);
    if (!root || !root->is_object() || root->empty()) return std::nullopt;
    const auto disks = root->find("AllDisksAndPartitions");
    if (disks == root->end() || !disks->is_array()) return std::nullopt;
    for (const auto& disk : *disks) {
        if (!disk.is_object()) continue;
        for (const char* key : {"Partitions", "APFSVolumes"})
            for (const auto& entry : arrayAt(disk, key)) {
                if (!entry.is_object()) continue;
                const auto volumeName = entry.find("VolumeName");
                if (volumeName == entry.end() || !volumeName->is_string() || *volumeName != name) continue;
                if (!stringAt(entry, "MountPoint").empty()) continue;
                const auto device = entry.find("DeviceIdentifier");
                if (device != entry.end() && device->is_string()) return device->get<std::string>();
            }
    }
    return std::nullopt;
}

std::optional<std::string> unmountedVolumeInBlockDevices(std::string_view name, std::string_view lsblkJSON) {
    const auto root = nlohmann::json::parse(lsblkJSON, nullptr, false);
    if (root.is_discarded() || !root.is_object()) return std::nullopt;
    return findUnmounted(name, arrayAt(root, "blockdevices"));
}

DriveMount mountDrive(const std::string& name, const Facts& facts) {
    const bool mac = facts.rules == RuleSet::macOS;
    const ToolResult listing =
        mac ? facts.run("/usr/sbin/diskutil", {"list", "-plist"}, 15, false, ToolErrors::discarded)
            : facts.run("/usr/bin/lsblk", {"--json", "-o", "NAME,LABEL,MOUNTPOINT,PATH"}, 15, false, ToolErrors::discarded);
    const std::string text = joinedLines(listing.lines);
    const auto device = mac ? unmountedVolume(name, text) : unmountedVolumeInBlockDevices(name, text);
    if (!device) return {false, name + " isn't connected. Plug it in; your moved files come back by themselves."};
    const std::int32_t status =
        mac ? runStatusThrough(facts, "/usr/sbin/diskutil", {"mount", *device})
            : runStatusThrough(facts, "/usr/bin/udisksctl", {"mount", "--no-user-interaction", "-b", *device});
    if (status == 0) return {true, name + " is mounted again."};
    return {false, name + " is connected but macOS wouldn't mount it. Open Disk Utility to check it."};
}

}  // namespace orvane
