#include "core/cleanup/vendor_janitors.hpp"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "core/common/format.hpp"
#include "core/common/path.hpp"
#include "core/platform/platform.hpp"

namespace orvane {
namespace {

constexpr std::string_view kEnv = "/usr/bin/env";
constexpr double kPreflightTimeout = 5.0;

struct CacheFolder {
    std::string_view relativePath;
    std::string_view id;
};

// Tried in this order; the first folder holding the path names the janitor.
constexpr std::array<CacheFolder, 16> kCacheFolders = {{
    {".npm", "npm"},
    {"Library/pnpm", "pnpm"},
    {".pnpm-store", "pnpm"},
    {"Library/Caches/Yarn", "yarn"},
    {".yarn", "yarn"},
    {".cache/uv", "uv"},
    {"Library/Caches/uv", "uv"},
    {"go/pkg/mod", "gomod"},
    {"Library/Caches/go-build", "go"},
    {"Library/Caches/pip", "pip"},
    {".gem", "gem"},
    {"Library/Caches/gem", "gem"},
    {"Library/Caches/Homebrew", "brew"},
    {".conda", "conda"},
    {"miniconda3/pkgs", "conda"},
    {"anaconda3/pkgs", "conda"},
}};

std::string expandHome(std::string_view entry, std::string_view homeDir) {
    if (entry == "~") return std::string(homeDir);
    if (entry.starts_with("~/")) return appendingPathComponent(homeDir, entry.substr(2));
    return std::string(entry);
}

std::vector<VendorTool> buildTable(std::string_view homeDir) {
    auto tool = [&](std::string id, std::string title, std::string note, std::vector<std::string> candidates,
                    std::vector<std::string> args, std::vector<std::string> preflight = {"--version"}) {
        VendorTool t;
        t.id = std::move(id);
        t.title = std::move(title);
        t.note = std::move(note);
        for (const auto& c : candidates) t.candidates.push_back(expandHome(c, homeDir));
        t.args = std::move(args);
        t.preflightArgs = std::move(preflight);
        return t;
    };
    const std::vector<std::string> goCandidates = {"/opt/homebrew/bin/go", "/usr/local/go/bin/go", "/usr/local/bin/go"};
    std::vector<VendorTool> table = {
        tool("brew", "Homebrew", "brew cleanup --prune=all — old bottles and download caches.",
             {"/opt/homebrew/bin/brew", "/usr/local/bin/brew"}, {"cleanup", "--prune=all"}),
        tool("simctl", "iOS Simulators",
             "xcrun simctl delete unavailable — simulators for runtimes Xcode no longer has.", {"/usr/bin/xcrun"},
             {"simctl", "delete", "unavailable"}, {"-f", "simctl"}),
        tool("docker", "Docker",
             "docker system prune -f — stopped containers, dangling images and build cache. A stopped "
             "container's writable layer goes with it; named volumes are never touched. Docker must be running.",
             {"/usr/local/bin/docker", "/opt/homebrew/bin/docker", "~/.docker/bin/docker"}, {"system", "prune", "-f"}),
        tool("orbstack", "OrbStack",
             "orb prune -f — stopped containers, unused images and build cache. A stopped container's "
             "writable layer goes with it; your Linux machines and their contents are untouched.",
             {"/usr/local/bin/orb", "/opt/homebrew/bin/orb", "~/.orbstack/bin/orb"}, {"prune", "-f"}),
        tool("podman", "Podman",
             "podman system prune -f — stopped containers, dangling images and build cache. Named volumes "
             "are never touched.",
             {"/usr/local/bin/podman", "/opt/homebrew/bin/podman"}, {"system", "prune", "-f"}),
        tool("gradlew", "Gradle daemons",
             "gradle --stop — stops background daemons holding memory and lock files. Builds start a fresh "
             "one next time.",
             {"/opt/homebrew/bin/gradle", "/usr/local/bin/gradle"}, {"--stop"}),
        tool("conda", "Conda", "conda clean -a -y — package tarballs and caches.",
             {"~/miniconda3/bin/conda", "~/anaconda3/bin/conda", "/opt/homebrew/Caskroom/miniconda/base/bin/conda"},
             {"clean", "-a", "-y"}),
        tool("gem", "RubyGems", "gem cleanup — superseded gem versions.", {"/usr/bin/gem"}, {"cleanup"}),
        tool("npm", "npm", "npm cache clean --force — the package download cache.",
             {"/opt/homebrew/bin/npm", "/usr/local/bin/npm"}, {"cache", "clean", "--force"}),
        tool("pnpm", "pnpm", "pnpm store prune — packages no project references anymore.",
             {"/opt/homebrew/bin/pnpm", "/usr/local/bin/pnpm"}, {"store", "prune"}),
        tool("yarn", "Yarn", "yarn cache clean — the package download cache.",
             {"/opt/homebrew/bin/yarn", "/usr/local/bin/yarn"}, {"cache", "clean"}),
        tool("pip", "pip", "pip cache purge — downloaded wheels.", {"/opt/homebrew/bin/pip3", "/usr/bin/pip3"},
             {"cache", "purge"}),
        tool("uv", "uv", "uv cache clean — the Python package cache.",
             {"~/.cargo/bin/uv", "/opt/homebrew/bin/uv", "/usr/local/bin/uv"}, {"cache", "clean"}),
        tool("go", "Go", "go clean -cache — the build cache.", goCandidates, {"clean", "-cache"}),
        tool("gomod", "Go modules",
             "go clean -modcache — downloaded modules. Projects download what they need again on their next build.",
             goCandidates, {"clean", "-modcache"}),
        tool("cocoapods", "CocoaPods", "pod cache clean --all — cached pod specs and downloaded sources.",
             {"/opt/homebrew/bin/pod", "/usr/local/bin/pod", "~/.rbenv/shims/pod", "~/.rvm/rubies/default/bin/pod"},
             {"cache", "clean", "--all"}),
        tool("swiftpm", "Swift Package Manager",
             "swift package purge-cache — shared package checkouts and build artifacts.",
             {"/usr/bin/swift",
              "/Applications/Xcode-beta.app/Contents/Developer/Toolchains/XcodeDefault.xctoolchain/usr/bin/swift"},
             {"package", "purge-cache"}, {"package", "--version"}),
        tool("bun", "bun", "bun pm cache rm — the package download cache.",
             {"/opt/homebrew/bin/bun", "/usr/local/bin/bun", "~/.bun/bin/bun"}, {"pm", "cache", "rm"}),
        tool("poetry", "Poetry", "poetry cache clear pypi --all — downloaded Python packages.",
             {"/opt/homebrew/bin/poetry", "/usr/local/bin/poetry", "~/.local/bin/poetry"},
             {"cache", "clear", "pypi", "--all"}),
        tool("dotnet", ".NET NuGet", "dotnet nuget locals all --clear — global HTTP cache and temp packages.",
             {"/usr/local/share/dotnet/dotnet", "/opt/homebrew/bin/dotnet"}, {"nuget", "locals", "all", "--clear"}),
    };
    for (auto& t : table) {
        if (t.id == "docker" || t.id == "orbstack" || t.id == "podman") t.removesStoppedContainers = true;
        if (t.id == "simctl") t.requirePath = expandHome("~/Library/Developer/CoreSimulator/Devices", homeDir);
    }
    return table;
}

// The tool started through env, so that it runs with its own search path and nothing else of the
// environment changes. The tool's path comes after the assignment and is run as given.
std::vector<std::string> envArguments(const std::string& path, const std::vector<std::string>& args,
                                      const Facts& facts) {
    std::vector<std::string> all = {"PATH=" + vendorToolPATH(path, facts), path};
    all.insert(all.end(), args.begin(), args.end());
    return all;
}

// Not a name env would take for a setting or look up on its own search path.
bool startableByEnv(const std::string& path) {
    return !path.empty() && path.front() == '/' && path.find('=') == std::string::npos;
}

}  // namespace

std::vector<VendorTool> vendorToolTable(const Facts& facts) { return buildTable(facts.home("")); }

std::optional<std::string> vendorJanitorID(std::string_view path, const Facts& facts) {
    const std::string homeDir = facts.home("");
    for (const auto& folder : kCacheFolders) {
        const std::string joined = appendingPathComponent(homeDir, folder.relativePath);
        if (path == joined || (path.starts_with(joined) && path.size() > joined.size() && path[joined.size()] == '/'))
            return std::string(folder.id);
    }
    return std::nullopt;
}

std::optional<VendorTool> vendorJanitor(std::string_view path, const Facts& facts) {
    auto id = vendorJanitorID(path, facts);
    if (!id) return std::nullopt;
    for (auto& tool : vendorToolTable(facts))
        if (tool.id == *id) return std::move(tool);
    return std::nullopt;
}

std::vector<std::string> vendorJanitorCachePaths(std::string_view id, const Facts& facts) {
    const std::string homeDir = facts.home("");
    std::vector<std::string> paths;
    for (const auto& folder : kCacheFolders)
        if (folder.id == id) paths.push_back(appendingPathComponent(homeDir, folder.relativePath));
    return paths;
}

std::vector<std::string> vendorToolCandidates(const VendorTool& tool, const Facts& facts) {
    std::vector<std::string> all;
    std::set<std::string> seen;
    auto add = [&](std::string path) {
        if (seen.insert(path).second) all.push_back(std::move(path));
    };
    for (const auto& c : tool.candidates) add(c);
    // The table already knows where macOS keeps tools, also on a recorded Mac read elsewhere.
    if (facts.rules == RuleSet::macOS) return all;
    for (const auto& folder : platform::extraToolFolders(facts.home("")))
        for (const auto& c : tool.candidates) add(appendingPathComponent(folder, lastPathComponent(c)));
    return all;
}

std::string vendorToolPATH(std::string_view path, const Facts& facts) {
    std::vector<std::string> entries = {deletingLastPathComponent(path)};
    for (const char* fixed : {"/opt/homebrew/bin", "/usr/local/bin", "/usr/bin", "/bin", "/usr/sbin", "/sbin"})
        entries.emplace_back(fixed);
    const std::string nodes = facts.home(".nvm/versions/node");
    if (auto listing = facts.list(nodes)) {
        std::vector<std::string> versions;
        for (auto& entry : *listing) versions.push_back(std::move(entry.name));
        std::sort(versions.begin(), versions.end(), std::greater<>());
        for (const auto& version : versions)
            entries.push_back(appendingPathComponent(appendingPathComponent(nodes, version), "bin"));
    }
    std::string joined;
    std::set<std::string> seen;
    for (const auto& entry : entries) {
        if (!seen.insert(entry).second) continue;
        if (!joined.empty()) joined += ':';
        joined += entry;
    }
    return joined;
}

bool vendorToolRuns(const std::string& path, const std::vector<std::string>& args, double timeout,
                    const Facts& facts) {
    if (!startableByEnv(path)) return false;
    auto run = facts.run(std::string(kEnv), envArguments(path, args, facts), timeout, false, ToolErrors::discarded);
    return !run.timedOut && run.status == 0;
}

std::vector<DetectedVendorTool> detectVendorTools(const Facts& facts) {
    return detectVendorTools(vendorToolTable(facts), facts);
}

std::vector<DetectedVendorTool> detectVendorTools(const std::vector<VendorTool>& table, const Facts& facts) {
    std::vector<DetectedVendorTool> found;
    for (const auto& tool : table) {
        if (tool.requirePath && !facts.exists(*tool.requirePath)) continue;
        const auto candidates = vendorToolCandidates(tool, facts);
        auto first = std::find_if(candidates.begin(), candidates.end(), facts.exists);
        if (first == candidates.end()) continue;
        if (vendorToolRuns(*first, tool.preflightArgs, kPreflightTimeout, facts)) found.push_back({tool, *first});
    }
    return found;
}

JanitorConfirmation vendorJanitorConfirmation(const VendorTool& tool, std::string_view binary) {
    std::string command(binary);
    for (const auto& arg : tool.args) command += " " + arg;
    std::string message = "This runs " + tool.title + "'s own cleanup command:\n\n" + command + "\n\n" +
                          "It deletes permanently. Nothing goes to the Trash and nothing can be restored — " +
                          tool.title + " does the removing, not Velloran Orvane.";
    if (tool.removesStoppedContainers)
        message += "\n\nIt also removes every STOPPED container, and a stopped container's writable layer goes with "
                   "it — anything written inside one that isn't committed to an image or kept in a named volume is "
                   "gone. Named volumes are not touched.";
    message += "\n\nEverything else it removes is re-downloadable or rebuildable, so the cost is time, not data.";
    return {"Clean with " + tool.title + "?", std::move(message)};
}

ToolRun runVendorJanitor(const VendorTool& tool, const std::string& binary, double timeout, const Facts& facts) {
    if (!startableByEnv(binary)) return ToolRun{};
    auto run = facts.run(std::string(kEnv), envArguments(binary, tool.args, facts), timeout, false, ToolErrors::merged);
    return {std::move(run.lines), run.timedOut, run.status};
}

std::string janitorDoneStatus(const JanitorSpaceClaim& claim) {
    if (auto bytes = claim.bytes())
        return "✓ done — about " + fmtBytes(*bytes) + " more free (approximate, not counted)";
    return "✓ done — the tool reports what it removed";
}

}  // namespace orvane
