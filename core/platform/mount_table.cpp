#include "core/platform/mount_table.hpp"

#include <set>

#include "core/platform/platform.hpp"

namespace orvane::platform {
namespace {

std::vector<std::string_view> fields(std::string_view line) {
    std::vector<std::string_view> out;
    std::size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && line[i] == ' ') ++i;
        std::size_t start = i;
        while (i < line.size() && line[i] != ' ') ++i;
        if (i > start) out.push_back(line.substr(start, i - start));
    }
    return out;
}

// The kernel writes space, tab, newline and backslash in names as three octal digits.
std::string unescape(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto octal = [](char c) { return c >= '0' && c <= '7'; };
        if (text[i] == '\\' && i + 3 < text.size()) {
            if (octal(text[i + 1]) && octal(text[i + 2]) && octal(text[i + 3])) {
                int value = (text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0');
                out += static_cast<char>(value);
                i += 3;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

}  // namespace

std::vector<MountTableEntry> parseMountInfo(std::string_view text) {
    std::vector<MountTableEntry> table;
    while (!text.empty()) {
        auto end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);

        auto parts = fields(line);
        // id parent major:minor root mount-point options [optional...] - type source super-options
        std::size_t separator = 0;
        for (std::size_t i = 6; i < parts.size(); ++i) {
            if (parts[i] == "-") {
                separator = i;
                break;
            }
        }
        if (separator == 0 || separator + 1 >= parts.size()) continue;
        MountTableEntry entry;
        entry.root = unescape(parts[3]);
        entry.mountPoint = unescape(parts[4]);
        entry.options = std::string(parts[5]);
        entry.fileSystemType = unescape(parts[separator + 1]);
        entry.source = separator + 2 < parts.size() ? unescape(parts[separator + 2]) : std::string();
        if (entry.mountPoint.empty() || entry.mountPoint.front() != '/') continue;
        table.push_back(std::move(entry));
    }
    return table;
}

std::optional<MountTableEntry> mountContaining(const std::vector<MountTableEntry>& table,
                                               std::string_view resolvedPath) {
    const MountTableEntry* best = nullptr;
    for (const auto& entry : table) {
        const std::string& point = entry.mountPoint;
        bool holds = resolvedPath == point || point == "/" ||
                     (resolvedPath.size() > point.size() && resolvedPath.starts_with(point) &&
                      resolvedPath[point.size()] == '/');
        if (holds && (!best || point.size() >= best->mountPoint.size())) best = &entry;
    }
    if (!best) return std::nullopt;
    return *best;
}

std::vector<BrowsableVolume> browsableVolumesIn(const std::vector<MountTableEntry>& table) {
    static const std::set<std::string, std::less<>> systemTypes = {
        "proc",     "sysfs",   "cgroup",      "cgroup2",   "devtmpfs",     "devpts",    "mqueue",
        "debugfs",  "tracefs", "securityfs",  "pstore",    "bpf",          "configfs",  "fusectl",
        "hugetlbfs", "autofs", "binfmt_misc", "nsfs",      "rpc_pipefs",   "efivarfs",  "ramfs",
        "selinuxfs", "tmpfs",  "squashfs",    "overlay",   "fuse.gvfsd-fuse", "fuse.portal", "fuse.lxcfs"};
    static const std::set<std::string, std::less<>> networkTypes = {
        "nfs", "nfs4", "cifs", "smb3", "smbfs", "fuse.sshfs", "9p", "ceph", "glusterfs", "afs"};
    auto under = [](const std::string& path, std::string_view folder) {
        return path == folder || (path.starts_with(folder) && path.size() > folder.size() && path[folder.size()] == '/');
    };
    std::vector<BrowsableVolume> out;
    std::set<std::string> seen;
    for (const auto& entry : table) {
        const std::string& path = entry.mountPoint;
        if (systemTypes.contains(entry.fileSystemType)) continue;
        bool system = false;
        for (std::string_view folder : {"/proc", "/sys", "/dev", "/boot", "/snap", "/etc", "/var/lib/docker",
                                        "/var/lib/containers"})
            system = system || under(path, folder);
        if (under(path, "/run") && !under(path, "/run/media")) system = true;
        if (system || !seen.insert(path).second) continue;
        std::string name = path == "/" ? path : path.substr(path.rfind('/') + 1);
        out.push_back({path, name, !networkTypes.contains(entry.fileSystemType)});
    }
    return out;
}

}  // namespace orvane::platform
