// A fixture whose tests run with $HOME set to a fresh folder of their own, so that the rules that
// read the home see a home the test built.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <optional>
#include <string>

#include "core/common/path.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane::testing {

class HomeOverride : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* saved = std::getenv("HOME")) saved_ = saved;
        ::setenv("HOME", home_.c_str(), 1);
        ASSERT_EQ(home(), home_);
    }
    void TearDown() override {
        if (saved_) ::setenv("HOME", saved_->c_str(), 1);
        else ::unsetenv("HOME");
    }
    void file(const std::string& relative, const std::string& text = "x") { dir_.write(relative, text); }

    TempDir dir_;
    std::string home_ = dir_.path();
    std::optional<std::string> saved_;
};

}  // namespace orvane::testing
