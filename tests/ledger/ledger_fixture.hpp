// A ledger of its own for each test, in a temporary folder that also holds the test's home.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "core/common/json_files.hpp"
#include "core/ledger/ledger.hpp"
#include "core/platform/platform.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane::testing {

namespace fs = std::filesystem;

class LedgerFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        ::setenv("HOME", temp_.mkdir("home").c_str(), 1);
        Ledger::setTestDirOverride(ledger_);
    }
    void TearDown() override { Ledger::flush(); }

    void putLedgerFile(const std::string& name, const std::string& bytes) const { put(ledger_ + "/" + name, bytes); }
    std::string ledgerFile(const std::string& name) const { return contents(ledger_ + "/" + name); }

    static void put(const std::string& path, const std::string& bytes) { writeFile(path, bytes); }
    static std::string contents(const std::string& path) { return readFile(path).value_or("<missing>"); }
    static bool present(const std::string& path) { return platform::lstatFacts(path).has_value(); }
    static bool isLink(const std::string& path) {
        auto facts = platform::lstatFacts(path);
        return facts && facts->isSymlink();
    }
    static std::string linkTarget(const std::string& path) {
        std::error_code error;
        return fs::read_symlink(path, error).string();
    }
    // The names in a folder, sorted; empty when it does not exist.
    static std::vector<std::string> names(const std::string& folder) {
        std::vector<std::string> found;
        std::error_code error;
        for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
            found.push_back(it->path().filename().string());
        std::sort(found.begin(), found.end());
        return found;
    }

    TempDir temp_;
    std::string root_ = temp_.path();
    std::string ledger_ = root_ + "/ledger";
};

}  // namespace orvane::testing
