#include "core/cleanup/artifact_finder.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>

#include "core/cleanup/vendor_janitors.hpp"
#include "core/common/path.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;

ToolResult exited(std::int32_t status, std::vector<std::string> lines = {}) {
    ToolResult result;
    result.lines = std::move(lines);
    result.status = status;
    return result;
}

platform::FileFacts entry(std::uint32_t mode) {
    platform::FileFacts facts;
    facts.mode = mode;
    facts.device = 1;
    return facts;
}

class ArtifactWalkTest : public ::testing::Test {
protected:
    void files(std::initializer_list<const char*> relative) {
        for (const char* f : relative) temp_.write(f);
    }
    std::vector<std::string> found(const ArtifactWalk& walk) {
        std::vector<std::string> out;
        for (const auto& a : walk.artifacts) out.push_back(a.path.substr(dir_.size() + 1) + " = " + a.rule.name);
        return out;
    }
    testing::TempDir temp_;
    std::string dir_ = temp_.path();
};

TEST_F(ArtifactWalkTest, FindsArtifactsBesideTheirManifests) {
    files({"web/package.json", "web/node_modules/left-pad/index.js", "web/node_modules/left-pad/package.json",
           "web/node_modules/left-pad/node_modules/x/index.js",  // inside an artifact: not entered
           "web/.next/cache/x", "rust/Cargo.toml", "rust/target/debug/app", "py/pyproject.toml",
           "py/.venv/lib/python3.12/site-packages/pkg/setup.py", "cpp/CMakeLists.txt", "cpp/build/CMakeCache.txt",
           "lonely/target/x",                                // no Cargo.toml beside: somebody's own folder
           "maven/pom.xml", "maven/target/classes/A.class",  // pom.xml is no manifest of "target"
           "deep/a/b/c/d/package.json", "deep/a/b/c/d/node_modules/m/index.js",
           ".hidden/proj/package.json", ".hidden/proj/node_modules/m/index.js",  // hidden folders are not entered
           "vendored/node_modules/pkg/package.json",
           "vendored/node_modules/pkg/node_modules/y/z.js",  // a package's own, inside an install folder
           "elsewhere/package.json", "elsewhere/node_modules/real/index.js"});
    fs::create_directory_symlink(dir_ + "/elsewhere", dir_ + "/linked");  // not followed

    std::int64_t lastFolders = -1;
    auto walk = findProjectArtifacts(dir_, {}, [&](std::int64_t folders, std::size_t) { lastFolders = folders; });
    EXPECT_EQ(found(walk), (std::vector<std::string>{
                               "cpp/build = build",
                               "deep/a/b/c/d/node_modules = node_modules",
                               "elsewhere/node_modules = node_modules",
                               "py/.venv = .venv",
                               "rust/target = target",
                               "web/.next = .next",
                               "web/node_modules = node_modules",
                           }));
    EXPECT_TRUE(walk.complete);
    EXPECT_EQ(lastFolders, walk.foldersVisited);  // the last report is the final count
    EXPECT_EQ(walk.artifacts.front().rule.what, "Build output");
}

TEST_F(ArtifactWalkTest, LimitsMakeAPartialWalk) {
    files({"a/b/c/d/e/package.json", "a/b/c/d/e/node_modules/x"});
    for (int i = 0; i < 30; ++i) temp_.mkdir("wide/" + std::to_string(i));

    auto shallow = findProjectArtifacts(dir_, {.maxDepth = 3, .maxFolders = 1'000'000});
    EXPECT_TRUE(shallow.artifacts.empty());
    EXPECT_FALSE(shallow.complete);

    auto deepEnough = findProjectArtifacts(dir_, {.maxDepth = 5, .maxFolders = 1'000'000});
    EXPECT_EQ(deepEnough.artifacts.size(), 1u);
    EXPECT_TRUE(deepEnough.complete);

    auto few = findProjectArtifacts(dir_, {.maxDepth = 40, .maxFolders = 10});
    EXPECT_FALSE(few.complete);
    EXPECT_EQ(few.foldersVisited, 10);
}

