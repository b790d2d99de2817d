#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "tests/cli/run_orvane.hpp"

namespace {

namespace fs = std::filesystem;
using orvane::testing::runOrvane;

// Nothing here cleans anything: every run stops before a janitor's command would start.
class JanitorsCommand : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/orvane-janitorscli-XXXXXX";
        dir_ = fs::canonical(mkdtemp(pattern)).string();
    }
    void TearDown() override { fs::remove_all(dir_); }
    std::string dir_;
};

TEST_F(JanitorsCommand, ListsOnlyToolsThatAreHereAndRun) {
    auto out = runOrvane("janitors --json", dir_);
    ASSERT_EQ(out.status, 0) << out.err;
    auto parsed = nlohmann::json::parse(out.out);
    for (const auto& j : parsed["janitors"]) {
        const std::string path = j["path"];
        EXPECT_EQ(::access(path.c_str(), X_OK), 0) << path;
        EXPECT_EQ(j["command"][0], path);
        EXPECT_FALSE(std::string(j["note"]).empty());
        EXPECT_NE(j["id"], "simctl");  // no simulators on this machine's kind
    }
    auto readable = runOrvane("janitors", dir_);
    EXPECT_EQ(readable.status, 0);
    const std::string expectedEnd = parsed["janitors"].empty()
                                        ? "No janitor's tool is installed and working on this machine.\n"
                                        : "Run one with: orvane janitors run ID\n";
    EXPECT_TRUE(readable.out.ends_with(expectedEnd)) << readable.out;
}

TEST_F(JanitorsCommand, RunRefusesWithoutConfirmation) {
    auto unknown = runOrvane("janitors run nosuch --yes", dir_);
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.err, "orvane: No janitor is called \"nosuch\"; orvane janitors lists the ones here.\n");

    // Standard input is not a terminal here, so nothing can be confirmed.
    for (std::string id : {"npm", "docker", "brew", "pip"}) {
        auto unconfirmed = runOrvane("janitors run " + id, dir_);
        EXPECT_EQ(unconfirmed.status, 2) << id;
        EXPECT_EQ(unconfirmed.err, "orvane: Nothing was run: confirm on a terminal, or give --yes.\n");
        auto json = runOrvane("janitors run " + id + " --json", dir_);
        EXPECT_EQ(json.status, 2);
        EXPECT_EQ(json.err, "orvane: With --json, give --yes: the confirmation cannot be asked in JSON output.\n");
    }

    auto absent = runOrvane("janitors run simctl --yes", dir_);  // its simulators folder is not here
    EXPECT_EQ(absent.status, 1);
    EXPECT_EQ(absent.err,
              "orvane: The iOS Simulators janitor's tool is not installed here, or it did not pass its harmless run (xcrun -f "
              "simctl).\n");
    EXPECT_EQ(runOrvane("janitors run", dir_).status, 2);
}

}  // namespace
