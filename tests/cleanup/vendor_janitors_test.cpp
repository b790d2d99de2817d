#include "core/cleanup/vendor_janitors.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <set>

#include "core/common/path.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;

VendorTool row(const std::string& id) {
    for (const auto& t : vendorToolTable())
        if (t.id == id) return t;
    throw std::runtime_error("no row " + id);
}

// This machine, with another home than its own.
Facts withHome(const std::string& homeDir) {
    Facts facts = Facts::real();
    facts.home = [homeDir](std::string_view component) {
        return component.empty() ? homeDir : appendingPathComponent(homeDir, component);
    };
    return facts;
}

TEST(VendorJanitorID, CacheFoldersUnderTheHome) {
    const Facts h = withHome("/Users/a");
    struct Case {
        std::string path;
        std::optional<std::string> id;
    };
    const std::vector<Case> cases = {
        {"/Users/a/Library/Caches/Homebrew/downloads", "brew"}, {"/Users/a/Library/Caches/Homebrew", "brew"},
        {"/Users/a/Library/Caches/Homebrew2", std::nullopt}, {"/Users/a/go/pkg/mod/cache", "gomod"},
        {"/Users/a/go/pkg", std::nullopt}, {"/Users/a/.npm", "npm"}, {"/Users/a/.npm/_cacache", "npm"},
        {"/Users/a/.pnpm-store/v3", "pnpm"}, {"/Users/a/.yarn", "yarn"}, {"/Users/a/.cache/uv", "uv"},
        {"/Users/a/Library/Caches/go-build", "go"}, {"/Users/a/anaconda3/pkgs", "conda"},
        {"/Users/b/.npm", std::nullopt}, {"/Users/a", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(vendorJanitorID(c.path, h), c.id) << c.path;
    auto janitor = vendorJanitor("/Users/a/.gem/ruby", h);
    ASSERT_TRUE(janitor);
    EXPECT_EQ(janitor->title, "RubyGems");
    EXPECT_EQ(vendorJanitor("/Users/a/Documents", h), std::nullopt);
    EXPECT_EQ(vendorJanitorCachePaths("uv", h),
              (std::vector<std::string>{"/Users/a/.cache/uv", "/Users/a/Library/Caches/uv"}));
}

TEST(VendorJanitorConfirmation, Wording) {
    auto npm = vendorJanitorConfirmation(row("npm"), "/opt/homebrew/bin/npm");
    EXPECT_EQ(npm.title, "Clean with npm?");
    EXPECT_EQ(npm.message,
              "This runs npm's own cleanup command:\n\n/opt/homebrew/bin/npm cache clean --force\n\nIt deletes "
              "permanently. Nothing goes to the Trash and nothing can be restored — npm does the removing, not "
              "Velloran Orvane.\n\nEverything else it removes is re-downloadable or rebuildable, so the cost is time, "
              "not data.");
    auto docker = vendorJanitorConfirmation(row("docker"), "/usr/local/bin/docker");
    EXPECT_NE(docker.message.find("/usr/local/bin/docker system prune -f\n\n"), std::string::npos);
    EXPECT_NE(docker.message.find(
                  "Velloran Orvane.\n\nIt also removes every STOPPED container, and a stopped container's writable "
                  "layer goes with it — anything written inside one that isn't committed to an image or kept in a "
                  "named volume is gone. Named volumes are not touched.\n\nEverything else"),
              std::string::npos)
        << docker.message;
    EXPECT_EQ(npm.message.find("STOPPED"), std::string::npos);
}

TEST(JanitorDoneStatus, Wording) {
    EXPECT_EQ(janitorDoneStatus(JanitorSpaceClaim::none()), "✓ done — the tool reports what it removed");
    EXPECT_EQ(janitorDoneStatus(JanitorSpaceClaim::approximate(2'000'000'000)),
              "✓ done — about 2 GB more free (approximate, not counted)");
    EXPECT_EQ(JanitorSpaceClaim::none().bytes(), std::nullopt);
    EXPECT_EQ(JanitorSpaceClaim::approximate(5).bytes(), 5);
}

// Scripts standing in for tools, in a folder of their own, and a home with Node versions.
class FakeTools : public ::testing::Test {
protected:
    std::string script(const std::string& name, const std::string& body, bool executable = true) {
        const std::string path = temp_.write("bin/" + name, "#!/bin/sh\n" + body + "\n");
        ::chmod(path.c_str(), executable ? 0755 : 0644);
        return path;
    }
    VendorTool tool(const std::string& id, std::vector<std::string> candidates) {
        VendorTool t;
        t.id = id;
        t.title = id;
        t.candidates = std::move(candidates);
        t.args = {"clean"};
        return t;
    }
    testing::TempDir temp_;
    std::string dir_ = temp_.path();
};

TEST_F(FakeTools, ToolRunsOnlyOnStatusZeroInTime) {
    EXPECT_TRUE(vendorToolRuns(script("ok", "echo 1.0; exit 0"), {"--version"}));
    EXPECT_FALSE(vendorToolRuns(script("fails", "echo 1.0; exit 1"), {"--version"}));  // prints a version, exits 1
    EXPECT_FALSE(vendorToolRuns(script("plain", "exit 0", false), {"--version"}));     // exists but does not run
    EXPECT_FALSE(vendorToolRuns(dir_ + "/bin/missing", {"--version"}));
    EXPECT_FALSE(vendorToolRuns(dir_ + "/bin", {"--version"}));
    EXPECT_FALSE(vendorToolRuns("relative/tool", {}));
    // A "=" would make env read the path as a setting and then succeed with no tool at all.
    const std::string withEquals = temp_.mkdir("a=b") + "/ok";
    fs::copy_file(dir_ + "/bin/ok", withEquals);
    EXPECT_FALSE(vendorToolRuns(withEquals, {"--version"}));
    // The arguments reach the tool as given.
    EXPECT_TRUE(vendorToolRuns(script("args", "[ \"$1\" = -f ] && [ \"$2\" = 'two words' ]"), {"-f", "two words"}));
}

TEST_F(FakeTools, HangingToolIsStoppedAndIsNoTool) {
    const auto start = std::chrono::steady_clock::now();
    // exec: the sleeper is the tool itself, not a grandchild holding the output open past the limit.
    EXPECT_FALSE(vendorToolRuns(script("sleeper", "exec sleep 6"), {"--version"}, 0.3));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
}

TEST_F(FakeTools, ToolGetsItsOwnSearchPath) {
    const std::string expected = dir_ + "/bin:/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin";
    const std::string checker = script("pathcheck", "[ \"$PATH\" = \"" + expected + "\" ]");
    const Facts noHome = withHome(dir_ + "/nohome");
    ASSERT_EQ(vendorToolPATH(checker, noHome), expected);
    EXPECT_TRUE(vendorToolRuns(checker, {}, 5.0, noHome));
}

TEST_F(FakeTools, NodeVersionsInDescendingTextOrder) {
    for (auto v : {"18.0", "20.1", "9.0"}) temp_.mkdir(".nvm/versions/node/" + std::string(v) + "/bin");
    EXPECT_EQ(vendorToolPATH("/opt/homebrew/bin/npm", withHome(dir_)),
              "/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin:" + dir_ +
                  "/.nvm/versions/node/9.0/bin:" + dir_ + "/.nvm/versions/node/20.1/bin:" + dir_ +
                  "/.nvm/versions/node/18.0/bin");
    EXPECT_EQ(vendorToolPATH("/usr/bin/npm", withHome(dir_ + "/absent")),
              "/usr/bin:/opt/homebrew/bin:/usr/local/bin:/bin:/usr/sbin:/sbin");
}

TEST_F(FakeTools, DetectionTriesOnlyTheFirstExistingCandidate) {
    const std::string good = script("good", "exit 0");
    const std::string bad = script("bad", "exit 1");
    const std::string missing = dir_ + "/bin/none";
    auto needs = tool("needs", {good});
    needs.requirePath = dir_ + "/simulators";
    const std::vector<VendorTool> table = {
        tool("first", {missing, good}),  // a missing candidate is passed over
        tool("broken", {bad, good}),     // a broken one is not
        tool("absent", {missing}),
        needs,
        tool("last", {good}),
    };
    auto found = detectVendorTools(table);
    std::vector<std::string> ids;
    for (const auto& f : found) ids.push_back(f.tool.id + "@" + f.path);
    EXPECT_EQ(ids, (std::vector<std::string>{"first@" + good, "last@" + good}));

    fs::create_directories(dir_ + "/simulators");
    EXPECT_EQ(detectVendorTools(table).size(), 3u);
}

TEST(DetectVendorTools, SimulatorsNeedTheirFolder) {
    const auto simctl = row("simctl");
    std::set<std::string> disk = {"/usr/bin/xcrun"};
    std::vector<std::string> ran;
    Facts facts = Facts::real();
    facts.exists = [&](const std::string& p) { return disk.contains(p); };
    facts.run = [&](const std::string& tool, const std::vector<std::string>& args, double, bool, ToolErrors) {
        ran.push_back(tool + " " + args.at(1) + " " + args.at(2));  // after env's PATH=
        ToolResult succeeded;
        succeeded.status = 0;
        return succeeded;
    };
    EXPECT_TRUE(detectVendorTools({simctl}, facts).empty());
    EXPECT_TRUE(ran.empty());  // nothing is run for a janitor of no use
    disk.insert(*simctl.requirePath);
    auto found = detectVendorTools({simctl}, facts);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].path, "/usr/bin/xcrun");
    EXPECT_EQ(ran, std::vector<std::string>{"/usr/bin/env /usr/bin/xcrun -f"});
}

TEST(VendorToolCandidates, ThisSystemsFoldersComeAfterTheTables) {
    const auto npm = row("npm");
    Facts facts = withHome("/home/a");
    auto all = vendorToolCandidates(npm, facts);
    ASSERT_GE(all.size(), npm.candidates.size());
    EXPECT_TRUE(std::equal(npm.candidates.begin(), npm.candidates.end(), all.begin()));
    EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), all.size());  // each once
#ifdef __linux__
    EXPECT_NE(std::find(all.begin(), all.end(), "/usr/bin/npm"), all.end());
    EXPECT_NE(std::find(all.begin(), all.end(), "/home/a/.local/bin/npm"), all.end());
    auto brew = vendorToolCandidates(row("brew"), facts);
    EXPECT_NE(std::find(brew.begin(), brew.end(), "/home/linuxbrew/.linuxbrew/bin/brew"), brew.end());
#endif
    // A Mac, also one recorded and read here, has only the table's places.
    facts.rules = RuleSet::macOS;
    EXPECT_EQ(vendorToolCandidates(npm, facts), npm.candidates);
}

TEST_F(FakeTools, RunVendorJanitorRunsTheArgumentsAndShowsTheOutput) {
    auto t = tool("echoer", {});
    t.args = {"cache", "clean", "--force"};
    const std::string echoer = script("echoer", "echo \"cleaning $*\"; echo 'to stderr' >&2; exit 3");
    auto run = runVendorJanitor(t, echoer, 10);
    EXPECT_EQ(run.status, 3);
    EXPECT_FALSE(run.timedOut);
    EXPECT_EQ(run.lines, (std::vector<std::string>{"cleaning cache clean --force", "to stderr"}));
}

}  // namespace
}  // namespace orvane
