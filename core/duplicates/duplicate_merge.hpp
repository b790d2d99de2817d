// Merging proven duplicates: every copy stays at its path and comes to share the storage of the
// copy kept, so nothing that uses one breaks and the extra space comes back.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/common/facts.hpp"
#include "core/duplicates/duplicate_scan.hpp"
#include "core/platform/platform.hpp"

namespace orvane {

// What became of one copy.
struct MergeStep {
    std::string copy;
    std::string keeper;
    bool merged = false;
    std::optional<std::string> skipped;  // why it was left as it was, as a clause: "it changed since …"
    std::int64_t bytes = 0;              // given back
    bool alreadyShared = false;          // there was nothing to merge: a clone, or a hard link of the keeper
    bool operator==(const MergeStep&) const = default;
};

struct MergeOutcome {
    std::vector<MergeStep> steps;
    std::int64_t copies = 0;     // merged
    std::int64_t originals = 0;  // keepers that gained at least one copy
    std::int64_t bytes = 0;
    // Whether something needed merging at all: false when every copy already shared its storage.
    bool needed = false;
};

struct MergeFacts {
    const Facts& facts;  // lstat, mount, home
    // The sentence that keeps a path (its protections), or none.
    std::function<std::optional<std::string>(const std::string&)> refusal;
    std::function<std::optional<std::int64_t>(const std::string&)> physicalStart = platform::physicalStart;
    std::function<platform::ShareResult(const std::string& keeper, const std::string& copy, const std::string& working)>
        share = platform::shareStorage;
    // Told of each step as it ends, for a person watching.
    std::function<void(const MergeStep&)> onStep;
};

// Merges every copy of every group into its keeper, each under a dedupe journal entry and with a
// "DEDUPE" line in the action log. A copy is left alone when it is protected, when it or its
// keeper changed since the proof, when it is the keeper's own file under another name, when it
// lies on another file system, or when it already shares the keeper's storage. Once a file system
// has said it cannot share storage, the rest of its copies are not tried.
MergeOutcome mergeDuplicates(const std::vector<DuplicateGroup>& groups, const MergeFacts& facts);

}  // namespace orvane
