// What a scan could not see and where it chose not to go. A total that silently leaves out a
// refused folder looks complete when it is not, so every refusal is kept, explained, and paired
// with what the user can do about it.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/raw_value.hpp"

namespace orvane {

// The refusals met during one scan, from all of its threads.
class UnreadableLog {
public:
    struct Snapshot {
        std::vector<std::string> paths;  // in no defined order
        std::map<std::string, std::string> browsers;
    };

    void record(const std::vector<std::string>& paths);
    void recordBrowser(const std::string& name, const std::string& path);
    void reset();
    Snapshot snapshot() const;

private:
    mutable std::mutex lock_;
    std::vector<std::string> paths_;  // kept unique
    std::map<std::string, std::string> browsers_;
};

enum class UnreadableReason {
    needsFullDiskAccess,
    browserNeedsFullDiskAccess,
    protectedByMacOS,
};
template <>
struct RawValues<UnreadableReason> {
    static constexpr std::array<std::pair<UnreadableReason, std::string_view>, 3> table = {{
        {UnreadableReason::needsFullDiskAccess, "needsFullDiskAccess"},
        {UnreadableReason::browserNeedsFullDiskAccess, "browserNeedsFullDiskAccess"},
        {UnreadableReason::protectedByMacOS, "protectedByMacOS"},
    }};
};

struct UnreadableFolder {
    std::string path;
    UnreadableReason reason = UnreadableReason::needsFullDiskAccess;
    std::optional<std::string> browser;
    bool operator==(const UnreadableFolder&) const = default;

    std::string explanation() const;
    // What the user can do; none when nothing can be done.
    std::optional<std::string> fix() const;
};

struct SkippedLocation {
    enum class Kind {
        cloud,
        otherDrive,
        networkShare,
    };
    Kind kind = Kind::cloud;
    std::string title;
    std::string path;
    bool operator==(const SkippedLocation&) const = default;

    const std::string& id() const { return path; }
    std::string_view explanation() const;
};
template <>
struct RawValues<SkippedLocation::Kind> {
    static constexpr std::array<std::pair<SkippedLocation::Kind, std::string_view>, 3> table = {{
        {SkippedLocation::Kind::cloud, "cloud"},
        {SkippedLocation::Kind::otherDrive, "otherDrive"},
        {SkippedLocation::Kind::networkShare, "networkShare"},
    }};
};

struct FolderProbe {
    bool exists = false;
    bool listable = false;
    bool operator==(const FolderProbe&) const = default;
};

// The outermost refused folders, sorted, each with why it was refused. A folder inside a
// browser's data takes the browser's reason, so the user learns which app's data went uncounted.
std::vector<UnreadableFolder> unreadableFolders(const std::vector<std::string>& paths,
                                                const std::map<std::string, std::string>& browsers,
                                                bool fdaGranted);

struct BrowserDataFolder {
    std::string name;
    std::string path;
    bool operator==(const BrowserDataFolder&) const = default;
};
std::vector<BrowserDataFolder> browserDataFolders(const std::string& home);

std::vector<SkippedLocation> cloudSkipRoots(const std::string& home);
bool isInSkippedCloudRoot(const std::string& path, const std::string& home);

namespace FDA {
std::vector<std::string> probePaths(const std::string& home);
// Granted unless a probe folder exists and none that exists can be listed: a Mac without any
// of them gives no evidence of a refusal.
bool verdict(const std::vector<FolderProbe>& probes);
FolderProbe probe(const std::string& path, const Facts& facts = Facts::real());
// With no Full Disk Access notion (Linux), this is whether the probe folders can be listed.
bool granted(const Facts& facts = Facts::real());
}  // namespace FDA

// {"path","reason","browser","explanation","fix"}, absent values null.
nlohmann::ordered_json toJSON(const UnreadableFolder& folder);
// {"kind","title","path","explanation"}.
nlohmann::ordered_json toJSON(const SkippedLocation& location);

// What one look at PATH could not read and chose not to enter: the folders du was refused and
// the browsers' data folders under PATH whose listing is refused, less what lies in a cloud root
// the scan skips; the cloud roots under PATH that exist; the drives and shares mounted inside it.
struct RefusalSurvey {
    UnreadableLog::Snapshot refused;
    std::vector<UnreadableFolder> unreadable;
    std::vector<SkippedLocation> skipped;
    bool fdaGranted = true;
};
RefusalSurvey surveyRefusals(const std::string& path, const Facts& facts = Facts::real());

}  // namespace orvane
