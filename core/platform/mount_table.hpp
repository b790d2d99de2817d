// Linux's mount table (/proc/self/mountinfo) read as values. Pure, so it is tested anywhere.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::platform {

struct MountTableEntry {
    std::string mountPoint;      // octal escapes ("\040") decoded
    std::string root;            // the mount's root within its file system
    std::string options;         // per-mount options: "rw,nosuid,relatime"
    std::string fileSystemType;  // "ext4", "proc", "overlay", ...
    std::string source;          // "/dev/vda1", "tmpfs", ...
    bool operator==(const MountTableEntry&) const = default;
};

// One entry per well-formed line, in the table's order; lines that do not fit are skipped.
std::vector<MountTableEntry> parseMountInfo(std::string_view text);

// The mount that holds an absolute, symlink-free path: the longest mount point at or above it,
// the later of two stacked on one point.
std::optional<MountTableEntry> mountContaining(const std::vector<MountTableEntry>& table,
                                               std::string_view resolvedPath);

struct BrowsableVolume;

// The entries a user would browse as volumes: real storage file systems, not the kernel's own
// (proc, sysfs, cgroup, tmpfs, overlay and the like) and not mounted under the system's folders
// (/proc, /sys, /dev, /run except /run/media, /boot, /snap, /etc, container storage).
std::vector<BrowsableVolume> browsableVolumesIn(const std::vector<MountTableEntry>& table);

}  // namespace orvane::platform
