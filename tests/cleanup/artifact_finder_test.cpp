#include "core/cleanup/artifact_finder.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <fstream>

namespace orvane {
namespace {

namespace fs = std::filesystem;

class ArtifactWalkTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/orvane-walk-XXXXXX";
        dir_ = fs::canonical(mkdtemp(pattern)).string();
    }
    void TearDown() override { fs::remove_all(dir_); }

    void file(const std::string& rel, const std::string& text = "x") {
        fs::create_directories(fs::path(dir_ + "/" + rel).parent_path());
        std::ofstream(dir_ + "/" + rel) << text;
    }
    void folder(const std::string& rel) { fs::create_directories(dir_ + "/" + rel); }

    std::vector<std::string> found(const ArtifactWalk& walk) {
        std::vector<std::string> out;
        for (const auto& a : walk.artifacts) out.push_back(a.path.substr(dir_.size() + 1) + " = " + a.rule.name);
        return out;
    }
    std::string dir_;
};

TEST_F(ArtifactWalkTest, FindsArtifactsBesideTheirManifests) {
    file("web/package.json");
    file("web/node_modules/left-pad/index.js");
    file("web/node_modules/left-pad/package.json");
    file("web/node_modules/left-pad/node_modules/x/index.js");  // inside an artifact: not entered
    file("web/.next/cache/x");
    file("rust/Cargo.toml");
    file("rust/target/debug/app");
    file("py/pyproject.toml");
    file("py/.venv/lib/python3.12/site-packages/pkg/setup.py");
    file("cpp/CMakeLists.txt");
    file("cpp/build/CMakeCache.txt");
    file("lonely/target/x");        // no Cargo.toml beside: somebody's own folder
    file("maven/pom.xml");
    file("maven/target/classes/A.class");  // pom.xml is no manifest of "target"
    file("deep/a/b/c/d/package.json");
    file("deep/a/b/c/d/node_modules/m/index.js");
    file(".hidden/proj/package.json");
    file(".hidden/proj/node_modules/m/index.js");  // hidden folders are not entered
    file("vendored/node_modules/pkg/package.json");
    file("vendored/node_modules/pkg/node_modules/y/z.js");  // a package's own, inside an install folder
    file("elsewhere/package.json");
    file("elsewhere/node_modules/real/index.js");
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
    file("a/b/c/d/e/package.json");
    file("a/b/c/d/e/node_modules/x");
    for (int i = 0; i < 30; ++i) folder("wide/" + std::to_string(i));

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
    file("p/package.json");
    file("p/node_modules/a/package.json");
    file("p/node_modules/a/node_modules/b/index.js");
    auto itself = findProjectArtifacts(dir_ + "/p/node_modules");
    ASSERT_EQ(itself.artifacts.size(), 1u);
    EXPECT_EQ(itself.artifacts[0].path, dir_ + "/p/node_modules");

    // Walking inside an installed package reports none of its own copies.
    EXPECT_TRUE(findProjectArtifacts(dir_ + "/p/node_modules/a").artifacts.empty());

    EXPECT_TRUE(findProjectArtifacts(dir_ + "/absent").artifacts.empty());
    file("plain");
    EXPECT_TRUE(findProjectArtifacts(dir_ + "/plain").artifacts.empty());
    fs::create_directory_symlink(dir_ + "/p", dir_ + "/link");
    EXPECT_TRUE(findProjectArtifacts(dir_ + "/link").artifacts.empty());  // the root is no link either
}

TEST_F(ArtifactWalkTest, GitStatesInOrderWithTheGateAskedOnce) {
    file("repo/app/package.json");
    file("repo/app/node_modules/x/index.js");
    file("repo/tool/Cargo.toml");
    file("repo/tool/target/out");
    file("free/Cargo.toml");
    file("free/target/out");
    const std::string repo = dir_ + "/repo";
    const std::string git = "cd '" + repo + "' && /usr/bin/git -c user.email=t@example.com -c user.name=t ";
    ASSERT_EQ(std::system((git + "init -q . && " + git + "add tool && " + git + "commit -qm x >/dev/null").c_str()), 0);

    std::atomic<int> gateAsked{0};
    auto gate = [&] {
        ++gateAsked;
        return gitMayBeAsked();
    };
    const std::vector<std::string> folders = {repo + "/tool/target", dir_ + "/free/target", repo + "/app/node_modules"};
    auto states = sweepGitStates(folders, gate, 2);
    EXPECT_EQ(gateAsked, 1);
    ASSERT_EQ(states.size(), 3u);
    if (gitMayBeAsked()) {
        EXPECT_EQ(states[0], SweepGitState::tracked());
        EXPECT_EQ(states[2], SweepGitState::untracked());
    }
    EXPECT_EQ(states[1], SweepGitState::notInRepo());

    gateAsked = 0;
    EXPECT_EQ(sweepGitStates({dir_ + "/free/target"}, gate), std::vector<SweepGitState>{SweepGitState::notInRepo()});
    EXPECT_EQ(gateAsked, 0);  // no repository: git is not even considered
    EXPECT_TRUE(sweepGitStates({}, gate).empty());
}

}  // namespace
}  // namespace orvane
