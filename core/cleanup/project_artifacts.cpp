#include "core/cleanup/project_artifacts.hpp"

#include <sys/stat.h>

#include <algorithm>

#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {
namespace {

constexpr std::string_view kGit = "/usr/bin/git";
constexpr std::string_view kXcodeSelect = "/usr/bin/xcode-select";
constexpr double kGitTimeout = 20.0;
constexpr double kXcodeSelectTimeout = 20.0;

template <std::size_t N>
bool among(const std::array<std::string_view, N>& set, std::string_view name) {
    return std::find(set.begin(), set.end(), name) != set.end();
}

// The extension as the platform's pathExtension reads it: after the last ".", where that dot
// neither starts nor ends the name (".swift" and "a." have none).
std::string_view extensionOf(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return {};
    return name.substr(dot + 1);
}

std::string_view trimSlashes(std::string_view text) {
    while (!text.empty() && text.front() == '/') text.remove_prefix(1);
    while (!text.empty() && text.back() == '/') text.remove_suffix(1);
    return text;
}

}  // namespace

const std::vector<ProjectArtifactRule>& projectArtifactRules() {
    static const std::vector<ProjectArtifactRule> rules = [] {
        const std::vector<std::string> python = {"pyproject.toml", "requirements.txt", "Pipfile",
                                                 "setup.py",       "uv.lock",          "poetry.lock"};
        const std::vector<std::string> gradle = {"build.gradle", "build.gradle.kts", "settings.gradle",
                                                 "settings.gradle.kts"};
        std::vector<std::string> buildManifests = gradle;
        buildManifests.insert(buildManifests.end(), {"pubspec.yaml", "CMakeLists.txt"});
        const std::string pythonRebuild = "re-creating it ('uv sync' or 'pip install')";
        return std::vector<ProjectArtifactRule>{
            {"node_modules", {"package.json"}, "JavaScript packages",
             "'npm install' (or yarn or pnpm) in the project"},
            {"target", {"Cargo.toml"}, "Rust build output", "'cargo build'; or run 'cargo clean' there yourself"},
            {".build", {"Package.swift"}, "Swift package build output", "'swift build'"},
            {"Pods", {"Podfile"}, "CocoaPods dependencies", "'pod install'"},
            {".venv", python, "Python environment", pythonRebuild},
            {"venv", python, "Python environment", pythonRebuild},
            {".next", {"package.json"}, "Next.js build cache", "the next 'next build' or 'next dev'"},
            {".nuxt", {"package.json"}, "Nuxt build cache", "the next Nuxt build"},
            {".svelte-kit", {"package.json"}, "SvelteKit build cache", "the next SvelteKit build"},
            {".turbo", {"package.json", "turbo.json"}, "Turborepo cache", "the next Turborepo run"},
            {".parcel-cache", {"package.json"}, "Parcel cache", "the next Parcel build"},
            {".gradle", gradle, "Gradle project cache", "the next Gradle build"},
            {"build", buildManifests, "Build output", "the next build"},
            {".dart_tool", {"pubspec.yaml"}, "Dart and Flutter tool cache", "'flutter pub get'"},
            {".tox", {"tox.ini"}, "tox test environments", "the next 'tox' run"},
        };
    }();
    return rules;
}

bool isProjectMarkerName(std::string_view name) { return among(projectMarkerNames, name); }
bool isRebuildableDirName(std::string_view name) { return among(rebuildableDirNames, name); }
bool isPackageInstallDirName(std::string_view name) { return among(packageInstallDirNames, name); }

bool isArtifactRuleName(std::string_view name) {
    const auto& rules = projectArtifactRules();
    return std::any_of(rules.begin(), rules.end(), [&](const auto& rule) { return rule.name == name; });
}

std::optional<ProjectArtifactRule> projectArtifactRule(std::string_view dirName,
                                                       const std::set<std::string, std::less<>>& siblings) {
    for (const auto& rule : projectArtifactRules()) {
        if (rule.name != dirName) continue;
        for (const auto& manifest : rule.manifests)
            if (siblings.contains(manifest)) return rule;
    }
    return std::nullopt;
}

std::optional<std::string> gitRepoRoot(std::string_view containing, const Facts& facts) {
    for (std::string current = deletingLastPathComponent(containing); current.size() > 1;
         current = deletingLastPathComponent(current)) {
        if (facts.exists(appendingPathComponent(current, ".git"))) return current;
    }
    return std::nullopt;
}

