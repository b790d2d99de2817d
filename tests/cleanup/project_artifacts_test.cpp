#include "core/cleanup/project_artifacts.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;

TEST(ProjectArtifactRules, NameSets) {
    EXPECT_TRUE(isProjectMarkerName("Makefile"));
    EXPECT_FALSE(isProjectMarkerName("makefile"));  // exact and case-sensitive
    EXPECT_TRUE(isRebuildableDirName("Build"));
    EXPECT_TRUE(isRebuildableDirName("DerivedData"));
    EXPECT_FALSE(isRebuildableDirName("BUILD"));
    EXPECT_TRUE(isPackageInstallDirName("dist-packages"));
    EXPECT_FALSE(isPackageInstallDirName("target"));
}

TEST(ProjectArtifactRule, NeedsAManifestBeside) {
    struct Case {
        std::string dir;
        std::set<std::string, std::less<>> siblings;
        std::optional<std::string> expectedWhat;
    };
    const std::vector<Case> cases = {
        {"build", {"pubspec.yaml"}, "Build output"},
        {"build", {"Makefile"}, std::nullopt},  // a project marker, but no manifest of this row
        {"build", {"CMakeLists.txt", "src"}, "Build output"}, {"target", {}, std::nullopt},
        {"target", {"pom.xml"}, std::nullopt}, {"target", {"Cargo.toml"}, "Rust build output"},
        {"Target", {"Cargo.toml"}, std::nullopt},  // names are exact
        {"node_modules", {"package.json"}, "JavaScript packages"}, {"node_modules", {"Package.json"}, std::nullopt},
        {".turbo", {"turbo.json"}, "Turborepo cache"}, {"venv", {"poetry.lock"}, "Python environment"},
        {".venv", {"requirements.txt"}, "Python environment"},
        {".build", {"Package.swift"}, "Swift package build output"}, {"src", {"package.json"}, std::nullopt},
        {".gradle", {"settings.gradle.kts"}, "Gradle project cache"},
    };
    for (const auto& c : cases) {
        auto rule = projectArtifactRule(c.dir, c.siblings);
        EXPECT_EQ(rule ? std::optional<std::string>(rule->what) : std::nullopt, c.expectedWhat) << c.dir;
        if (rule) {
            EXPECT_EQ(rule->name, c.dir);
        }
    }
}

TEST(GitRepoRoot, WalksUpFromTheParentAndNeverTestsTheRoot) {
    std::vector<std::string> asked;
    auto disk = [&](std::set<std::string> present) {
        Facts facts = Facts::real();
        facts.exists = [&asked, present](const std::string& p) {
            asked.push_back(p);
            return present.contains(p);
        };
        return facts;
    };

    EXPECT_EQ(gitRepoRoot("/a", disk({"/.git", "/a/.git"})), std::nullopt);
    EXPECT_TRUE(asked.empty());  // the parent is "/", which is never tested

    asked.clear();
    EXPECT_EQ(gitRepoRoot("/r/app/node_modules", disk({"/r/.git"})), "/r");
    EXPECT_EQ(asked, (std::vector<std::string>{"/r/app/.git", "/r/.git"}));

    asked.clear();
    EXPECT_EQ(gitRepoRoot("/r/app", disk({"/r/app/.git"})), std::nullopt);  // the folder itself is not tested
    EXPECT_EQ(asked, (std::vector<std::string>{"/r/.git"}));

    asked.clear();
    EXPECT_EQ(gitRepoRoot("/r/app/x/build", disk({"/r/.git", "/r/app/.git"})), "/r/app");  // the nearest
}

