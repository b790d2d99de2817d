// Bringing back a drive that is plugged in but not mounted, so that the shortcuts into it work
// again.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/common/facts.hpp"

namespace orvane {

// The device identifier ("disk4s1") of the volume named exactly `name` that is not mounted, in the
// property list `diskutil list -plist` prints; none when there is no such volume or the text is
// no such list.
std::optional<std::string> unmountedVolume(std::string_view name, std::string_view diskutilListPlist);

// The same question put to `lsblk --json -o NAME,LABEL,MOUNTPOINT,PATH`, where a Linux system
// keeps the same fields: the label is the volume's name, the path its device.
std::optional<std::string> unmountedVolumeInBlockDevices(std::string_view name, std::string_view lsblkJSON);

struct DriveMount {
    bool mounted = false;
    std::string line;  // what the person is told
    bool operator==(const DriveMount&) const = default;
};

// Lists the disks (diskutil on a Mac, lsblk elsewhere, 15 seconds at most), and mounts the volume
// named `name` if it is there and not mounted (diskutil mount, udisksctl mount). Blocks while the
// tools run.
DriveMount mountDrive(const std::string& name, const Facts& facts);

}  // namespace orvane