bool gitignoreMentions(std::string_view text, std::string_view name, std::string_view relativePath) {
    std::vector<std::string> candidates;
    for (std::string_view base : {name, relativePath}) {
        const std::string b(base);
        candidates.insert(candidates.end(), {b, b + "/", "/" + b, "/" + b + "/"});
    }
    // A carriage return ends a line too, so a file saved with Windows line ends reads the same.
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find_first_of("\r\n", start);
        if (end == std::string_view::npos) end = text.size();
        const std::string_view line = trimSpacesAndTabs(text.substr(start, end - start));
        start = end + 1;
        if (line.empty() || line.front() == '#' || line.front() == '!') continue;
        if (std::find(candidates.begin(), candidates.end(), line) != candidates.end()) return true;
    }
    return false;
}

std::string describe(const SweepGitState& state) {
    switch (state.kind) {
        case SweepGitState::Kind::notInRepo: return "notInRepo";
        case SweepGitState::Kind::untracked: return "untracked";
        case SweepGitState::Kind::tracked: return "tracked";
        case SweepGitState::Kind::unknown: break;
    }
    return state.ignoredByGitignore ? "unknown(ignoredByGitignore: true)" : "unknown(ignoredByGitignore: false)";
}

bool gitMayBeAsked(const Facts& facts) {
    if (facts.rules == RuleSet::macOS) {
        auto run = facts.run(std::string(kXcodeSelect), {"-p"}, kXcodeSelectTimeout, false, ToolErrors::discarded);
        return !run.timedOut && run.status == 0;
    }
    // The execute bits stand for access(X_OK): a git that still cannot be run fails its run, and a
    // failed run offers nothing.
    auto resolved = facts.resolve(std::string(kGit));
    auto git = resolved ? facts.lstat(*resolved) : std::nullopt;
    return git && git->isRegularFile() && (git->mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
}

SweepGitState sweepGitState(std::string_view folder, const std::optional<std::string>& repo, bool mayAskGit,
                            const Facts& facts) {
    if (!repo) return SweepGitState::notInRepo();
    const std::string relative(trimSlashes(folder.substr(std::min(folder.size(), repo->size()))));

    if (mayAskGit) {
        // Without -z and with quoting forced on, git writes every name in ASCII. With -z a tracked
        // name that is not valid UTF-8 would reach the tool runner as undecodable output, which
        // gives no lines, and the folder would pass for untracked.
        auto run = facts.run(std::string(kGit), {"-C", *repo, "-c", "core.quotePath=true", "ls-files", "--", relative},
                             kGitTimeout, false, ToolErrors::discarded);
        if (run.timedOut || run.status != 0) return SweepGitState::unknown(false);
        const bool any = std::any_of(run.lines.begin(), run.lines.end(), [](const auto& l) { return !l.empty(); });
        return any ? SweepGitState::tracked() : SweepGitState::untracked();
    }
    // Read as empty past 1 MiB: no real .gitignore comes near it, and a bigger one offers nothing.
    constexpr std::uint64_t kGitignoreMaxBytes = 1024 * 1024;
    const std::string text =
        facts.read(appendingPathComponent(*repo, ".gitignore"), kGitignoreMaxBytes).bytes.value_or("");
    const std::string_view readable = isValidUTF8(text) ? std::string_view(text) : std::string_view();
    return SweepGitState::unknown(gitignoreMentions(readable, lastPathComponent(folder), relative));
}

bool projectSweepOffers(const SweepGitState& state) {
    switch (state.kind) {
        case SweepGitState::Kind::notInRepo:
        case SweepGitState::Kind::untracked: return true;
        case SweepGitState::Kind::tracked: return false;
        case SweepGitState::Kind::unknown: return state.ignoredByGitignore;
    }
    return false;
}

std::optional<std::string> projectMarker(const std::vector<std::string>& names) {
    for (const auto& name : names)
        if (isProjectMarkerName(name)) return name;
    for (const auto& name : names)
        for (auto suffix : projectMarkerSuffixes)
            if (std::string_view(name).ends_with(suffix)) return name;
    const std::string* smallest = nullptr;
    int sources = 0;
    for (const auto& name : names) {
        const auto ext = extensionOf(name);
        // No source extension is longer than six letters; longer ones skip the Unicode lowercasing.
        if (ext.empty() || ext.size() > 6 || !among(sourceCodeExts, std::string_view(lowercased(ext)))) continue;
        ++sources;
        if (!smallest || name < *smallest) smallest = &name;
    }
    if (sources < 2) return std::nullopt;
    return *smallest;
}

bool isPackageInstallCopy(std::string_view path) {
    for (const auto& component : pathComponents(path))
        if (isPackageInstallDirName(component)) return true;
    return false;
}

}  // namespace orvane
