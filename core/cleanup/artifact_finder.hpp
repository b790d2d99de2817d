// The walk that finds rebuildable project folders under a folder, and git's word on many of them
// at once. The decisions on a single folder are project_artifacts.hpp's.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/cleanup/project_artifacts.hpp"

namespace orvane {

struct ArtifactFinding {
    std::string path;
    ProjectArtifactRule rule;
    bool operator==(const ArtifactFinding&) const = default;
};

// Bounds that let a whole home folder finish in reasonable time. A walk that reaches one says
// so: what it found is then a part.
struct ArtifactWalkLimits {
    int maxDepth = 40;                   // below the root
    std::int64_t maxFolders = 1'000'000;  // folders listed
};

struct ArtifactWalk {
    std::vector<ArtifactFinding> artifacts;  // sorted by path
    std::int64_t foldersVisited = 0;
    bool complete = true;  // false when a limit stopped the walk
    bool operator==(const ArtifactWalk&) const = default;
};

// Called every few thousand folders and once at the end.
using ArtifactWalkProgress = std::function<void(std::int64_t foldersVisited, std::size_t artifactsFound)>;

// Walks `root` (a folder, not a link to one) for folders that a rule recognises beside their
// manifest. It follows no link, stays on the root's file system, and does not enter an artifact
// once found, a hidden folder, a package-install folder (their contents are installed packages,
// which go with them) or the home's Library. The hidden and package-install folders are still
// recognised as artifacts themselves. An artifact inside an installed package is not reported.
// A root that is itself an artifact is the one finding. A root that cannot be read gives nothing.
// `found` hears of each artifact the moment it is found, before the walk goes on. The disk is
// read only through `facts` (lstat before each folder is listed, then its listing).
ArtifactWalk findProjectArtifacts(const std::string& root, const ArtifactWalkLimits& limits = {},
                                  const ArtifactWalkProgress& progress = {},
                                  const std::function<void(const ArtifactFinding&)>& found = {},
                                  const Facts& facts = Facts::real());

// The same walk with each artifact measured by du (allocated bytes, -1 when du could not tell),
// on threads of their own that take whatever the walk has found so far, so that measuring
// overlaps walking. `sizes` runs parallel to `walk.artifacts`. `facts.run` is called from those
// threads at once.
struct MeasuredArtifactWalk {
    ArtifactWalk walk;
    std::vector<std::int64_t> sizes;
    bool operator==(const MeasuredArtifactWalk&) const = default;
};
MeasuredArtifactWalk findAndMeasureProjectArtifacts(const std::string& root, const ArtifactWalkLimits& limits = {},
                                                    const ArtifactWalkProgress& progress = {},
                                                    double duTimeout = 3600, const Facts& facts = Facts::real());

// sweepGitState for each folder, with the repository found by gitRepoRoot and the gate asked once,
// only when some folder lies in a repository. Up to `parallel` git runs at a time, so `facts` is
// asked from several threads at once; results in the order of `folders`.
std::vector<SweepGitState> sweepGitStates(const std::vector<std::string>& folders, unsigned parallel = 4,
                                          const Facts& facts = Facts::real());

}  // namespace orvane