TEST(GitignoreMentions, PlainNamesOnly) {
    struct Case {
        std::string text;
        std::string name;
        std::string relative;
        bool expected;
    };
    const std::vector<Case> cases = {
        {"build/", "build", "build", true}, {"build", "build", "build", true}, {"/build", "build", "build", true},
        {"/build/", "build", "build", true}, {"**/build", "build", "build", false},
        {"!build", "build", "build", false}, {"# build", "build", "build", false},
        {"build*", "build", "build", false},  // a wildcard matches only as that very text
        {"  build/\t", "build", "build", true}, {"sub/build/", "build", "sub/build", true},
        {"build", "build", "sub/build", true}, {"/sub/build", "build", "sub/build", true},
        {"other/build", "build", "sub/build", false},
        {"x\n\n\nnode_modules\n", "node_modules", "web/node_modules", true},
        {"x\r\nnode_modules\r\n", "node_modules", "node_modules", true},  // saved with Windows line ends
        {"", "build", "build", false},
        {"Build", "build", "build", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(gitignoreMentions(c.text, c.name, c.relative), c.expected) << "'" << c.text << "' " << c.relative;
}

ToolResult exited(std::int32_t status) {
    ToolResult result;
    result.status = status;
    return result;
}

TEST(GitMayBeAsked, TheRulesOfTheFactsChooseTheTest) {
    constexpr std::uint32_t kRegular = 0100000, kFolder = 0040000;
    struct Case {
        RuleSet rules;
        ToolResult xcodeSelect;
        std::optional<std::uint32_t> gitMode;  // lstat of /usr/bin/git
        bool expected;
    };
    const std::vector<Case> cases = {
        {RuleSet::macOS, exited(0), std::nullopt, true},  // the stand-in is never looked at
        {RuleSet::macOS, exited(2), kRegular | 0755, false},
        {RuleSet::withLinuxAdditions, exited(2), kRegular | 0755, true},
        {RuleSet::withLinuxAdditions, exited(0), kRegular | 0644, false},
        {RuleSet::withLinuxAdditions, exited(0), kFolder | 0755, false},
        {RuleSet::withLinuxAdditions, exited(0), std::nullopt, false},
    };
    for (const auto& c : cases) {
        Facts facts;
        facts.rules = c.rules;
        facts.run = [&](const std::string& tool, const std::vector<std::string>& args, double, bool, ToolErrors) {
            EXPECT_EQ(tool + " " + args.at(0), "/usr/bin/xcode-select -p");
            return c.xcodeSelect;
        };
        facts.resolve = [](const std::string& p) -> std::optional<std::string> { return p; };
        facts.lstat = [&](const std::string& p) -> std::optional<platform::FileFacts> {
            if (p != "/usr/bin/git" || !c.gitMode) return std::nullopt;
            platform::FileFacts git;
            git.mode = *c.gitMode;
            return git;
        };
        EXPECT_EQ(gitMayBeAsked(facts), c.expected) << (c.rules == RuleSet::macOS) << " " << c.xcodeSelect.status
                                                    << " " << c.gitMode.value_or(0);
    }
}

TEST(ProjectSweepOffers, OnlyWhatGitDoesNotHold) {
    EXPECT_TRUE(projectSweepOffers(SweepGitState::notInRepo()));
    EXPECT_TRUE(projectSweepOffers(SweepGitState::untracked()));
    EXPECT_TRUE(projectSweepOffers(SweepGitState::unknown(true)));
    EXPECT_FALSE(projectSweepOffers(SweepGitState::tracked()));
    EXPECT_FALSE(projectSweepOffers(SweepGitState::unknown(false)));
}

TEST(ProjectMarker, NamesThenSuffixesThenTwoSources) {
    struct Case {
        std::vector<std::string> names;
        std::optional<std::string> expected;
    };
    const std::vector<Case> cases = {
        {{"b.swift", "a.swift"}, "a.swift"},
        {{"a.swift"}, std::nullopt},  // one lone source file makes no project
        {{"a.SWIFT", "b.py"}, "a.SWIFT"},
        {{"README.md", "Makefile", "package.json"}, "Makefile"},  // first in the given order
        {{"z.py", "y.py", "App.xcodeproj"}, "App.xcodeproj"},    // a suffix before source files
        {{"App.xcworkspace", ".git"}, ".git"},                    // a name before a suffix
        {{"notes.txt", "photo.jpg"}, std::nullopt},
        {{".swift", "a."}, std::nullopt},  // no extension in either
        {{"x.tar.gz", "main.c", "util.h"}, "main.c"}, {{}, std::nullopt},
        {{"makefile", "cargo.toml"}, std::nullopt},  // names are exact
    };
    for (const auto& c : cases) EXPECT_EQ(projectMarker(c.names), c.expected) << ::testing::PrintToString(c.names);
}

TEST(IsPackageInstallCopy, WholeComponents) {
    EXPECT_TRUE(isPackageInstallCopy("/p/.venv/lib/python3.12/site-packages/x"));
    EXPECT_TRUE(isPackageInstallCopy("/p/node_modules/left-pad"));
    EXPECT_TRUE(isPackageInstallCopy("Pods"));
    EXPECT_FALSE(isPackageInstallCopy("/home/a/venvs/x"));
    EXPECT_FALSE(isPackageInstallCopy("/home/a/my-node_modules/x"));
    EXPECT_FALSE(isPackageInstallCopy("/"));
}

// A real repository: tracked, untracked, ignored folders, and one outside any repository.
class SweepGitStateTest : public ::testing::Test {
protected:
    void SetUp() override {
        temp_.mkdir("outside/target");
        write(repo_ + "/tracked/build/out.txt", "kept in git");
        write(repo_ + "/app/node_modules/x/index.js", "module");
        write(repo_ + "/ignored/target/bin", "binary");
        write(repo_ + "/.gitignore", "target/\n");
        // A tracked name that is not valid UTF-8: git must still be heard to hold it.
        write(repo_ + "/odd/build/caf\xE9.txt", "latin-1 name");
        ASSERT_EQ(git("init -q ."), 0);
        ASSERT_EQ(git("add tracked .gitignore odd"), 0);
        ASSERT_EQ(git("commit -q -m initial"), 0);
    }
    int git(const std::string& args) {
        const std::string command = "cd '" + repo_ + "' && /usr/bin/git -c user.email=t@example.com -c user.name=t " +
                                    "-c init.defaultBranch=main " + args + " >/dev/null 2>&1";
        return std::system(command.c_str());
    }
    static void write(const std::string& path, const std::string& text) { testing::writeFile(path, text); }

    testing::TempDir temp_;
    std::string dir_ = temp_.path(), repo_ = dir_ + "/repo";
};

TEST_F(SweepGitStateTest, AsksGit) {
    if (!gitMayBeAsked()) GTEST_SKIP() << "/usr/bin/git is not an executable file here";
    EXPECT_EQ(sweepGitState(repo_ + "/tracked/build", repo_, true), SweepGitState::tracked());
    EXPECT_EQ(sweepGitState(repo_ + "/app/node_modules", repo_, true), SweepGitState::untracked());
    EXPECT_EQ(sweepGitState(repo_ + "/ignored/target", repo_, true), SweepGitState::untracked());
    EXPECT_EQ(sweepGitState(repo_ + "/odd/build", repo_, true), SweepGitState::tracked());
    EXPECT_EQ(sweepGitState(dir_ + "/outside/target", std::nullopt, true), SweepGitState::notInRepo());
    EXPECT_EQ(gitRepoRoot(repo_ + "/app/node_modules"), repo_);
    EXPECT_EQ(gitRepoRoot(dir_ + "/outside/target"), std::nullopt);
    // A folder given with a trailing slash is asked about the same way.
    EXPECT_EQ(sweepGitState(repo_ + "/tracked/build/", repo_, true), SweepGitState::tracked());
}

TEST_F(SweepGitStateTest, GitFailingIsUnknownAndNotOffered) {
    if (!gitMayBeAsked()) GTEST_SKIP() << "/usr/bin/git is not an executable file here";
    // A "repository" that git does not know: ls-files fails.
    const std::string notRepo = dir_ + "/outside";
    auto state = sweepGitState(notRepo + "/target", notRepo, true);
    EXPECT_EQ(state, SweepGitState::unknown(false)) << describe(state);
    EXPECT_FALSE(projectSweepOffers(state));
}

TEST_F(SweepGitStateTest, WithoutGitOnlyTheGitignoreSpeaks) {
    constexpr bool closed = false;
    EXPECT_EQ(sweepGitState(repo_ + "/ignored/target", repo_, closed), SweepGitState::unknown(true));
    EXPECT_EQ(sweepGitState(repo_ + "/app/node_modules", repo_, closed), SweepGitState::unknown(false));
    EXPECT_EQ(sweepGitState(repo_ + "/tracked/build", repo_, closed), SweepGitState::unknown(false));
    fs::remove(repo_ + "/.gitignore");  // unreadable counts as empty
    EXPECT_EQ(sweepGitState(repo_ + "/ignored/target", repo_, closed), SweepGitState::unknown(false));
    write(repo_ + "/.gitignore", "target/\n\xFF\xFE");  // not UTF-8: empty as well
    EXPECT_EQ(sweepGitState(repo_ + "/ignored/target", repo_, closed), SweepGitState::unknown(false));
    write(repo_ + "/.gitignore", "/app/node_modules/\n");
    EXPECT_EQ(sweepGitState(repo_ + "/app/node_modules", repo_, closed), SweepGitState::unknown(true));
    EXPECT_EQ(sweepGitState(repo_ + "/app/node_modules", std::nullopt, closed), SweepGitState::notInRepo());
}

TEST(SweepGitStateWords, Describe) {
    EXPECT_EQ(describe(SweepGitState::unknown(true)), "unknown(ignoredByGitignore: true)");
    EXPECT_EQ(describe(SweepGitState::tracked()), "tracked");
}

}  // namespace
}  // namespace orvane
