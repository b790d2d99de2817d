// Deleting an app from a Trash: every refusal with its sentence, and the volume boundary.
#include "core/apps/trash_app_delete.hpp"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;

class TrashApps : public ::testing::Test {
protected:
    void SetUp() override { temp_.write(".Trash/Some.app/Contents/MacOS/Some", "binary"); }
    void TearDown() override {
        ::umount2((trash_ + "/Mounted.app/volume").c_str(), MNT_DETACH);
    }
    std::uint32_t me() const { return static_cast<std::uint32_t>(getuid()); }
    orvane::testing::TempDir temp_;
    std::string root_ = temp_.path(), trash_ = root_ + "/.Trash";
};

TEST_F(TrashApps, DeletesABundleAndSaysWhyNotOtherwise) {
    EXPECT_EQ(deleteTrashedApp("Some.app", trash_, me()), (TrashAppDeleteOutcome{"Some.app", true, false, std::nullopt}));
    EXPECT_FALSE(fs::exists(trash_ + "/Some.app"));

    std::ofstream(trash_ + "/Plain.app") << "x";
    fs::create_directory_symlink(root_, trash_ + "/Link.app");
    struct Case {
        std::string name;
        std::string reason;
    } cases[] = {
        {"notes.txt", "not an app in the Trash"}, {"../x.app", "not an app in the Trash"},
        {"Gone.app", "it's no longer in the Trash"}, {"Plain.app", "not an app bundle"},
        {"Link.app", "not an app bundle"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(deleteTrashedApp(c.name, trash_, me()), (TrashAppDeleteOutcome{c.name, false, false, c.reason})) << c.name;
    EXPECT_TRUE(fs::exists(root_));  // the link's target was never touched

    EXPECT_EQ(deleteTrashedApp("Plain.app", root_ + "/missing", me()).reason, "the Trash couldn't be opened");
    EXPECT_EQ(deleteTrashedApp("Plain.app", trash_, me() + 1).reason, "the Trash isn't a normal folder");
    fs::create_directory_symlink(trash_, root_ + "/trash-link");
    EXPECT_EQ(deleteTrashedApp("Plain.app", root_ + "/trash-link", me()).reason, "the Trash couldn't be opened");

    EXPECT_EQ(toJSON(TrashAppDeleteOutcome{"A.app", true, false, std::nullopt}).dump(),
              R"({"name":"A.app","deleted":true,"needsAdmin":false})");
    EXPECT_EQ(toJSON(TrashAppDeleteOutcome{"A.app", false, true, "no"}).dump(),
              R"({"name":"A.app","deleted":false,"needsAdmin":true,"reason":"no"})");
}

// What the system answers when it refuses the removal, and what the user is told then. The bundle
// is left where it was.
TEST_F(TrashApps, ARefusedRemovalSaysWhoMightSucceed) {
    static int failure = 0;
    const auto real = apps::internal::removeBundle;
    apps::internal::removeBundle = [](int, const std::string&, dev_t) { return failure; };
    const struct {
        int error;
        TrashAppDeleteOutcome outcome;
    } cases[] = {
        {EACCES, {"Some.app", false, true, std::string(std::strerror(EACCES))}},
        {EPERM,
         {"Some.app", false, true,
          ::getuid() == 0 ? std::string(std::strerror(EPERM))
                          : "macOS refused (it may need Full Disk Access, or the app belongs to the system)"}},
        {EBUSY, {"Some.app", false, false, std::string(std::strerror(EBUSY))}},
    };
    for (const auto& c : cases) {
        failure = c.error;
        EXPECT_EQ(deleteTrashedApp("Some.app", trash_, me()), c.outcome) << c.error;
    }
    apps::internal::removeBundle = real;
    EXPECT_TRUE(fs::exists(trash_ + "/Some.app/Contents/MacOS/Some"));
}

TEST_F(TrashApps, AMountedVolumeInsideIsNeverEntered) {
    fs::create_directories(trash_ + "/Mounted.app/volume");
    std::ofstream(trash_ + "/Mounted.app/beside") << "x";
    if (::mount("orvane-test", (trash_ + "/Mounted.app/volume").c_str(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "cannot mount a tmpfs here (needs root and mount rights)";
    std::ofstream(trash_ + "/Mounted.app/volume/keep") << "x";
    auto outcome = deleteTrashedApp("Mounted.app", trash_, me());
    EXPECT_EQ(outcome, (TrashAppDeleteOutcome{"Mounted.app", false, false, std::string(std::strerror(EXDEV))}));
    EXPECT_TRUE(fs::exists(trash_ + "/Mounted.app/volume/keep"));
    EXPECT_FALSE(fs::exists(trash_ + "/Mounted.app/beside"));
}

}  // namespace
}  // namespace orvane
