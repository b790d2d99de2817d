#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/cli/run_orvane.hpp"

#include "tests/support/temp_dir.hpp"

namespace {

namespace fs = std::filesystem;
using orvane::testing::runOrvane;

class ProtectCommand : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = temp_.path();
        fs::create_directories(dir_ + "/ledger");
        fs::create_directories(dir_ + "/Stems");
        ledger_ = "--ledger-dir " + dir_ + "/ledger ";
    }
    orvane::testing::TempDir temp_;
    std::string dir_, ledger_;
};

TEST_F(ProtectCommand, TheListSurvivesAndIsNeverOverwrittenWhenDamaged) {
    EXPECT_EQ(runOrvane(ledger_ + "protect add " + dir_ + "/Stems --label Stems", dir_).out,
              "Protected folder:" + dir_ + "/Stems.\n");
    EXPECT_EQ(runOrvane(ledger_ + "protect add " + dir_ + "/Stems", dir_).out,
              "folder:" + dir_ + "/Stems is already protected.\n");
    // A protected folder, and the folder holding it, are refused by the verdict.
    fs::create_directories(dir_ + "/work/Stems");
    runOrvane(ledger_ + "protect add " + dir_ + "/work/Stems", dir_);
    auto verdict = runOrvane(ledger_ + "verdict " + dir_ + "/work/Stems " + dir_ + "/work", dir_);
    EXPECT_EQ(verdict.status, 1);
    EXPECT_EQ(verdict.out, dir_ + "/work/Stems: refused — Kept because you protected it.\n" + dir_ +
                               "/work: refused — Kept because you protected Stems inside it.\n");
    runOrvane(ledger_ + "protect remove folder:" + dir_ + "/work/Stems", dir_);

    auto listed = runOrvane(ledger_ + "protect list --json", dir_);
    EXPECT_EQ(listed.status, 0);
    auto json = nlohmann::json::parse(listed.out);
    EXPECT_EQ(json["version"], 1);
    EXPECT_EQ(json["entries"][0]["label"], "Stems");
    EXPECT_EQ(json["entries"][0]["kind"], "folder");
    EXPECT_TRUE(fs::exists(dir_ + "/ledger/protect-list.json"));

    EXPECT_EQ(runOrvane(ledger_ + "protect remove folder:/nowhere", dir_).status, 1);
    EXPECT_EQ(runOrvane(ledger_ + "protect remove folder:" + dir_ + "/Stems", dir_).status, 0);
    EXPECT_EQ(runOrvane(ledger_ + "protect list", dir_).out, "Nothing is protected yet.\n");
    EXPECT_EQ(runOrvane(ledger_ + "protect add", dir_).status, 2);

    // A list from a newer release: reported, and left exactly as it was.
    const std::string newer = R"({"version":2,"entries":[]})";
    std::ofstream(dir_ + "/ledger/protect-list.json") << newer;
    auto refused = runOrvane(ledger_ + "protect add " + dir_ + "/Stems", dir_);
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("left as it is"), std::string::npos) << refused.err;
    EXPECT_EQ(orvane::readFile(dir_ + "/ledger/protect-list.json"), newer);
}

TEST_F(ProtectCommand, ANameTheListCannotHoldExactlyIsRefusedAndControlCharactersAreEscaped) {
    const std::string bad = dir_ + "/Stems\xff", odd = dir_ + "/New\nStems";
    fs::create_directories(bad);
    fs::create_directories(odd);
    auto refused = runOrvane(ledger_ + "protect add '" + bad + "'", dir_);
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, "orvane: Velloran Orvane cannot protect " + dir_ +
                               "/Stems\\xFF: its name is not valid UTF-8, and the protection list can only hold it "
                               "altered.\n");
    EXPECT_FALSE(fs::exists(dir_ + "/ledger/protect-list.json"));

    EXPECT_EQ(runOrvane(ledger_ + "protect add '" + odd + "'", dir_).out, "Protected folder:" + dir_ + "/New\\nStems.\n");
    EXPECT_TRUE(runOrvane(ledger_ + "protect list", dir_).out.starts_with("folder:" + dir_ + "/New\\nStems  New\\nStems (added "));
    EXPECT_EQ(nlohmann::json::parse(runOrvane(ledger_ + "protect list --json", dir_).out)["entries"][0]["value"], odd);
}

}  // namespace
