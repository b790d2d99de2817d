// The primitives on real trees, including trees that change under them while they work.
#include "core/privileged/no_follow.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;

class Tree : public ::testing::Test {
protected:
    void TearDown() override { ::umount2((root_ + "/withmount/mnt").c_str(), MNT_DETACH); }
    std::string at(const std::string& relative) const { return root_ + "/" + relative; }
    void file(const std::string& relative, const std::string& text = "x") { temp_.write(relative, text); }
    int openRoot() const { return ::open(root_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }
    static std::size_t openDescriptors() {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator{}));
    }
    orvane::testing::TempDir temp_;
    std::string root_ = temp_.path();
};

TEST_F(Tree, ChainsOpenOnlyRealFolders) {
    fs::create_directories(at("a/b"));
    fs::create_directory_symlink(at("a"), at("link"));
    int fd = openDirectoryChainNoFollow(at("a/b"));
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(fdIsDirectory(fd, at("a/b")));
    EXPECT_TRUE(fdIsDirectory(fd, at("a//b/")));
    EXPECT_FALSE(fdIsDirectory(fd, at("a")));
    ::close(fd);

    file("a/plain");
    // A chain never climbs ("..").
    for (const std::string& refused : {at("link/b"), at("a/b/.."), std::string("relative"), std::string("/tm\0p", 5), at("a/plain")})
        EXPECT_EQ(openDirectoryChainNoFollow(refused), -1) << refused;

    int top = openDirectoryChainNoFollow("/");
    ASSERT_GE(top, 0);
    EXPECT_TRUE(fdIsDirectory(top, "/"));
    ::close(top);
    // The comparison form of /tmp is walked in its real place.
    int tmp = openDirectoryChainNoFollow("/private" + root_);
    EXPECT_GE(tmp, 0);
    if (tmp >= 0) ::close(tmp);
}

TEST_F(Tree, RemovalTakesLinksNotTargets) {
    file("victim/keep");
    file("doomed/inner/x");
    fs::create_directory_symlink(at("victim"), at("doomed/link-to-victim"));
    fs::create_symlink(at("victim/keep"), at("file-link"));
    fs::create_directory_symlink(at("victim"), at("dir-link"));

    for (const char* gone : {"doomed", "file-link", "dir-link"}) EXPECT_TRUE(removeNoFollow(at(gone))) << gone;
    EXPECT_FALSE(fs::exists(at("doomed")));
    EXPECT_TRUE(fs::exists(at("victim/keep")));

    // Through a link on the way, and every other refusal: nothing removed.
    fs::create_directory_symlink(at("victim"), at("victim-link"));
    for (const std::string& refused : {at("victim-link/keep"), at("victim/.."), at("victim/."), at("missing"),
                                       std::string("/"), at("victim/keep") + std::string("\0x", 2)})
        EXPECT_FALSE(removeNoFollow(refused)) << refused;
    EXPECT_TRUE(fs::exists(at("victim/keep")));
}

TEST_F(Tree, DepthLimitStopsPartWayDown) {
    std::string path = at("deep");
    for (int level = 0; level < 129; ++level) {
        path += "/d";
        fs::create_directories(path);
        std::ofstream(path + "/f") << "x";
    }
    const std::size_t before = openDescriptors();
    EXPECT_FALSE(removeNoFollow(at("deep")));
    EXPECT_EQ(openDescriptors(), before);  // every level's descriptor closed
    EXPECT_TRUE(fs::exists(at("deep/d")));  // the top levels stay

    // 128 levels below the named folder are the most that can go.
    std::string ok = at("ok");
    for (int level = 0; level < 127; ++level) ok += "/d";
    fs::create_directories(ok);
    std::ofstream(ok + "/f") << "x";
    EXPECT_TRUE(removeNoFollow(at("ok")));
}

TEST_F(Tree, EntryArrivingDuringTheWalkIsAFailure) {
    file("busy/a");
    static std::string late;
    late = at("busy/late");
    privileged::internal::beforeRemovingEmptiedFolder = [](int, const char*) { std::ofstream(late) << "new"; };
    EXPECT_FALSE(removeNoFollow(at("busy")));
    privileged::internal::beforeRemovingEmptiedFolder = nullptr;
    EXPECT_TRUE(fs::exists(late));
    EXPECT_FALSE(fs::exists(at("busy/a")));  // what went before stays gone
}