TEST_F(ArtifactWalkTest, RootThatIsAnArtifactOrInsideAPackage) {
    files({"p/package.json", "p/node_modules/a/package.json", "p/node_modules/a/node_modules/b/index.js"});
    auto itself = findProjectArtifacts(dir_ + "/p/node_modules");
    ASSERT_EQ(itself.artifacts.size(), 1u);
    EXPECT_EQ(itself.artifacts[0].path, dir_ + "/p/node_modules");

    // Walking inside an installed package reports none of its own copies.
    EXPECT_TRUE(findProjectArtifacts(dir_ + "/p/node_modules/a").artifacts.empty());

    EXPECT_TRUE(findProjectArtifacts(dir_ + "/absent").artifacts.empty());
    files({"plain"});
    EXPECT_TRUE(findProjectArtifacts(dir_ + "/plain").artifacts.empty());
    fs::create_directory_symlink(dir_ + "/p", dir_ + "/link");
    EXPECT_TRUE(findProjectArtifacts(dir_ + "/link").artifacts.empty());  // the root is no link either
}

TEST_F(ArtifactWalkTest, GitStatesInOrderWithTheGateAskedOnce) {
    files({"repo/app/package.json", "repo/app/node_modules/x/index.js", "repo/tool/Cargo.toml", "repo/tool/target/out",
           "free/Cargo.toml", "free/target/out"});
    const std::string repo = dir_ + "/repo";
    const std::string git = "cd '" + repo + "' && /usr/bin/git -c user.email=t@example.com -c user.name=t ";
    ASSERT_EQ(std::system((git + "init -q . && " + git + "add tool && " + git + "commit -qm x >/dev/null").c_str()), 0);

    // The gate of a Mac, answered here; git itself runs for real.
    std::atomic<int> gateAsked{0};
    Facts facts = Facts::real();
    facts.rules = RuleSet::macOS;
    facts.run = [&](const std::string& tool, const std::vector<std::string>& args, double timeout, bool nul,
                    ToolErrors errors) {
        if (tool != "/usr/bin/xcode-select") return runToolSplit(tool, args, timeout, nul, errors);
        ++gateAsked;
        return exited(0);
    };
    const std::vector<std::string> folders = {repo + "/tool/target", dir_ + "/free/target", repo + "/app/node_modules"};
    EXPECT_EQ(sweepGitStates(folders, 2, facts), (std::vector<SweepGitState>{SweepGitState::tracked(),
                                                                            SweepGitState::notInRepo(),
                                                                            SweepGitState::untracked()}));
    EXPECT_EQ(gateAsked, 1);

    gateAsked = 0;
    EXPECT_EQ(sweepGitStates({dir_ + "/free/target"}, 4, facts),
              std::vector<SweepGitState>{SweepGitState::notInRepo()});
    EXPECT_EQ(gateAsked, 0);  // no repository: git is not even considered
    EXPECT_TRUE(sweepGitStates({}, 4, facts).empty());
}

// A Mac made of facts alone: folders by path ("/" ends a folder's name), tools answered by their
// command line. Its home is nowhere on this machine, and the facts it leaves out throw when asked,
// so a walk or a detection that read around the facts would find nothing or fail.
class FakeMac {
public:
    explicit FakeMac(const std::vector<std::string>& paths) {
        for (const auto& path : paths) {
            const bool folder = path.ends_with('/');
            std::string child = folder ? path.substr(0, path.size() - 1) : path;
            if (folder) folders_[child];
            else files_.insert(child);
            for (bool isFolder = folder; child != "/"; isFolder = true) {
                const std::string parent = deletingLastPathComponent(child);
                auto& entries = folders_[parent];
                const FolderEntry entry{lastPathComponent(child), isFolder};
                if (std::find(entries.begin(), entries.end(), entry) == entries.end()) entries.push_back(entry);
                child = parent;
            }
        }
    }

    Facts facts(std::function<ToolResult(const std::vector<std::string>&)> tools) const {
        Facts facts;
        facts.rules = RuleSet::macOS;
        facts.recorded = true;
        facts.home = [](std::string_view c) { return c.empty() ? std::string(kHome) : appendingPathComponent(kHome, c); };
        facts.exists = [this](const std::string& p) { return has(p); };
        facts.resolve = [this](const std::string& p) -> std::optional<std::string> {
            if (!has(p)) return std::nullopt;
            return p;
        };
        facts.lstat = [this](const std::string& p) -> std::optional<platform::FileFacts> {
            if (folders_.contains(p)) return entry(0040755);
            if (files_.contains(p)) return entry(0100755);
            return std::nullopt;
        };
        facts.list = [this](const std::string& p) -> std::optional<std::vector<FolderEntry>> {
            auto folder = folders_.find(p);
            if (folder == folders_.end()) return std::nullopt;
            return folder->second;
        };
        facts.read = [this](const std::string& p, std::uint64_t) {
            FileRead read;
            if (files_.contains(p)) read.bytes = "";
            return read;
        };
        // du measures from two threads and git asks from several.
        facts.run = [tools, lock = std::make_shared<std::mutex>()](const std::string& tool,
                                                                   const std::vector<std::string>& args, double, bool,
                                                                   ToolErrors) {
            std::vector<std::string> argv = {tool};
            argv.insert(argv.end(), args.begin(), args.end());
            std::lock_guard hold(*lock);
            return tools(argv);
        };
        return facts;
    }

