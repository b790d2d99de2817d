// The plan checker as a user runs it: the real binary, its output and exit status.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "tests/cli/run_orvane.hpp"

#include "tests/support/temp_dir.hpp"

namespace {

namespace fs = std::filesystem;

class PlanCheck : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = temp_.path();
    }

    orvane::testing::Outcome run(const std::string& plan, const std::string& extra = "") {
        const std::string planFile = dir_ + "/plan.json";
        std::ofstream(planFile, std::ios::binary) << plan;
        return orvane::testing::runOrvane("plan check " + planFile + " " + extra, dir_);
    }

    orvane::testing::TempDir temp_;
    std::string dir_;
};

TEST_F(PlanCheck, AnswersOkRefusedOrBadInput) {
    fs::create_directories(dir_ + "/a");
    fs::create_directories(dir_ + "/b");
    std::ofstream(dir_ + "/a/x") << "x";
    std::ofstream(dir_ + "/b/y") << "y";
    const std::string home = " --home " + dir_;

    auto ok = run(R"([{"removePath":{"_0":")" + dir_ + R"(/a/x"}},{"moveAside":{"path":")" + dir_ +
                      R"(/b/y","to":")" + dir_ + R"(/a/x","chownTo":501}}])",
                  home);
    EXPECT_EQ(ok.status, 0) << ok.err;
    EXPECT_EQ(ok.out, "ok\n");

    auto occupied = run(R"([{"thinSnapshots":{}},{"moveAside":{"path":")" + dir_ + R"(/b/y","to":")" + dir_ +
                            R"(/a/x","chownTo":501}}])",
                        home);
    EXPECT_EQ(occupied.status, 1);
    EXPECT_EQ(occupied.out, "destinationOccupied at step 2: moveAside(path: \"" + dir_ + "/b/y\", to: \"" + dir_ +
                                "/a/x\", chownTo: 501)\n");

    auto persistence = run(R"([{"removePath":{"_0":"/Library/LaunchDaemons/x.plist"}}])", home);
    EXPECT_EQ(persistence.status, 1);
    EXPECT_EQ(persistence.out, "pathNotAllowed at step 1: removePath(\"/Library/LaunchDaemons/x.plist\")\n");

    auto json = run(R"([{"deleteSnapshots":{"_0":[]}}])", home + " --json");
    EXPECT_EQ(json.status, 1);
    auto parsed = nlohmann::json::parse(json.out);
    EXPECT_EQ(parsed["ok"], false);
    EXPECT_EQ(parsed["refusal"], "malformedSnapshotDate");
    EXPECT_EQ(parsed["step"], 1);
    EXPECT_EQ(parsed["operation"], nlohmann::json::parse(R"({"deleteSnapshots":{"_0":[]}})"));

    EXPECT_EQ(run("[]").out, "ok\n");
}

TEST_F(PlanCheck, MalformedPlansGetOneSentenceAndStatusTwo) {
    const char* plans[] = {
        "",
        "[",
        "{\"removePath\":{\"_0\":\"/a/b\"}}",
        "[{\"removePath\":{\"_0\":\"/a/b\"}},{\"nothingKnown\":{}}]",
        "[{\"moveAside\":{\"path\":\"/a/b\",\"to\":\"/c/d\",\"chownTo\":-1}}]",
        "[{\"removePath\":{\"_0\":\"/a\",\"_0\":\"/b\"}}]",
        "[\"removePath\"]",
        "[{\"removePath\":{\"_0\":\"/\xff\"}}]",
    };
    for (const char* plan : plans) {
        auto r = run(plan);
        EXPECT_EQ(r.status, 2) << plan;
        EXPECT_TRUE(r.out.empty()) << plan;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_TRUE(r.err.starts_with("orvane: ")) << r.err;
    }
    EXPECT_NE(run("[{\"removePath\":{\"_0\":\"/a/b\"}},{\"nothingKnown\":{}}]").err.find("Step 2"), std::string::npos);
    EXPECT_EQ(run("[]", "--no-such-flag").status, 2);

    EXPECT_EQ(orvane::testing::runOrvane("plan check /nonexistent/plan.json", dir_).status, 2);
}

TEST_F(PlanCheck, AFileThatIsNoPlanGetsOneSentenceAndNeverWaits) {
    const std::string fifo = dir_ + "/fifo", large = dir_ + "/large.json";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);  // no writer: a blocking read would never end
    std::ofstream(large) << "[";
    fs::resize_file(large, 8 * 1024 * 1024 + 1);
    const std::pair<std::string, std::string> cases[] = {
        {"/dev/zero", "orvane: Cannot read /dev/zero: it is not a regular file.\n"},
        {fifo, "orvane: Cannot read " + fifo + ": it is not a regular file.\n"},
        {dir_, "orvane: Cannot read " + dir_ + ": it is not a regular file.\n"},
        {large, "orvane: The input is larger than 8 MiB, more than any plan needs.\n"},
    };
    for (const auto& [file, err] : cases) {
        auto r = orvane::testing::runOrvane("plan check " + file, dir_);
        EXPECT_EQ(r.status, 2) << file;
        EXPECT_EQ(r.err, err);
    }
    // Standard input is still read, to its end.
    const std::string piped = "echo '[]' | " + std::string(ORVANE_BINARY) + " plan check - > " + dir_ + "/out";
    EXPECT_EQ(std::system(piped.c_str()), 0);
    EXPECT_EQ(orvane::readFile(dir_ + "/out"), "ok\n");
}

}  // namespace
