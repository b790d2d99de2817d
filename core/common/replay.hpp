// A recorded Mac: the answers of its tools and the files of its disk, kept in a folder, read
// back as the facts of the world. Lets every command over macOS tools and places run on any
// machine, and lets a Mac user send the state of their machine with a report.
//
//   DIR/tools.json   [{"argv": [...], "stdout": "FILE"|null, "stderr": "FILE"|null, "status": N,
//                      "timedOut": true}]  answers runs by exact argv; any other run is absent
//   DIR/root/        stands for "/" for everything read
//   DIR/home         the recorded home, one line ("/Users/alex")
//   DIR/uid          the recorded user's id (501 when absent)
//   DIR/system.json  what system calls said: "homeVolume" {"totalCapacity", "availableCapacity",
//                    "availableCapacityForImportantUsage"}, "rootDevice", "fileSystemType",
//                    "temporaryFolder", "volumes" [{"path", "name", "isLocal"}], "refused" (paths whose listing was refused), "now"
//                    (ISO 8601), "files" {PATH: {"size", "allocated", "modified", "accessed"
//                    (ISO 8601), "dataless"}} (what lstat said of a file where the recording's copy can't
//                    say it: a cloud placeholder); a missing key is unknown, never zero
//   DIR/xattrs.json  extended attributes by path, then by name: {"/Applications/X.app":
//                    {"com.apple.quarantine": "0083;...", "com.apple.metadata:kMDItemWhereFroms":
//                    {"base64": "YnBsaXN0..."}}}; text as it stands, bytes in Base64
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

struct RecordedRun {
    std::optional<std::string> stdoutText;
    std::optional<std::string> stderrText;
    std::int32_t status = 0;
    bool timedOut = false;
};

// What the Mac said of one file, each given field replacing what the recording's copy says.
struct RecordedFile {
    std::optional<std::int64_t> size;
    std::optional<std::int64_t> allocated;
    std::optional<TimePoint> modified;
    std::optional<TimePoint> accessed;
    std::optional<bool> dataless;
};

struct Recording {
    std::string dir;                                         // the folder, absolute
    std::map<std::vector<std::string>, RecordedRun> runs;    // by exact argv
    std::string home;                                        // "/Users/alex"
    std::uint32_t uid = 501;
    nlohmann::json system = nlohmann::json::object();
    std::set<std::string> refused;                           // listings the Mac refused
    VolumeFigures homeVolume;
    std::vector<platform::BrowsableVolume> volumes;           // other drives and shares mounted
    std::optional<TimePoint> now;
    std::map<std::string, std::map<std::string, std::string>> extendedAttributes;  // by path, then name
    std::map<std::string, RecordedFile> files;                // by place
};

// The recording in DIR, every file it names read at once; or a sentence naming what is wrong
// (the folder, tools.json, an entry's file, home, uid, system.json).
struct RecordingLoad {
    std::optional<Recording> recording;
    std::string error;
};
RecordingLoad loadRecording(const std::string& dir);

// The facts of the recorded Mac. Reads never leave DIR/root: links are resolved inside it, an
// absolute target from its top. Nothing in these facts writes.
Facts recordedFacts(std::shared_ptr<const Recording> recording);

// Where a path of the recorded Mac lies in the recording, links resolved within DIR/root
// (the final component too when `followLast`); none when it is not there.
std::optional<std::string> recordedPlace(const Recording& recording, const std::string& path, bool followLast);

}  // namespace orvane
