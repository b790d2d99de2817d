// The pass that finds identical files under some folders: by size, then by a sample of the bytes,
// then by the digest of every byte; then which copy stays, and what merging the rest gives back.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/common/facts.hpp"
#include "core/duplicates/clone_claim.hpp"
#include "core/duplicates/file_sig.hpp"

namespace orvane {

// Files proven identical, byte for byte.
struct DuplicateGroup {
    std::int64_t size = 0;  // of one copy
    std::string hash;       // SHA-256 of the bytes, lowercase hex
    std::string keeper;
    std::string reason;               // keeperReason's sentence
    std::vector<std::string> copies;  // the others, the better keepers first
    DupeClaim claim;                  // what merging them gives back; none for what already shares storage
    // Keeper and copies as the proof saw them: a merge leaves alone what has changed since.
    std::map<std::string, FileSig> sigs;
    bool operator==(const DuplicateGroup&) const = default;
};

struct DuplicateStats {
    std::int64_t files = 0;           // regular files seen, empty ones included
    std::int64_t candidates = 0;      // files sharing their size with another
    std::int64_t candidateBytes = 0;  // their bytes
    std::int64_t bytesRead = 0;       // what the pass read of them
    double seconds = 0;
    bool operator==(const DuplicateStats&) const = default;
};

struct DuplicateFinding {
    std::vector<DuplicateGroup> groups;  // the largest claim first, ties by the keeper's path
    DupeClaim claim;                     // over every group
    DuplicateStats stats;
};

struct DuplicateScanOptions {
    // physicalStart, or what stands for it (a recorded Mac tells no device offsets).
    std::function<std::optional<std::int64_t>(const std::string&)> physicalStart;
    // Called now and then from the calling thread with a sentence on how far the pass is.
    std::function<void(const std::string&)> progress;
    unsigned threads = 0;  // 0: one per core, at most four
};

// The identical files under `roots` (folders, or single files). Links are not followed and a walk
// stays on its root's file system; empty files are never duplicates; a file that cannot be opened,
// or whose size changed while the pass ran, is left out. Paths and file facts come from `facts`,
// bytes from the file at facts.localPath. The roots must exist: the caller says so otherwise.
DuplicateFinding findDuplicates(const std::vector<std::string>& roots, const Facts& facts,
                                const DuplicateScanOptions& options);

// The FileSig the proof and the merge both take: the modification time in nanoseconds, so that a
// write in the same second as the proof is still seen.
FileSig fileSigOf(const platform::FileFacts& facts);

}  // namespace orvane
