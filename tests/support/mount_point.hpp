// A real mount point to test against, as the kernel lists it.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include "core/platform/mount_table.hpp"
#include "core/platform/platform.hpp"

namespace orvane::testing {

// Two levels deep or more: one directly under "/", such as /proc, is refused as a child of the
// root before its mount is ever looked at. Reached without a symbolic link, and not covered by a
// later mount, so the folder is the mount's own.
inline std::optional<std::string> twoLevelMountPoint() {
    std::ifstream in("/proc/self/mountinfo");
    std::stringstream text;
    text << in.rdbuf();
    for (const auto& entry : platform::parseMountInfo(text.str())) {
        const std::string& point = entry.mountPoint;
        struct stat st {};
        std::error_code ec;
        if (std::count(point.begin(), point.end(), '/') < 2 || ::lstat(point.c_str(), &st) != 0 ||
            !S_ISDIR(st.st_mode) || std::filesystem::canonical(point, ec) != point)
            continue;
        const auto reached = platform::mountOf(point);
        if (reached && reached->mountPoint == point) return point;
    }
    return std::nullopt;
}

}  // namespace orvane::testing
