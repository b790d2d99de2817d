// orvane scan over a real folder whose names a Linux disk allows and a terminal must not obey.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "tests/cli/run_orvane.hpp"
#include "tests/support/temp_dir.hpp"

namespace {

namespace fs = std::filesystem;
using orvane::testing::runOrvane;

TEST(ScanCommand, ANameThatIsNotUTF8IsSkippedAloneAndAControlCharacterIsEscaped) {
    orvane::testing::TempDir temp;
    const std::string tree = temp / "tree";
    fs::create_directories(tree);
    // Above the 10 MB threshold by their size; sparse, so they cost no disk.
    for (const char* name : {"ok.bin", "bad\xff.bin", "new\nline.bin"}) {
        std::ofstream(tree + "/" + name) << "x";
        fs::resize_file(tree + "/" + name, 11 * 1000 * 1000);
    }
    const std::string scan = "--ledger-dir " + temp / "ledger" + " scan " + tree;

    auto plain = runOrvane(scan, temp.path());
    EXPECT_EQ(plain.status, 0) << plain.err;
    EXPECT_NE(plain.out.find("  new\\nline.bin\n"), std::string::npos) << plain.out;
    EXPECT_EQ(plain.out.find("bad"), std::string::npos) << plain.out;
    EXPECT_NE(plain.out.find("\n2 findings in "), std::string::npos) << plain.out;
    EXPECT_TRUE(plain.out.ends_with("\n1 name skipped: not valid UTF-8.\n")) << plain.out;

    auto json = nlohmann::json::parse(runOrvane(scan + " --json", temp.path()).out);
    std::set<std::string> titles;
    for (const auto& item : json["items"]) titles.insert(item["title"].get<std::string>());
    EXPECT_EQ(titles, (std::set<std::string>{"ok.bin", "new\nline.bin"}));
    EXPECT_EQ(json["skippedNames"], 1);
}

}  // namespace
