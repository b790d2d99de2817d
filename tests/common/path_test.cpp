#include "core/common/path.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

namespace orvane {
namespace {

class HomeOverride {
public:
    explicit HomeOverride(const char* dir) {
        if (const char* old = std::getenv("HOME")) saved_ = old;
        setenv("HOME", dir, 1);
    }
    ~HomeOverride() {
        if (saved_.empty()) unsetenv("HOME");
        else setenv("HOME", saved_.c_str(), 1);
    }

private:
    std::string saved_;
};

TEST(StandardizePath, LexicalCleanUp) {
    HomeOverride home("/Users/ann");
    const std::set<std::string> existing = {"/tmp/x", "/var/folders", "/etc"};
    auto exists = [&](const std::string& p) { return existing.contains(p); };
    struct Case {
        const char* in;
        const char* out;
    } cases[] = {
        {"", ""},
        {"/", "/"},
        {"//", "/"},
        {"/a//b/", "/a/b"},
        {"/a/./b/.", "/a/b"}, {"/a/b/../c", "/a/c"}, {"/a/../../..", "/"}, {"/..", "/"}, {"~", "/Users/ann"},
        {"~/Documents/", "/Users/ann/Documents"}, {"~/../bob", "/Users/bob"},
        {"~nosuchuser-orvane/x", "~nosuchuser-orvane/x"},
        {"a/../b", "a/../b"},  // relative paths keep their ".."
        {"a/./b//", "a/b"},
        {"./", "."},
        {"/private/tmp/x", "/tmp/x"},          // the shorter path exists
        {"/private/tmp/y", "/private/tmp/y"},  // it does not
        {"/private/etc", "/etc"}, {"/private", "/private"}, {"/private/var/folders/../folders", "/var/folders"},
    };
    for (const auto& c : cases) EXPECT_EQ(standardizePath(c.in, exists), c.out) << c.in;
}

TEST(PathComponents, OperationsOnText) {
    EXPECT_EQ(pathComponents("/a//b/"), (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(pathComponents("/").empty());

    struct Case {
        const char* in;
        const char* parent;
        const char* last;
    } cases[] = {
        {"/tmp/scratch.tiff", "/tmp", "scratch.tiff"}, {"/tmp/lock/", "/tmp", "lock"}, {"/tmp/", "/", "tmp"},
        {"/tmp", "/", "tmp"}, {"/", "/", "/"},
        {"scratch.tiff", "", "scratch.tiff"},
        {"/a//b", "/a", "b"},
        {"a/b", "a", "b"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(deletingLastPathComponent(c.in), c.parent) << c.in;
        EXPECT_EQ(lastPathComponent(c.in), c.last) << c.in;
    }

    EXPECT_EQ(appendingPathComponent("/tmp", "scratch.tiff"), "/tmp/scratch.tiff");
    EXPECT_EQ(appendingPathComponent("/tmp/", "scratch.tiff"), "/tmp/scratch.tiff");
    EXPECT_EQ(appendingPathComponent("/", "scratch.tiff"), "/scratch.tiff");
    EXPECT_EQ(appendingPathComponent("", "scratch.tiff"), "scratch.tiff");
    EXPECT_EQ(appendingPathComponent("/Users/a", ".Trash/"), "/Users/a/.Trash");
    EXPECT_EQ(appendingPathComponent("/Users/a", ".Trash/X.app"), "/Users/a/.Trash/X.app");

    EXPECT_TRUE(isAtOrBelow("/a/b", "/a"));
    EXPECT_TRUE(isAtOrBelow("/a", "/a"));
    EXPECT_TRUE(isAtOrBelow("/a", "/"));
    EXPECT_FALSE(isAtOrBelow("/ab", "/a"));
}

TEST(Home, FollowsHomeAndAppends) {
    HomeOverride home("/Users/ann/");
    EXPECT_EQ(orvane::home(), "/Users/ann");
    EXPECT_EQ(orvane::home("Library/Application Support"), "/Users/ann/Library/Application Support");
}

}  // namespace
}  // namespace orvane