    static constexpr const char* kHome = "/Users/alex";

private:
    bool has(const std::string& p) const { return folders_.contains(p) || files_.contains(p); }

    std::map<std::string, std::vector<FolderEntry>> folders_;
    std::set<std::string> files_;
};

TEST(RecordedMac, WalkGitAndJanitorsAskOnlyTheFacts) {
    ASSERT_FALSE(fs::exists(FakeMac::kHome));
    const FakeMac mac({
        "/Users/alex/code/.git/",
        "/Users/alex/code/web/package.json",
        "/Users/alex/code/web/node_modules/left-pad/index.js",
        "/Users/alex/code/rust/Cargo.toml",
        "/Users/alex/code/rust/target/debug/app",
        "/Users/alex/Library/Caches/proj/package.json",  // the home's Library is not walked
        "/Users/alex/Library/Caches/proj/node_modules/",
        "/Users/alex/Library/Developer/CoreSimulator/Devices/",
        "/Users/alex/.nvm/versions/node/20.1/bin/node",
        "/usr/bin/xcrun",
        "/opt/homebrew/bin/npm",
        "/opt/homebrew/bin/brew",  // present, but its harmless run fails
    });
    const std::string nvm = "/Users/alex/.nvm/versions/node/20.1/bin";
    const std::map<std::vector<std::string>, ToolResult> answers = {
        {{"/usr/bin/xcode-select", "-p"}, exited(0, {"/Library/Developer/CommandLineTools"})},
        {{"/usr/bin/git", "-C", "/Users/alex/code", "-c", "core.quotePath=true", "ls-files", "--", "rust/target"},
         exited(0, {"rust/target/debug/app"})},
        {{"/usr/bin/git", "-C", "/Users/alex/code", "-c", "core.quotePath=true", "ls-files", "--", "web/node_modules"},
         exited(0)},
        {{"/usr/bin/env", "PATH=/usr/bin:/opt/homebrew/bin:/usr/local/bin:/bin:/usr/sbin:/sbin:" + nvm,
          "/usr/bin/xcrun", "-f", "simctl"},
         exited(0)},
        {{"/usr/bin/env", "PATH=/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin:" + nvm,
          "/opt/homebrew/bin/npm", "--version"},
         exited(0, {"10.8.1"})},
    };
    const std::map<std::string, std::string> kibibytes = {{"/Users/alex/code/rust/target", "12"},
                                                          {"/Users/alex/code/web/node_modules", "3"}};
    const Facts facts = mac.facts([&](const std::vector<std::string>& argv) {
        if (argv.front() == "/usr/bin/du") {  // the batches depend on timing: answer any of them
            ToolResult du = exited(0);
            for (auto p = std::find(argv.begin(), argv.end(), "--"); p != argv.end(); ++p)
                if (kibibytes.contains(*p)) du.lines.push_back(kibibytes.at(*p) + "\t" + *p);
            return du;
        }
        auto answer = answers.find(argv);
        return answer == answers.end() ? ToolResult{} : answer->second;
    });

    const auto measured = findAndMeasureProjectArtifacts("/Users/alex", {}, {}, 60, facts);
    std::vector<std::string> rows;
    for (std::size_t i = 0; i < measured.walk.artifacts.size(); ++i)
        rows.push_back(measured.walk.artifacts[i].path + " " + std::to_string(measured.sizes[i]));
    EXPECT_EQ(rows, (std::vector<std::string>{"/Users/alex/code/rust/target 12288",
                                              "/Users/alex/code/web/node_modules 3072"}));
    EXPECT_EQ(sweepGitStates({"/Users/alex/code/rust/target", "/Users/alex/code/web/node_modules"}, 4, facts),
              (std::vector<SweepGitState>{SweepGitState::tracked(), SweepGitState::untracked()}));

    std::vector<std::string> janitors;
    for (const auto& [tool, at] : detectVendorTools(facts)) janitors.push_back(tool.id + "@" + at);
    EXPECT_EQ(janitors, (std::vector<std::string>{"simctl@/usr/bin/xcrun", "npm@/opt/homebrew/bin/npm"}));
}

}  // namespace
}  // namespace orvane