TEST_F(Tree, SymlinksAreMadeNeverReplacing) {
    fs::create_directories(at("d"));
    EXPECT_TRUE(symlinkNoFollow(at("d/new"), "/some/target"));
    EXPECT_EQ(fs::read_symlink(at("d/new")), "/some/target");
    file("d/real");
    fs::create_directory_symlink(at("d"), at("via"));
    for (const char* refused : {"d/new" /* a dangling link is still something */, "d/real", "via/x"})
        EXPECT_FALSE(symlinkNoFollow(at(refused), "/other")) << refused;
    EXPECT_FALSE(fs::exists(at("d/x")));
}

TEST_F(Tree, MovingIntoPlace) {
    // A folder over the shortcut that stood for it.
    file("staging/folder/content");
    fs::create_directories(at("home"));
    fs::create_directory_symlink("/elsewhere", at("home/shortcut"));
    EXPECT_TRUE(moveIntoPlaceNoFollow(at("staging/folder"), at("home/shortcut"), 4242, 20));
    EXPECT_TRUE(fs::is_directory(fs::symlink_status(at("home/shortcut"))));
    EXPECT_TRUE(fs::exists(at("home/shortcut/content")));
    for (const auto& entry : fs::directory_iterator(at("home")))
        EXPECT_FALSE(entry.path().filename().string().starts_with(".ov-reinstate-"));
    struct stat st{};
    ASSERT_EQ(::lstat(at("home/shortcut/content").c_str(), &st), 0);
    if (geteuid() == 0) {
        EXPECT_EQ(st.st_uid, 4242u);
        EXPECT_EQ(st.st_gid, 20u);
    }

    // A file over a link, in one step.
    file("staging/file", "data");
    fs::create_symlink("/elsewhere", at("home/filelink"));
    EXPECT_TRUE(moveIntoPlaceNoFollow(at("staging/file"), at("home/filelink"), getuid(), getgid()));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(at("home/filelink"))));

    // Never over a real item: both stay.
    file("staging/again");
    file("home/occupied", "mine");
    EXPECT_FALSE(moveIntoPlaceNoFollow(at("staging/again"), at("home/occupied"), getuid(), getgid()));
    EXPECT_TRUE(fs::exists(at("staging/again")));
    std::ifstream kept(at("home/occupied"));
    EXPECT_EQ(std::string((std::istreambuf_iterator<char>(kept)), {}), "mine");

    // Not through a link on either side, nor from what is missing.
    fs::create_directory_symlink(at("home"), at("homelink"));
    fs::create_directory_symlink(at("staging"), at("staginglink"));
    for (const auto& [from, to] : {std::pair{"staging/again", "homelink/new"}, {"staging/missing", "home/new"},
                                   {"staginglink/again", "home/new"}, {"staging/again/..", "home/new"}})
        EXPECT_FALSE(moveIntoPlaceNoFollow(at(from), at(to), getuid(), getgid())) << from << " to " << to;
    EXPECT_TRUE(fs::exists(at("staging/again")));
    EXPECT_FALSE(fs::exists(fs::symlink_status(at("home/new"))));
}

TEST_F(Tree, MovingIntoAPersistenceFolderIsRefusedWhateverTheSpelling) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to make a folder under /etc; CI runs as root";
    // /etc/newsyslog.d is on the persistence list and unused on Linux, so the test may make it.
    const bool made = fs::create_directory("/etc/newsyslog.d");
    file("staging/plist");
    EXPECT_FALSE(moveIntoPlaceNoFollow(at("staging/plist"), "/etc/newsyslog.d/orvane-test", 0, 0));
    EXPECT_FALSE(moveIntoPlaceNoFollow(at("staging/plist"), "/private/etc/newsyslog.d/orvane-test", 0, 0));
    EXPECT_FALSE(fs::exists("/etc/newsyslog.d/orvane-test"));
    EXPECT_TRUE(fs::exists(at("staging/plist")));
    if (made) fs::remove("/etc/newsyslog.d");
}

