// Which copy of an identical set stays as the named survivor, and the one sentence that says why.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/common/format.hpp"

namespace orvane {

// One thing about a path that speaks for or against keeping it.
struct KeeperSignal {
    int score = 0;  // positive for a good location, negative for a bad one
    std::optional<std::string> keepPhrase;  // why this path was kept
    std::optional<std::string> dropPhrase;  // why another path lost to it
    bool operator==(const KeeperSignal&) const = default;
};

// Every signal that applies to `path`, in a fixed order: copy-suffix names, transit folders
// (Downloads, the Desktop itself), a Trash, temporary folders, and a subfolder of Documents,
// Pictures, Music or Movies in `home`.
std::vector<KeeperSignal> keeperSignals(const std::string& path, const std::string& home);
// The sum of the signals' scores.
int keeperScore(const std::string& path, const std::string& home);

// Best keeper first: the higher score, then the earlier date where both are known, then the
// shorter path in characters, then plain text order. Stable.
std::vector<std::string> orderByKeeper(std::vector<std::string> paths, const std::map<std::string, TimePoint>& modified,
                                       const std::string& home);

// "Kept: …." for the keeper against the others of its set.
std::string keeperReason(const std::string& path, const std::vector<std::string>& over, const std::string& home);

}  // namespace orvane
