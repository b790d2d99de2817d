// Whether a folder in a project is something a build brings back, what it is called, and whether
// the project's version control lets it be offered for removal.
#pragma once

#include <array>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

// One kind of rebuildable folder: it counts only beside one of its manifests, which proves what
// it is (a "target" with no "Cargo.toml" next to it is somebody's own folder).
struct ProjectArtifactRule {
    std::string name;                    // the exact folder name
    std::vector<std::string> manifests;  // any one must stand beside the folder
    std::string what;                    // the folder's kind, as shown
    std::string rebuild;                 // what brings it back
    bool operator==(const ProjectArtifactRule&) const = default;
};

// The fifteen rules, in the order they are tried.
const std::vector<ProjectArtifactRule>& projectArtifactRules();

// The name sets. Matching is exact and case-sensitive; only extensions are lowercased first.
inline constexpr std::array<std::string_view, 17> projectMarkerNames = {
    ".git",    ".hg",          ".svn",     "Package.swift", "package.json",     "Cargo.toml",
    "pyproject.toml", "requirements.txt", "go.mod", "pom.xml", "build.gradle", "build.gradle.kts",
    "Gemfile", "composer.json", "CMakeLists.txt", "Makefile", "project.yml"};
inline constexpr std::array<std::string_view, 2> projectMarkerSuffixes = {".xcodeproj", ".xcworkspace"};
inline constexpr std::array<std::string_view, 33> sourceCodeExts = {
    "swift", "py", "js",  "mjs", "ts",  "tsx", "jsx", "rb",    "go",  "rs", "java",
    "kt",    "c",  "h",   "cpp", "hpp", "cc",  "m",   "mm",    "cs",  "php", "sh",
    "zsh",   "pl", "lua", "r",   "scala", "clj", "ex", "erl", "hs",  "vue", "svelte"};
inline constexpr std::array<std::string_view, 27> rebuildableDirNames = {
    ".build", "build", "Build", "DerivedData", "node_modules", "venv", ".venv", "env", ".env",
    "Pods", "Carthage", "vendor", "target", "dist", "out", "__pycache__", ".tox", ".gradle", ".next",
    ".nuxt", ".parcel-cache", ".pytest_cache", ".mypy_cache", "checkouts", ".swiftpm", "Debug", "Release"};
inline constexpr std::array<std::string_view, 8> packageInstallDirNames = {
    "site-packages", "dist-packages", ".venv", "venv", "node_modules", ".tox", "Pods", "Carthage"};

bool isProjectMarkerName(std::string_view name);
bool isRebuildableDirName(std::string_view name);
bool isPackageInstallDirName(std::string_view name);
// Whether some rule is for a folder of this name, whatever stands beside it.
bool isArtifactRuleName(std::string_view name);

// The first rule of that folder name with one of its manifests among `siblings`. None also when
// a rule of that name exists but none of its manifests is there.
std::optional<ProjectArtifactRule> projectArtifactRule(std::string_view dirName,
                                                       const std::set<std::string, std::less<>>& siblings);

// The nearest folder above `containing` that holds ".git". The folder itself is never tested, so
// an artifact is not taken for a repository root, and neither is "/".
std::optional<std::string> gitRepoRoot(std::string_view containing, const Facts& facts = Facts::real());

// Whether a ".gitignore" names the folder in one of the plain ways ("name", "name/", "/name",
// "/name/", and the same with the path relative to the repository). Patterns are not expanded:
// "**/build" does not name "build". Comment and negation lines are skipped.
bool gitignoreMentions(std::string_view text, std::string_view name, std::string_view relativePath);

// What version control says of a folder.
struct SweepGitState {
    enum class Kind {
        unknown,    // git could not be asked; `ignoredByGitignore` is what ".gitignore" said
        notInRepo,  // no repository holds the folder
        untracked,  // git holds no file of it
        tracked,    // git holds at least one file of it
    };
    Kind kind = Kind::unknown;
    bool ignoredByGitignore = false;  // meaningful for `unknown` only

    static SweepGitState unknown(bool ignoredByGitignore) { return {Kind::unknown, ignoredByGitignore}; }
    static SweepGitState notInRepo() { return {Kind::notInRepo, false}; }
    static SweepGitState untracked() { return {Kind::untracked, false}; }
    static SweepGitState tracked() { return {Kind::tracked, false}; }
    bool operator==(const SweepGitState&) const = default;
};

// "notInRepo", "untracked", "tracked", "unknown(ignoredByGitignore: true)", ...
std::string describe(const SweepGitState& state);

// Whether /usr/bin/git may be started: on macOS (the facts' rules say which system they describe)
// only when `xcode-select -p` succeeds, since otherwise the stand-in would ask to install the
// developer tools; elsewhere when it is a file with an execute bit.
bool gitMayBeAsked(const Facts& facts = Facts::real());

// Asks git whether it holds any file of `folder`, when `mayAskGit` (the gate above, asked once by
// a caller asking about many folders); otherwise reads the repository's ".gitignore". Blocks for
// up to git's run (20 s), so never on an interactive thread.
SweepGitState sweepGitState(std::string_view folder, const std::optional<std::string>& repo, bool mayAskGit,
                            const Facts& facts = Facts::real());

// A committed folder is never offered; where git could not be asked, only a ".gitignore" line
// naming the folder opens the offer.
bool projectSweepOffers(const SweepGitState& state);

// The name among a folder's names that shows it to be a project: a marker name, else a name with
// a marker suffix (both first in the given order), else the smallest of two or more source files.
std::optional<std::string> projectMarker(const std::vector<std::string>& names);

// Whether any whole component of the path is a package-install folder ("site-packages", ...).
bool isPackageInstallCopy(std::string_view path);

}  // namespace orvane