TEST_F(Tree, LaunchItemRenames) {
    temp_.mkdir("Daemons");
    for (const char* f : {"Agents/a.plist", "Agents/taken.plist", "Agents/taken.plist.disabled-by-orvane"}) file(f);
    fs::create_symlink(at("Agents/a.plist"), at("Agents/link.plist"));
    fs::create_directories(at("Agents/dir.plist"));
    const std::string agents = at("Agents"), daemons = at("Daemons");
    const std::array<std::string_view, 2> folders = {agents, daemons};

    EXPECT_TRUE(renameLaunchItemNoFollow(at("Agents/a.plist"), at("Agents/a.plist.disabled-by-orvane"), folders));
    EXPECT_TRUE(fs::exists(at("Agents/a.plist.disabled-by-orvane")));
    const std::pair<const char*, const char*> refused[] = {
        {"Agents/taken.plist", "Agents/taken.plist.disabled-by-orvane"}, {"Agents/a.plist.disabled-by-orvane", "Daemons/a.plist"},
        {"Agents/link.plist", "Agents/link2.plist"}, {"Agents/dir.plist", "Agents/dir2.plist"},
        {"Other/x.plist", "Other/y.plist"}, {"Agents/a.plist.disabled-by-orvane", "Agents/.."}};
    for (const auto& [from, to] : refused) EXPECT_FALSE(renameLaunchItemNoFollow(at(from), at(to), folders)) << from;
    EXPECT_TRUE(fs::exists(at("Agents/taken.plist")));
}

TEST_F(Tree, OwnershipChangesLeaveSharedFilesAlone) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to give files away; CI runs as root";
    file("given/one");
    file("given/sub/two");
    file("outside");
    fs::create_hard_link(at("outside"), at("given/hardlink"));
    fs::create_symlink(at("outside"), at("given/symlink"));
    int fd = openRoot();
    EXPECT_TRUE(chownEntryNoFollow(fd, "given", 4242, 20));
    struct stat st{};
    for (const char* changed : {"given", "given/one", "given/sub", "given/sub/two", "given/symlink"}) {
        ASSERT_EQ(::lstat(at(changed).c_str(), &st), 0);
        EXPECT_EQ(st.st_uid, 4242u) << changed;
    }
    ASSERT_EQ(::lstat(at("outside").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, 0u);  // reached by a hard link: kept
    EXPECT_TRUE(chownEntryNoFollow(fd, "outside", 4242, 20));  // a shared file alone: true, untouched
    ASSERT_EQ(::lstat(at("outside").c_str(), &st), 0);
    EXPECT_EQ(st.st_uid, 0u);
    EXPECT_FALSE(chownEntryNoFollow(fd, "missing", 4242, 20));
    ::close(fd);
}

TEST_F(Tree, TreeRemovalStaysOnOneVolume) {
    file("tree/a");
    file("tree/sub/b");
    int fd = openRoot();
    struct stat st{};
    ASSERT_EQ(::fstat(fd, &st), 0);
    EXPECT_EQ(removeTreeNoFollow(fd, "tree", st.st_dev), 0);
    EXPECT_FALSE(fs::exists(at("tree")));
    EXPECT_EQ(removeTreeNoFollow(fd, "tree", st.st_dev), ENOENT);
    file("single");
    EXPECT_EQ(removeTreeNoFollow(fd, "single", st.st_dev), 0);

    fs::create_directories(at("withmount/mnt"));
    file("withmount/sibling");
    file("withmount/mnt/keep");
    if (::mount("orvane-test", at("withmount/mnt").c_str(), "tmpfs", 0, "size=1m") != 0) {
        ::close(fd);
        GTEST_SKIP() << "cannot mount a tmpfs here (needs root and mount rights)";
    }
    std::ofstream(at("withmount/mnt/on-the-mount")) << "x";
    EXPECT_EQ(removeTreeNoFollow(fd, "withmount", st.st_dev), EXDEV);
    EXPECT_FALSE(fs::exists(at("withmount/sibling")));  // all siblings tried
    EXPECT_TRUE(fs::exists(at("withmount/mnt/on-the-mount")));
    EXPECT_TRUE(fs::exists(at("withmount")));
    ::close(fd);
}

}  // namespace
}  // namespace orvane
