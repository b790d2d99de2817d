#include "core/safety/path_kinds.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <functional>
#include <optional>

namespace orvane {
namespace {

// These rules are text over the home, so a made-up macOS home serves: nothing is read from disk.
class PathKinds : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* saved = std::getenv("HOME")) saved_ = saved;
        ::setenv("HOME", "/Users/a", 1);
    }
    void TearDown() override {
        if (saved_) ::setenv("HOME", saved_->c_str(), 1);
        else ::unsetenv("HOME");
    }
    std::optional<std::string> saved_;
};

struct Case {
    std::string path;
    bool expected;
};

void expectAll(const char* name, const std::function<bool(std::string_view)>& rule, const std::vector<Case>& cases) {
    for (const auto& c : cases) EXPECT_EQ(rule(c.path), c.expected) << name << "(\"" << c.path << "\")";
}

TEST_F(PathKinds, ProtectedSystemAndRelocatableContent) {
    expectAll("isRelocatableSystemContent", isRelocatableSystemContent,
              {
                  {"/Library/Audio/Sounds", true}, {"/Library/Audio/Sounds/Banks/x.exs", true},
                  {"/Library/Audio/SoundsExtra", false}, {"/Library/Audio", false},
                  {"/Library/Application Support/Spectrasonics/STEAM/Omnisphere", true},
                  {"/Library/Application Support/Spectrasonics", false}, {"/Library/Application Support/Logic", true},
              });
    expectAll("isProtectedSystemPath", isProtectedSystemPath,
              {
                  {"/System/Library", true}, {"/Library/Audio", true}, {"/Library/Audio/Apple Loops/x", false},
                  {"/usr/local/bin", true}, {"/", true}, {"/Users", true}, {"/Users/a", false},
                  {"/Users/a/Documents", false}, {"/Users/ab", true}, {"/Volumes/Drive", false}, {"/Volumes", true},
                  {"relative/path", false},
                  {"", false},
                  {userTempRoot(), false}, {userTempRoot() + "/item", false},
              });
}

TEST_F(PathKinds, TrashAppAndToolInternals) {
    expectAll("isInTrash", isInTrash,
              {
                  {"/Users/a/.Trash/old", true}, {"/Volumes/Drive/.Trashes/501/old", true},
                  {"/Users/a/Trash/old", false}, {"/Users/a/.trash/old", false},
              });
    expectAll("isAppInternalPath", isAppInternalPath,
              {
                  {"/Users/a/Library/Application Support/App/db", true},
                  {"/Users/a/Library/Containers/com.x/Data", true}, {"/Users/a/Library/Group Containers/g.x/y", true},
                  {"/Users/a/Library/Application Support", false}, {"/Users/a/Library/Caches/x", false},
                  {"/Users/b/Library/Containers/com.x", false},
              });
    expectAll("isToolInternalPath", isToolInternalPath,
              {
                  {"/Users/a/.npm/_cacache", true}, {"/Users/a/.cargo", true},
                  {"/Users/a/Library/Containers/com.x/Data", true}, {"/Users/a/.Trash/thing", false},
                  {"/Users/a/Library/Containers/.TrashBin/x", true},  // "/.Trash" without a following "/" does not count
                  {"/Volumes/D/.Trashes/501/x", false}, {"/Users/a/Documents/.hidden", false},
                  {"/Users/a/Documents", false},
              });
}

TEST_F(PathKinds, HomeContainersAndTheWayToUserContent) {
    expectAll("isStandardHomeContainer", isStandardHomeContainer,
              {
                  {"/Users/a/Documents", true}, {"/Users/a/Library", true}, {"/Users/a/Applications", true},
                  {"/Users/a/Documents/x", false}, {"/Users/a/documents", false}, {"/Users/a/Sites", false},
                  {"/Users/b/Documents", false},
              });
    expectAll("leadsToUserContent", leadsToUserContent,
              {
                  {"/Users/a", true}, {"/Users", true}, {"/", true},
                  {"/Us", true},  // a text prefix of the home counts too
                  {"/Users/a/", true}, {"/Applications", true}, {"/Users/a/Applications", true},
                  {"/Users/a/Documents", false}, {"/Users/ab", false}, {"/Applications/Safari.app", false},
              });
}

}  // namespace
}  // namespace orvane
