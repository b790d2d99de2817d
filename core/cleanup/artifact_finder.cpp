#include "core/cleanup/artifact_finder.hpp"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "core/common/folder_entries.hpp"
#include "core/common/path.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane {
namespace {

constexpr std::int64_t kProgressEvery = 2000;
// Folders measured by one du run at most, so that no command line grows past the system's limit.
constexpr std::size_t kDuBatch = 500;
// du runs at a time beside the walk: du is bound by the file system's metadata, so two overlap well.
constexpr int kMeasurers = 2;

std::set<std::string, std::less<>> namesOf(const std::vector<FolderEntry>& entries) {
    std::set<std::string, std::less<>> names;
    for (const auto& e : entries) names.insert(e.name);
    return names;
}

}  // namespace

ArtifactWalk findProjectArtifacts(const std::string& root, const ArtifactWalkLimits& limits,
                                  const ArtifactWalkProgress& progress,
                                  const std::function<void(const ArtifactFinding&)>& found, const Facts& facts) {
    ArtifactWalk walk;
    auto report = [&] {
        if (progress) progress(walk.foldersVisited, walk.artifacts.size());
    };
    const auto rootFacts = facts.lstat(root);
    if (!rootFacts || !rootFacts->isDirectory()) return walk;
    auto rootListing = facts.list(root);
    if (!rootListing) return walk;
    const std::uint64_t device = rootFacts->device;

    // A root that is an artifact itself: its parent holds the manifest.
    const std::string rootName = lastPathComponent(root);
    if (isArtifactRuleName(rootName)) {
        const std::string parent = deletingLastPathComponent(root);
        auto siblings = parent.empty() ? std::nullopt : facts.list(parent);
        if (auto rule = siblings ? projectArtifactRule(rootName, namesOf(*siblings)) : std::nullopt) {
            walk.artifacts.push_back({root, *rule});
            if (found) found(walk.artifacts.back());
            walk.foldersVisited = 1;
            report();
            return walk;
        }
    }

    const std::string homeDir = facts.home("");
    // Package-install folders are never entered, so only a root inside one puts everything there.
    const bool insidePackage = isPackageInstallCopy(root);
    struct Pending {
        std::string path;
        int depth;
        std::optional<std::vector<FolderEntry>> listing;  // the root's, already read
    };
    std::vector<Pending> stack;
    stack.push_back({root, 0, std::move(rootListing)});
    while (!stack.empty()) {
        Pending item = std::move(stack.back());
        stack.pop_back();
        if (walk.foldersVisited >= limits.maxFolders) {
            walk.complete = false;
            break;
        }
        if (!item.listing) {
            // Looked at again just before listing: a folder that became a link since its parent
            // was read is not followed, and another file system is not ours to walk.
            auto here = facts.lstat(item.path);
            if (!here || !here->isDirectory() || here->device != device) continue;
            item.listing = facts.list(item.path);
            if (!item.listing) continue;
        }
        const auto& entries = *item.listing;
        ++walk.foldersVisited;
        if (walk.foldersVisited % kProgressEvery == 0) report();

        std::optional<std::set<std::string, std::less<>>> siblings;  // built only when a name calls for it
        for (const auto& entry : entries) {
            if (!entry.isFolder) continue;
            const std::string path = appendingPathComponent(item.path, entry.name);
            if (isArtifactRuleName(entry.name)) {
                if (!siblings) siblings = namesOf(entries);
                if (auto rule = projectArtifactRule(entry.name, *siblings)) {
                    if (!insidePackage) {
                        walk.artifacts.push_back({path, std::move(*rule)});
                        if (found) found(walk.artifacts.back());
                    }
                    continue;
                }
            }
            if (entry.name.front() == '.' || isPackageInstallDirName(entry.name)) continue;
            if (entry.name == "Library" && item.path == homeDir) continue;
            if (item.depth + 1 > limits.maxDepth) {
                walk.complete = false;
                continue;
            }
            stack.push_back({path, item.depth + 1, std::nullopt});
        }
    }
    std::sort(walk.artifacts.begin(), walk.artifacts.end(),
              [](const auto& a, const auto& b) { return a.path < b.path; });
    report();
    return walk;
}

MeasuredArtifactWalk findAndMeasureProjectArtifacts(const std::string& root, const ArtifactWalkLimits& limits,
                                                    const ArtifactWalkProgress& progress, double duTimeout,
                                                    const Facts& facts) {
    std::mutex lock;
    std::condition_variable wake;
    std::vector<std::string> pending;
    bool walkDone = false;
    std::map<std::string, std::int64_t> sizes;

    auto measure = [&] {
        for (;;) {
            std::vector<std::string> batch;
            {
                std::unique_lock hold(lock);
                wake.wait(hold, [&] { return walkDone || !pending.empty(); });
                if (pending.empty()) return;
                // Half of what waits, so that the other measurer has work too; never so many that
                // the command line outgrows the system's limit.
                const auto take = std::min<std::size_t>((pending.size() + 1) / 2, kDuBatch);
                batch.assign(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(take));
                pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(take));
            }
            auto measured = duBatchSizes(batch, duTimeout, facts);
            std::lock_guard hold(lock);
            sizes.insert(measured.begin(), measured.end());
        }
    };
    std::vector<std::thread> measurers;
    for (int i = 0; i < kMeasurers; ++i) measurers.emplace_back(measure);
    MeasuredArtifactWalk result;
    result.walk = findProjectArtifacts(
        root, limits, progress,
        [&](const ArtifactFinding& finding) {
            std::lock_guard hold(lock);
            pending.push_back(finding.path);
            wake.notify_one();
        },
        facts);
    {
        std::lock_guard hold(lock);
        walkDone = true;
    }
    wake.notify_all();
    for (auto& m : measurers) m.join();
    for (const auto& a : result.walk.artifacts) {
        auto size = sizes.find(a.path);
        result.sizes.push_back(size == sizes.end() ? -1 : size->second);
    }
    return result;
}

std::vector<SweepGitState> sweepGitStates(const std::vector<std::string>& folders, unsigned parallel,
                                          const Facts& facts) {
    std::vector<SweepGitState> states(folders.size(), SweepGitState::unknown(false));
    if (folders.empty()) return states;
    std::vector<std::optional<std::string>> repos;
    repos.reserve(folders.size());
    bool anyRepo = false;
    for (const auto& folder : folders) {
        repos.push_back(gitRepoRoot(folder, facts));
        anyRepo = anyRepo || repos.back().has_value();
    }
    const bool gate = anyRepo && gitMayBeAsked(facts);

    std::atomic<std::size_t> next{0};
    auto work = [&] {
        for (std::size_t i; (i = next.fetch_add(1)) < folders.size();)
            states[i] = sweepGitState(folders[i], repos[i], gate, facts);
    };
    const unsigned threads = std::max(1u, std::min<unsigned>(parallel, static_cast<unsigned>(folders.size())));
    std::vector<std::thread> pool;
    for (unsigned t = 1; t < threads; ++t) pool.emplace_back(work);
    work();
    for (auto& thread : pool) thread.join();
    return states;
}

}  // namespace orvane
