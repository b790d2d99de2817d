#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/cli/run_orvane.hpp"

#include "tests/support/temp_dir.hpp"

namespace {

namespace fs = std::filesystem;
using orvane::testing::runOrvane;

class DuCommand : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = temp_.path();
        fs::create_directories(dir_ + "/data/inner");
        std::ofstream(dir_ + "/data/inner/file") << std::string(200 * 1024, 'x');
    }
    orvane::testing::TempDir temp_;
    std::string dir_;
};

TEST_F(DuCommand, SizesUnknownsAndStatus) {
    auto measured = runOrvane("du " + dir_ + "/data", dir_);
    EXPECT_EQ(measured.status, 0) << measured.err;
    EXPECT_TRUE(measured.out.starts_with(dir_ + "/data: ")) << measured.out;
    EXPECT_NE(measured.out.find(" KB\n"), std::string::npos) << measured.out;
    EXPECT_EQ(measured.out.find("Not counted"), std::string::npos);

    auto partly = runOrvane("du " + dir_ + "/data " + dir_ + "/missing", dir_);
    EXPECT_EQ(partly.status, 1);
    EXPECT_NE(partly.out.find(dir_ + "/missing: unknown\n"), std::string::npos) << partly.out;

    auto json = runOrvane("du --json " + dir_ + "/data " + dir_ + "/missing", dir_);
    EXPECT_EQ(json.status, 1);
    auto parsed = nlohmann::json::parse(json.out);
    EXPECT_GE(parsed["paths"][0]["bytes"].get<std::int64_t>(), 200 * 1024);
    EXPECT_EQ(parsed["paths"][1]["bytes"], -1);
    EXPECT_EQ(parsed["paths"][1]["size"], "unknown");
    EXPECT_EQ(parsed["allMeasured"], false);

    EXPECT_EQ(runOrvane("du", dir_).status, 2);  // a path is required
}

TEST_F(DuCommand, RelativePathsAreMeasuredFromHere) {
    const std::string command = "cd " + dir_ + " && " + std::string(ORVANE_BINARY) + " du data > " + dir_ + "/rel";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_TRUE(orvane::readFile(dir_ + "/rel").value_or("").starts_with(dir_ + "/data: "));
}

}  // namespace
