// Captured tool output and a made-up Mac whose facts answer what the storage reports ask.
#pragma once

#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/tool_runner.hpp"

namespace orvane::testing {

inline std::string capturedText(const std::string& tool, const std::string& name) {
    return readFile(std::string(TEST_DATA_DIR) + "/" + tool + "/" + name).value_or("");
}
inline std::vector<std::string> capturedLines(const std::string& tool, const std::string& name) {
    return splitToolOutput(capturedText(tool, name), false);
}

inline ToolResult printed(std::vector<std::string> lines) {
    ToolResult result;
    result.lines = std::move(lines);
    result.status = 0;
    return result;
}
inline ToolResult timedOut() {
    ToolResult result;
    result.timedOut = true;
    return result;
}

// A wall-clock time of this machine's time zone, as tmutil's names are read.
inline TimePoint localTime(int year, int month, int day, int hour, int minute, int second) {
    std::tm local{};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    local.tm_isdst = -1;
    return Clock::from_time_t(std::mktime(&local));
}

// Only what is set here exists; a tool with no answer behaves as an absent one.
struct FakeMac {
    VolumeFigures volume;
    std::string rootDevice = "/dev/disk3s1s1";
    std::map<std::vector<std::string>, ToolResult> tools;
    std::set<std::string> folders;
    std::set<std::string> refused;              // folders whose listing fails
    std::map<std::string, std::int64_t> files;  // allocated bytes
    std::string temporaryFolder = "/var/folders/xy/abc123/T/";
    TimePoint now = localTime(2025, 7, 12, 6, 23, 16);
    // Every run as it was asked: argv, timeout, errors.
    mutable std::vector<std::vector<std::string>> runs;

    Facts facts() const {
        Facts facts;
        facts.volume = [this](const std::string&) { return volume; };
        facts.mount = [this](const std::string& path) -> std::optional<platform::MountFacts> {
            if (path != "/") return std::nullopt;
            return platform::MountFacts{"/", "apfs", rootDevice};
        };
        facts.run = [this](const std::string& tool, const std::vector<std::string>& args, double timeout, bool,
                           ToolErrors errors) {
            std::vector<std::string> argv{tool};
            argv.insert(argv.end(), args.begin(), args.end());
            auto logged = argv;
            logged.push_back(std::to_string(static_cast<int>(timeout)));
            logged.push_back(errors == ToolErrors::discarded ? "discarded" : "separate");
            runs.push_back(logged);
            auto answer = tools.find(argv);
            return answer == tools.end() ? ToolResult{} : answer->second;
        };
        facts.exists = [this](const std::string& p) { return folders.contains(p) || files.contains(p); };
        facts.resolve = [facts = facts](const std::string& p) -> std::optional<std::string> {
            if (!facts.exists(p)) return std::nullopt;
            return p;
        };
        facts.lstat = [this](const std::string& p) -> std::optional<platform::FileFacts> {
            platform::FileFacts entry;
            if (folders.contains(p)) {
                entry.mode = 0040755;
            } else if (auto file = files.find(p); file != files.end()) {
                entry.mode = 0100644;
                entry.allocatedBytes = file->second;
            } else {
                return std::nullopt;
            }
            return entry;
        };
        facts.list = [this](const std::string& p) -> std::optional<std::vector<FolderEntry>> {
            if (!folders.contains(p) || refused.contains(p)) return std::nullopt;
            std::vector<FolderEntry> entries;
            for (const auto& folder : folders)
                if (deletingLastPathComponent(folder) == p && folder != p)
                    entries.push_back({lastPathComponent(folder), true});
            return entries;
        };
        facts.now = [this] { return now; };
        facts.temporaryFolder = temporaryFolder;
        facts.lsofTool = kMacLsofTool;
        return facts;
    }
};

// `diskutil apfs list -plist` for one container whose volumes are {device, name, role, bytes}.
struct PlistVolume {
    std::string device;
    std::string name;
    std::string role;
    std::int64_t bytes;
};
inline std::vector<std::string> apfsList(const std::string& reference, const std::vector<PlistVolume>& volumes) {
    std::vector<std::string> lines = {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
                                      "<plist version=\"1.0\">",
                                      "<dict><key>Containers</key><array><dict>",
                                      "<key>CapacityCeiling</key><integer>994662584320</integer>",
                                      "<key>CapacityFree</key><integer>301012000768</integer>",
                                      "<key>ContainerReference</key><string>" + reference + "</string>",
                                      "<key>Volumes</key><array>"};
    for (const auto& v : volumes)
        lines.push_back("<dict><key>DeviceIdentifier</key><string>" + v.device + "</string><key>Name</key><string>" +
                        v.name + "</string><key>Roles</key><array><string>" + v.role +
                        "</string></array><key>CapacityInUse</key><integer>" + std::to_string(v.bytes) +
                        "</integer></dict>");
    lines.insert(lines.end(), {"</array></dict></array></dict>", "</plist>"});
    return lines;
}

}  // namespace orvane::testing
