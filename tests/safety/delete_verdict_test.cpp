#include "core/safety/delete_verdict.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include <filesystem>
#include <fstream>

#include "core/platform/platform.hpp"
#include "tests/safety/home_override.hpp"
#include "tests/support/mount_point.hpp"

namespace orvane {

void PrintTo(const DeleteVerdict& verdict, std::ostream* os) { *os << describe(verdict); }
void PrintTo(const RestoreVerdict& verdict, std::ostream* os) { *os << describe(verdict); }

namespace {

namespace fs = std::filesystem;
using V = DeleteVerdict;

// A home of its own with projects, caches and links in it.
class VerdictTree : public testing::HomeOverride {
protected:
    void SetUp() override {
        HomeOverride::SetUp();
        file("work/app/package.json");          // a project root
        file("work/app/src/index.js");
        file("work/app/sub/Cargo.toml");          // a project inside a project
        file("holder/a/b/pyproject.toml");        // two levels down
        file("far/a/b/c/go.mod");                 // three levels down: beyond the look
        file("plain/notes.txt");
        file("plain/photo.jpg");
        file(".npm/_cacache/package.json");       // a vendor's cache that looks like a project
        file(".npm/package.json");
        file("Documents/essay.txt");
        file("Documents/thesis/main.py");
        file("Documents/thesis/util.py");
        file("build/proj/Makefile");              // a rebuildable folder is never searched
        file("node_modules/package.json");
        fs::create_directory_symlink(home_ + "/work/app", home_ + "/applink");
        fs::create_directory_symlink(home_ + "/plain", home_ + "/plainlink");
    }
    std::string at(const std::string& rel) { return home_ + "/" + rel; }
};

TEST_F(VerdictTree, PrecedenceOfTheRules) {
    struct Case {
        std::string path;
        bool contentsOnly, isSymlink, traversesSymlink;
        DeleteVerdict expected;
    };
    const std::vector<Case> cases = {
        // protected first, whatever else holds
        {home_, false, false, false, V::refuse(kProtectedRefusal)},
        {home_, true, true, true, V::refuse(kProtectedRefusal)},
        {deletingLastPathComponent(home_), false, false, false, V::refuse(kProtectedRefusal)},
        {"/", false, false, false, V::refuse(kProtectedRefusal)},
        {"/usr", false, false, false, V::refuse(kProtectedRefusal)},
        {"/opt/x", false, false, false, V::trash()},  // two components, not a mount point: other rules decide
        // ... except in the folders of a system that does not guard them itself
        {"/etc/x", false, false, false, platform::hasPrivateFolder() ? V::trash() : V::refuse(kProtectedRefusal)},
        // then the way through a shortcut, ahead of the shortcut itself and of projects
        {at("work/app"), true, true, true, V::refuse(kViaShortcutRefusal)},
        {at("plain"), false, false, true, V::refuse(kViaShortcutRefusal)},
        // then clearing a shortcut's contents, ahead of the project check
        {at("applink"), true, true, false, V::refuse(kIsShortcutRefusal)},
        // a link alone may go: on to the project check (which here lists its target)
        {at("plainlink"), false, true, false, V::trash()},
        {at("applink"), false, true, false, V::refuse(kProjectItselfRefusal)},
        // a vendor's cache ahead of the project itself
        {at(".npm"), false, false, false, V::refuse(vendorCacheRefusal("npm"))},
        {at(".npm/_cacache"), false, false, false, V::refuse(vendorCacheRefusal("npm"))},
        // the project itself ahead of the one inside it
        {at("work/app"), false, false, false, V::refuse(kProjectItselfRefusal)},
        {at("work"), false, false, false, V::refuse(holdsProjectRefusal("app"))},
        {at("holder"), false, false, false, V::refuse(holdsProjectRefusal("b"))},
        {at("far"), true, false, false, V::trash()}, {at("plain"), false, false, false, V::trash()},
        {at("plain/notes.txt"), false, false, false, V::trash()}, {at("absent"), false, false, false, V::trash()},
        {at("build"), false, false, false, V::trash()}, {at("node_modules"), false, false, false, V::trash()},
        // a home container is judged by its own top level only
        {at("Documents"), false, false, false, V::trash()},
        {at("Documents/thesis"), false, false, false, V::refuse(kProjectItselfRefusal)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(deleteVerdict(c.path, false, c.contentsOnly, c.isSymlink, c.traversesSymlink), c.expected)
            << c.path << " contentsOnly " << c.contentsOnly << " isSymlink " << c.isSymlink << " traverses "
            << c.traversesSymlink;
    }
    EXPECT_EQ(deleteVerdict(at("plain"), true, false, false, false), V::removePermanently());
    EXPECT_EQ(deleteVerdict(at("work"), true, false, false, false), V::refuse(holdsProjectRefusal("app")));
}

TEST_F(VerdictTree, OnDiskAsksTheDiskForLinks) {
    EXPECT_EQ(onDiskDeleteVerdict("app:record-1", false), V::refuse(kNotOnDiskRefusal));
    EXPECT_EQ(onDiskDeleteVerdict("", false), V::refuse(kNotOnDiskRefusal));
    EXPECT_EQ(onDiskDeleteVerdict(std::string(at("plain") + std::string("\0x", 2)), false),
              V::refuse(kNotOnDiskRefusal));
    EXPECT_EQ(onDiskDeleteVerdict(home_, false), V::refuse(kProtectedRefusal));
    EXPECT_EQ(onDiskDeleteVerdict(at("plainlink"), false), V::refuse(kViaShortcutRefusal));  // the link itself
    EXPECT_EQ(onDiskDeleteVerdict(at("plainlink/notes.txt"), false), V::refuse(kViaShortcutRefusal));
    EXPECT_EQ(onDiskDeleteVerdict(at("work/app"), false), V::refuse(kProjectItselfRefusal));
    EXPECT_EQ(onDiskDeleteVerdict(at("plain"), false), V::trash());
    EXPECT_EQ(onDiskDeleteVerdict(at("plain"), true), V::removePermanently());
    if (platform::hasPrivateFolder()) return;  // the system folders below are Linux's
    for (const char* system : {"/dev/null", "/etc/passwd", "/proc/self", "/sys/kernel", "/usr/bin/env"})
        EXPECT_EQ(onDiskDeleteVerdict(system, false), V::refuse(kProtectedRefusal)) << system;
}

// Removes a folder too deep for path-based removal, one descriptor per level.
void removeDeep(int parentFD, const char* name) {
    int fd = ::openat(parentFD, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0) {
        if (DIR* dir = ::fdopendir(fd)) {
            std::vector<std::string> names;
            while (const dirent* entry = ::readdir(dir))
                if (std::string_view(entry->d_name) != "." && std::string_view(entry->d_name) != "..")
                    names.emplace_back(entry->d_name);
            for (const auto& child : names)
                if (::unlinkat(::dirfd(dir), child.c_str(), 0) != 0) removeDeep(::dirfd(dir), child.c_str());
            ::closedir(dir);
        } else {
            ::close(fd);
        }
    }
    ::unlinkat(parentFD, name, AT_REMOVEDIR);
}

TEST_F(VerdictTree, ALongPathIsStillLookedAtStepByStep) {
    // Deeper than one system call can take a path: the link beyond PATH_MAX must still be seen.
    std::string path = home_;
    int fd = ::open(home_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::string name(200, 'd');
    while (path.size() < PATH_MAX + 200) {
        ASSERT_EQ(::mkdirat(fd, name.c_str(), 0755), 0);
        int next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(fd);
        fd = next;
        path += "/" + name;
    }
    ASSERT_EQ(::symlinkat(at("plain").c_str(), fd, "link"), 0);
    ASSERT_EQ(::mkdirat(fd, "real", 0755), 0);
    ::close(fd);
    EXPECT_EQ(onDiskDeleteVerdict(path + "/link/notes.txt", false), V::refuse(kViaShortcutRefusal));
    EXPECT_EQ(onDiskDeleteVerdict(path + "/link", false), V::refuse(kViaShortcutRefusal));
    EXPECT_EQ(onDiskDeleteVerdict(path + "/real", false), V::trash());
    removeDeep(AT_FDCWD, (home_ + "/" + name).c_str());
}

TEST(OnDiskDeleteVerdict, MountPointIsProtected) {
    const auto point = testing::twoLevelMountPoint();
    if (!point) GTEST_SKIP() << "no mount point two levels deep on this machine";
    EXPECT_EQ(onDiskDeleteVerdict(*point, false), V::refuse(kProtectedRefusal)) << *point;
}

TEST_F(VerdictTree, LeftoversAndTrashEntries) {
    auto leftovers = leftoverCommitVerdict({at("plain"), "app:x", at("work/app")});
    EXPECT_EQ(leftovers, (std::vector<PathVerdict>{{at("plain"), V::trash()},
                                                   {"app:x", V::refuse(kNotOnDiskRefusal)},
                                                   {at("work/app"), V::refuse(kProjectItselfRefusal)}}));
    EXPECT_TRUE(leftoverCommitVerdict({}).empty());

    for (const std::string& bad : std::vector<std::string>{"", ".", "..", "a/b", std::string("a\0b", 3)})
        EXPECT_EQ(autoEmptyTrashVerdict(at("plain"), bad), std::nullopt) << bad;
    EXPECT_EQ(autoEmptyTrashVerdict(at("plain"), "notes.txt"),
              (PathVerdict{at("plain/notes.txt"), V::removePermanently()}));
    EXPECT_EQ(autoEmptyTrashVerdict(at("plain") + "/", "notes.txt"),
              (PathVerdict{at("plain/notes.txt"), V::removePermanently()}));
    EXPECT_EQ(autoEmptyTrashVerdict(home_, "work"), (PathVerdict{at("work"), V::refuse(holdsProjectRefusal("app"))}));
}

TEST(RestoreVerdict, CountStrictlySizeLoosely) {
    struct Case {
        std::int64_t stagedFiles, sourceFiles, stagedBytes, sourceBytes;
        RestoreVerdict expected;
    };
    const std::vector<Case> cases = {
        {0, 0, 0, 0, RestoreVerdict::abort("the copy produced no files")},
        {-1, 5, 10, 10, RestoreVerdict::abort("the copy produced no files")},
        {4, 5, 100, 100, RestoreVerdict::abort("the copy came out at 4 files against 5 on the drive")},
        {1200, 1201, 0, 0, RestoreVerdict::abort("the copy came out at 1200 files against 1201 on the drive")},
        {5, 5, 49, 100, RestoreVerdict::abort("the copy is 49 bytes against 100 bytes on the drive")},
        {5, 5, 50, 100, RestoreVerdict::proceed()}, {5, 5, 0, 0, RestoreVerdict::proceed()},
        {5, 5, 0, -1, RestoreVerdict::proceed()},
        {5, 5, 49, 99, RestoreVerdict::proceed()},  // half by integer division
        {5, 5, 1'000'000, 3'000'000, RestoreVerdict::abort("the copy is 1 MB against 3 MB on the drive")},
    };
    for (const auto& c : cases)
        EXPECT_EQ(restoreVerdict(c.stagedFiles, c.sourceFiles, c.stagedBytes, c.sourceBytes), c.expected)
            << c.stagedFiles << "/" << c.sourceFiles << " " << c.stagedBytes << "/" << c.sourceBytes;
}

class ProjectLook : public testing::HomeOverride {};

TEST_F(ProjectLook, BreadthFirstWithinDepthAndBudget) {
    file("two/a/b/Gemfile");
    file("two/a2/notes.txt");
    file("three/a/b/c/Gemfile");
    file("node_modules/package.json");
    file("proj/build/x/package.json");
    file("hidden/.cache/p/package.json");
    file("linked-target/go.mod");
    fs::create_directories(home_ + "/viaLink");
    fs::create_directory_symlink(home_ + "/linked-target", home_ + "/viaLink/l");
    file("Documents/p/package.json");
    file("Documents/package.json.txt");
    file("Desktop/Makefile");
    file("both/package.json");
    file("both/inner/Cargo.toml");
    file("shallowfirst/z/y/Cargo.toml");
    file("shallowfirst/a/Gemfile");

    const std::string h = home_;
    EXPECT_EQ(sourceProjectWithin(h + "/two", 2, 400), h + "/two/a/b");
    EXPECT_EQ(sourceProjectWithin(h + "/three", 2, 400), std::nullopt);
    EXPECT_EQ(sourceProjectWithin(h + "/three", 3, 400), h + "/three/a/b/c");
    EXPECT_EQ(sourceProjectWithin(h + "/node_modules", 2, 400), std::nullopt);
    EXPECT_EQ(sourceProjectWithin(h + "/proj", 3, 400), std::nullopt);
    EXPECT_EQ(sourceProjectWithin(h + "/hidden", 3, 400), std::nullopt);
    EXPECT_EQ(sourceProjectWithin(h + "/viaLink", 3, 400), std::nullopt);
    EXPECT_EQ(sourceProjectWithin(h + "/Documents", 2, 400), std::nullopt);  // its own top level only
    EXPECT_EQ(sourceProjectWithin(h + "/Desktop", 2, 400), h + "/Desktop");
    EXPECT_EQ(sourceProjectWithin(h + "/both", 2, 400), h + "/both");
    EXPECT_EQ(sourceProjectWithin(h + "/shallowfirst", 2, 400), h + "/shallowfirst/a");
    EXPECT_EQ(sourceProjectWithin(h + "/absent", 2, 400), std::nullopt);
    EXPECT_EQ(sourceProjectWithin(h + "/both/package.json", 2, 400), std::nullopt);  // a file lists as empty
    // The containers are those of the home the facts give, which need not be this machine's.
    Facts elsewhere = Facts::real();
    elsewhere.home = [](std::string_view c) { return appendingPathComponent("/Users/alex", c); };
    EXPECT_EQ(sourceProjectWithin(h + "/Documents", 2, 400, elsewhere), h + "/Documents/p");
}

TEST_F(ProjectLook, TheBudgetIsCountedInNames) {
    for (int i = 0; i < 500; ++i) file("crowded/f" + std::to_string(i) + ".txt");
    file("crowded/sub/Cargo.toml");
    EXPECT_EQ(sourceProjectWithin(home_ + "/crowded", 2, 400), std::nullopt);  // 501 names read, budget gone
    EXPECT_EQ(sourceProjectWithin(home_ + "/crowded", 2, 600), home_ + "/crowded/sub");
    file("crowded/Makefile");  // a marker at the top is seen even past the budget
    EXPECT_EQ(sourceProjectWithin(home_ + "/crowded", 2, 400), home_ + "/crowded");
    EXPECT_EQ(sourceProjectWithin(home_ + "/crowded", 2, 0), std::nullopt);
}

}  // namespace
}  // namespace orvane
