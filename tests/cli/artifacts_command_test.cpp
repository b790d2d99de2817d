#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "tests/cli/run_orvane.hpp"

namespace {

namespace fs = std::filesystem;
using orvane::testing::runOrvane;

// Projects of four kinds in one repository, one of them with its build folder committed, and one
// project outside any repository.
class ArtifactsCommand : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/orvane-artifactscli-XXXXXX";
        dir_ = fs::canonical(mkdtemp(pattern)).string();
        root_ = dir_ + "/projects";
        file("repo/web/package.json", "{}");
        file("repo/web/node_modules/left-pad/index.js", std::string(300'000, 'j'));
        file("repo/crate/Cargo.toml", "");
        file("repo/crate/target/debug/app", std::string(150'000, 'r'));
        file("repo/py/pyproject.toml", "");
        file("repo/py/.venv/lib/site.py", std::string(20'000, 'p'));
        file("repo/native/CMakeLists.txt", "");
        file("repo/native/build/kept.txt", "committed on purpose");
        file("solo/CMakeLists.txt", "");
        file("solo/build/out.o", std::string(60'000, 'o'));
        file("solo/target/x", "no Cargo.toml here");
        const std::string git = "cd '" + root_ + "/repo' && /usr/bin/git -c user.email=t@example.com -c user.name=t ";
        EXPECT_EQ(std::system((git + "init -q . && " + git + "add native && " + git + "commit -qm x >/dev/null").c_str()),
                  0);
    }
    void TearDown() override { fs::remove_all(dir_); }
    void file(const std::string& rel, const std::string& text) {
        fs::create_directories(fs::path(root_ + "/" + rel).parent_path());
        std::ofstream(root_ + "/" + rel) << text;
    }
    std::string dir_, root_;
};

TEST_F(ArtifactsCommand, ListsLargestFirstAndOffersOnlyWhatGitDoesNotHold) {
    auto out = runOrvane("artifacts --json " + root_, dir_);
    ASSERT_EQ(out.status, 0) << out.err;
    EXPECT_EQ(out.err, "");  // no progress when the output is JSON
    auto parsed = nlohmann::json::parse(out.out);
    std::vector<std::string> paths;
    for (const auto& a : parsed["artifacts"]) paths.push_back(a["path"]);
    EXPECT_EQ(paths, (std::vector<std::string>{root_ + "/repo/web/node_modules", root_ + "/repo/crate/target",
                                               root_ + "/solo/build", root_ + "/repo/py/.venv",
                                               root_ + "/repo/native/build"}));
    const auto& web = parsed["artifacts"][0];
    EXPECT_EQ(web["what"], "JavaScript packages");
    EXPECT_EQ(web["rebuild"], "'npm install' (or yarn or pnpm) in the project");
    EXPECT_EQ(web["git"], "untracked");
    EXPECT_EQ(web["offered"], true);
    EXPECT_GE(web["bytes"].get<std::int64_t>(), 300'000);
    EXPECT_EQ(parsed["artifacts"][2]["git"], "notInRepo");
    EXPECT_EQ(parsed["artifacts"][2]["offered"], true);
    EXPECT_EQ(parsed["artifacts"][4]["git"], "tracked");
    EXPECT_EQ(parsed["artifacts"][4]["offered"], false);
    EXPECT_EQ(parsed["offeredCount"], 4);
    std::int64_t offered = 0;
    for (const auto& a : parsed["artifacts"])
        if (a["offered"]) offered += a["bytes"].get<std::int64_t>();
    EXPECT_EQ(parsed["offeredBytes"], offered);
    EXPECT_EQ(parsed["complete"], true);
}

TEST_F(ArtifactsCommand, ReadableOutputEndsWithTheTotal) {
    auto out = runOrvane("artifacts " + root_, dir_);
    ASSERT_EQ(out.status, 0) << out.err;
    EXPECT_TRUE(out.out.starts_with("Rebuildable folders under " + root_ + ", largest first:\n")) << out.out;
    EXPECT_NE(out.out.find("  " + root_ + "/repo/web/node_modules\n  JavaScript packages; brought back by 'npm install' "
                           "(or yarn or pnpm) in the project.\n  May be offered: yes — git holds none of its files.\n"),
              std::string::npos)
        << out.out;
    EXPECT_NE(out.out.find(root_ + "/repo/native/build\n  Build output; brought back by the next build.\n  May be "
                                   "offered: no — git holds files of it, so it is part of the project.\n"),
              std::string::npos)
        << out.out;
    EXPECT_NE(out.out.find("May be offered: yes — no repository holds it."), std::string::npos);
    const auto last = out.out.substr(out.out.rfind('\n', out.out.size() - 2) + 1);
    EXPECT_TRUE(last.starts_with("May be offered: 4 of 5 folders, ")) << last;
    EXPECT_EQ(out.out.find("solo/target"), std::string::npos);
}

TEST_F(ArtifactsCommand, BadInput) {
    auto missing = runOrvane("artifacts " + root_ + "/absent", dir_);
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err, "orvane: There is nothing at " + root_ + "/absent.\n");
    auto notFolder = runOrvane("artifacts " + root_ + "/solo/CMakeLists.txt", dir_);
    EXPECT_EQ(notFolder.status, 2);
    EXPECT_EQ(notFolder.err, "orvane: " + root_ + "/solo/CMakeLists.txt is not a folder.\n");
    fs::create_directory_symlink(root_, dir_ + "/link");
    auto link = runOrvane("artifacts " + dir_ + "/link", dir_);
    EXPECT_EQ(link.status, 2);
    EXPECT_EQ(runOrvane("artifacts", dir_).status, 2);

    fs::create_directories(dir_ + "/empty");
    auto empty = runOrvane("artifacts " + dir_ + "/empty", dir_);
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.out, "No rebuildable folders under " + dir_ + "/empty.\nMay be offered: 0 of 0 folders, Zero KB in all.\n");
}

}  // namespace
