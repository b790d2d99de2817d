// What one cloud provider's drive holds, and which of its files are probably copies of one
// another. A cloud file may have no bytes here, so nothing is proven by content: groups come from
// size and timestamp, then names, and every group says so.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/format.hpp"

namespace orvane {

struct CloudFile {
    std::string path;  // under the provider's root, or the provider's own path
    std::int64_t bytes = 0;  // its size in the cloud
    TimePoint modified{};
    bool onDisk = false;  // a local copy of the content exists
    std::int64_t localBytes = 0;  // what the local copy occupies
    bool operator==(const CloudFile&) const = default;
};

enum class DupeConfidence {
    high,
    probable,
};
std::string_view rawValue(DupeConfidence confidence);
std::string_view explanation(DupeConfidence confidence);
// Shown with either confidence.
inline constexpr std::string_view kCloudDupeCaveat =
    "Velloran Orvane can't verify the contents without downloading both copies, so the final call is yours.";

// One line of evidence; `agrees` when it speaks for the files being the same.
struct DupeSignal {
    std::string label;
    bool agrees = false;
    std::string detail;
    bool operator==(const DupeSignal&) const = default;
};

struct CloudDupeGroup {
    std::vector<CloudFile> files;
    DupeConfidence confidence = DupeConfidence::probable;
    std::string provider;

    // The first file's path; a fresh UUID for a group with no files.
    std::string id() const;
    // What deleting all but one copy gives back in the plan: the first file's size for each other.
    std::int64_t reclaimable() const;
    // The evidence, always ending with the one signal that never agrees: contents not compared.
    std::vector<DupeSignal> signals() const;
};

enum class CloudAction {
    releaseLocal,
    deleteFromCloud,
};
std::string_view verb(CloudAction action);
std::string_view frees(CloudAction action);

// The running account of a batch of actions on cloud files.
struct CloudActionOutcome {
    std::int64_t localFreed = 0;
    std::int64_t cloudFreed = 0;
    std::int64_t localTrashHeld = 0;  // local bytes now in the Trash, so not yet free
    int stillReleasing = 0;            // the caller's
    int done = 0;
    std::vector<std::string> failures;  // the caller's, one line per failed file

    void creditDelete(const CloudFile& file, bool viaTrash);
    void creditRelease(const CloudFile& file);
};

struct CloudInventory {
    CloudInventory(std::string providerName, std::string rootFolder)
        : provider(std::move(providerName)), root(std::move(rootFolder)) {}

    std::string provider;
    std::string root;
    int files = 0;
    int cloudOnly = 0;
    std::int64_t remoteBytes = 0;
    std::int64_t localBytes = 0;
    int opaque = 0;  // pointer documents whose real size can't be read here
    std::vector<CloudFile> largest;
    std::vector<CloudDupeGroup> dupeGroups;

    // A name with the marks of copying taken away: "Copy of Budget (1).xlsx" gives "budget".
    static std::string normalisedStem(std::string_view path);
    // Files of at least 1,000,000 bytes with the same size and the same whole second of
    // modification, largest reclaimable first.
    static std::vector<CloudDupeGroup> groupProbableDupes(const std::vector<CloudFile>& files,
                                                         const std::string& provider);
};

// A provider's date (ISO 8601, fractional seconds or not); the distant past when it is absent or
// cannot be read, never an error.
TimePoint parseCloudDate(std::optional<std::string_view> text);

}  // namespace orvane
