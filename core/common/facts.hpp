// Everything the library asks of the world, behind one object the caller hands down: the tools it
// runs, what it reads of the disk, who the user is and what time it is, as the machine stands or
// as a recorded Mac left it. Logic takes it as an argument and never reaches around it; tests
// hand in a fake, and the command line a recording with --replay.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/folder_entries.hpp"
#include "core/common/format.hpp"
#include "core/common/json_files.hpp"
#include "core/common/tool_runner.hpp"
#include "core/platform/platform.hpp"

namespace orvane {

// Which rules guard the system. macOS keeps its own system out of root's reach, so its rules
// guard only what it leaves open. A system that protects nothing from root (Linux) needs more:
// its system folders, its start-up places, its homes under /home, and deny by default for a
// caller who is not root.
enum class RuleSet {
    macOS,
    withLinuxAdditions,
};
#ifdef __linux__
inline constexpr RuleSet kHostRuleSet = RuleSet::withLinuxAdditions;
inline constexpr const char* kHostLsofTool = "/usr/bin/lsof";
#else
inline constexpr RuleSet kHostRuleSet = RuleSet::macOS;
inline constexpr const char* kHostLsofTool = "/usr/sbin/lsof";
#endif
inline constexpr const char* kMacLsofTool = "/usr/sbin/lsof";

// A volume's figures as the system gives them; each may be unknown, and unknown is never zero.
struct VolumeFigures {
    std::optional<std::int64_t> total;
    std::optional<std::int64_t> available;
    // What the system would hand over for something important, purgeable space included. A
    // system without purgeable space gives `available`.
    std::optional<std::int64_t> availableForImportantUsage;
    bool operator==(const VolumeFigures&) const = default;
};

struct Facts {
    // Starts a tool as runToolSplit does, or answers as a recording of one.
    std::function<ToolResult(const std::string& tool, const std::vector<std::string>& args, double timeout,
                             bool nulDelimited, ToolErrors errors)>
        run;
    // Whether something is at a path, links followed: a dangling link is absent.
    std::function<bool(const std::string&)> exists;
    // The entries of a folder; none when it cannot be listed (refused, gone, not a folder).
    std::function<std::optional<std::vector<FolderEntry>>(const std::string&)> list;
    // A regular file's bytes within a bound, or why not (readFile's rules).
    std::function<FileRead(const std::string&, std::uint64_t maxBytes)> read;
    // The first bytes of a regular file, at most `maxBytes` (readFileHead's rules).
    std::function<FileRead(const std::string&, std::uint64_t maxBytes)> readHead;
    // The path with every link resolved; none when it cannot be reached.
    std::function<std::optional<std::string>(const std::string&)> resolve;
    // The entry itself, links not followed.
    std::function<std::optional<platform::FileFacts>(const std::string&)> lstat;
    // An extended attribute's value by its macOS name (platform::extendedAttribute's rules).
    std::function<std::optional<std::string>(const std::string& path, const std::string& name, std::size_t maxBytes)>
        extendedAttribute;
    // Where a library that opens files itself (SQLite) finds the file at a path: the path itself
    // on this machine, its place in the recording on a recorded Mac; none when it is not there.
    std::function<std::optional<std::string>(const std::string&)> localPath;
    // The user's home with `component` appended, as home() does.
    std::function<std::string(std::string_view component)> home;
    // The file system a path lives on; none when it cannot be reached.
    std::function<std::optional<platform::MountFacts>(const std::string&)> mount;
    // The mounted volumes a user would browse.
    std::function<std::vector<platform::BrowsableVolume>()> volumes;
    // The figures of the volume a path lives on (statvfs off macOS).
    std::function<VolumeFigures(const std::string&)> volume;
    // The comparison form turned back into a path to walk on this disk (platform::walkablePath).
    std::function<std::string(std::string_view)> walkable;
    // Whether a user may administer the system (only the Linux additions ask).
    std::function<bool(std::uint32_t)> isAdministrator;
    std::function<TimePoint()> now;
    // The executable of a running process; none on a recorded Mac, which records no processes.
    std::function<std::optional<std::string>(std::int32_t pid)> processPath;
    // The process's temporary folder, as the system names it to the user.
    std::string temporaryFolder;
    // The program that lists open files; it lives elsewhere on a Mac than on Linux.
    std::string lsofTool;
    // The user the facts describe: the one running, or the recorded Mac's.
    std::uint32_t uid = 0;
    RuleSet rules = kHostRuleSet;
    // Whether names that differ only in Unicode normal form are one name on this disk.
    bool namesAreNormalized = true;
    // A recorded Mac: everything is read from the recording, and nothing may be changed.
    bool recorded = false;

    // The machine this runs on.
    static const Facts& real();
};

// The status of a tool run to its end with its output unread, as runStatus gives it; -1 when it
// could not be started.
std::int32_t runStatusThrough(const Facts& facts, const std::string& tool, const std::vector<std::string>& args);

}  // namespace orvane
