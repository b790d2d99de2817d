// A fixture whose tests run with $HOME set to a fresh folder of their own, so that the rules that
// read the home see a home the test built.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "core/common/path.hpp"

namespace orvane::testing {

class HomeOverride : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* saved = std::getenv("HOME")) saved_ = saved;
        char pattern[] = "/tmp/orvane-home-XXXXXX";
        home_ = std::filesystem::canonical(::mkdtemp(pattern)).string();
        ::setenv("HOME", home_.c_str(), 1);
        ASSERT_EQ(home(), home_);
    }
    void TearDown() override {
        if (saved_) ::setenv("HOME", saved_->c_str(), 1);
        else ::unsetenv("HOME");
        std::filesystem::remove_all(home_);
    }
    // A file under the home, with its folders.
    void file(const std::string& relative, const std::string& text = "x") {
        const std::filesystem::path path = home_ + "/" + relative;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }

    std::string home_;
    std::optional<std::string> saved_;
};

}  // namespace orvane::testing
