// orvane artifacts: the rebuildable folders of the projects under a folder, what brings each
// back, its size, and whether version control lets it be offered for removal.
#include <algorithm>

#include "cli/command.hpp"
#include "core/cleanup/artifact_finder.hpp"
#include "core/common/byte_counts.hpp"
#include "core/common/format.hpp"

namespace orvane::cli {
namespace {

// A home full of node_modules can take minutes for du; an hour means something is wrong.
constexpr double kDuTimeout = 3600;


struct Row {
    ArtifactFinding finding;
    SweepGitState git;
    std::int64_t bytes = -1;
    bool offered = false;
};

std::string offerText(const SweepGitState& state) {
    switch (state.kind) {
        case SweepGitState::Kind::notInRepo: return "yes — no repository holds it";
        case SweepGitState::Kind::untracked: return "yes — git holds none of its files";
        case SweepGitState::Kind::tracked: return "no — git holds files of it, so it is part of the project";
        case SweepGitState::Kind::unknown: break;
    }
    return state.ignoredByGitignore ? "yes — git could not be asked, and the repository's .gitignore names it"
                                    : "no — git could not be asked, and no .gitignore line names it";
}

std::string gitWord(const SweepGitState& state) {
    switch (state.kind) {
        case SweepGitState::Kind::notInRepo: return "notInRepo";
        case SweepGitState::Kind::untracked: return "untracked";
        case SweepGitState::Kind::tracked: return "tracked";
        case SweepGitState::Kind::unknown: return "unknown";
    }
    return "unknown";
}

Result runArtifacts(const std::string& path, const Invocation& in) {
    const std::string root = absolutePath(path);
    auto entry = in.facts.lstat(root);
    if (!entry) throw OVError("There is nothing at " + root + ".");
    if (entry->isSymlink())
        throw OVError(root + " is a shortcut; give the folder it points to, since the walk follows no shortcut.");
    if (!entry->isDirectory()) throw OVError(root + " is not a folder.");
    Progress& progress = in.progress;
    // du measures each folder while the walk goes on; what is left is measured at its end.
    auto measured = findAndMeasureProjectArtifacts(root, {}, [&](std::int64_t folders, std::size_t found) {
        progress.show("Looking through folders: " + std::to_string(folders) + ", rebuildable folders found: " +
                     std::to_string(found) + "…");
    }, kDuTimeout, in.facts);
    const auto& walk = measured.walk;

    std::vector<std::string> paths;
    for (const auto& a : walk.artifacts) paths.push_back(a.path);
    progress.show("Asking git about " + std::to_string(paths.size()) + " folders…");
    const auto states = sweepGitStates(paths, 4, in.facts);
    progress.clear();

    std::vector<Row> rows;
    for (std::size_t i = 0; i < walk.artifacts.size(); ++i)
        rows.push_back({walk.artifacts[i], states[i], measured.sizes[i], projectSweepOffers(states[i])});
    std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.bytes > b.bytes; });

    std::int64_t offeredBytes = 0;
    std::size_t offeredCount = 0, offeredUnknown = 0;
    for (const auto& row : rows) {
        if (!row.offered) continue;
        ++offeredCount;
        if (row.bytes < 0) ++offeredUnknown;
        else offeredBytes = addBytesOrUnknown(offeredBytes, row.bytes);
    }

    Result result;
    {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const auto& row : rows) {
            list.push_back({{"path", row.finding.path},
                            {"name", row.finding.rule.name},
                            {"what", row.finding.rule.what},
                            {"rebuild", row.finding.rule.rebuild},
                            {"bytes", row.bytes},
                            {"size", row.bytes < 0 ? "unknown" : fmtBytes(row.bytes)},
                            {"git", gitWord(row.git)},
                            {"ignoredByGitignore", row.git.kind == SweepGitState::Kind::unknown
                                                       ? nlohmann::ordered_json(row.git.ignoredByGitignore)
                                                       : nlohmann::ordered_json(nullptr)},
                            {"offered", row.offered}});
        }
        nlohmann::ordered_json out;
        out["root"] = root;
        out["complete"] = walk.complete;
        out["foldersVisited"] = walk.foldersVisited;
        out["artifacts"] = std::move(list);
        out["offeredCount"] = offeredCount;
        out["offeredBytes"] = offeredBytes < 0 ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(offeredBytes);
        out["offeredSize"] = offeredBytes < 0 ? std::string("unknown") : fmtBytes(offeredBytes);
        out["offeredOfUnknownSize"] = offeredUnknown;
        result.json = std::move(out);
    }

    if (rows.empty()) {
        result.line("No rebuildable folders under " + root + ".");
    } else {
        result.line("Rebuildable folders under " + root + ", largest first:");
        for (const auto& row : rows) {
            result.line("");
            result.line((row.bytes < 0 ? std::string("unknown size") : fmtBytes(row.bytes)) + "  " + row.finding.path);
            result.line("  " + row.finding.rule.what + "; brought back by " + row.finding.rule.rebuild + ".");
            result.line("  May be offered: " + offerText(row.git) + ".");
        }
        result.line("");
    }
    if (!walk.complete)
        result.line("The walk stopped at its limit after " + std::to_string(walk.foldersVisited) +
                  " folders, so there may be more than these.");
    std::string total = "May be offered: " + std::to_string(offeredCount) + " of " + std::to_string(rows.size()) +
                        (rows.size() == 1 ? " folder, " : " folders, ") +
                        (offeredBytes < 0 ? std::string("unknown") : fmtBytes(offeredBytes)) + " in all";
    if (offeredUnknown > 0) total += " (" + std::to_string(offeredUnknown) + " of unknown size not counted)";
    result.line(total + ".");
    return result;
}

}  // namespace

void addArtifactsCommand(Registry& registry) {
    auto path = std::make_shared<std::string>();
    auto* artifacts = registry.add(
        "artifacts",
        "List the folders under PATH that a build brings back: node_modules beside a package.json, target beside "
        "a Cargo.toml, .venv beside a pyproject.toml, build beside a CMakeLists.txt, and so on. Each comes with "
        "what it is, what rebuilds it, its size as du counts it, and whether it may be offered for removal: never "
        "when git holds files of it. Largest first; the total that may be offered comes last. The walk follows no "
        "shortcut, stays on one file system, does not enter hidden folders or installed packages, and stops after "
        "a million folders. Nothing is deleted.",
        [path](const Invocation& in) { return runArtifacts(*path, in); });
    artifacts->add_option("PATH", *path, "The folder to look through")->required();
}

}  // namespace orvane::cli
