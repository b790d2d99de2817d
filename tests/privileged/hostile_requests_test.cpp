// Requests a hostile local user would send, carried out as the daemon would (validation, then the
// operation) against root-owned decoys, and the plans the dry run must refuse on a real system.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "core/privileged/operations.hpp"
#include "core/privileged/validation.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;
using R = PrivilegedRefusal;
using testing::TempDir;

constexpr std::uint32_t kNobody = 65534;
constexpr std::uint32_t kAdministrator = 4243;  // made one for the test through the facts

void write(const std::string& path, const std::string& text, mode_t mode, std::uint32_t owner) {
    std::ofstream(path) << text;
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
    ASSERT_EQ(::chown(path.c_str(), owner, owner), 0);
}

void folder(const std::string& path, mode_t mode, std::uint32_t owner) {
    fs::create_directory(path);
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
    ASSERT_EQ(::chown(path.c_str(), owner, owner), 0);
}

// Every entry under `root` with what would show a change: identity, owner, mode and bytes.
std::map<std::string, std::string> fingerprint(const std::string& root) {
    std::map<std::string, std::string> out;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        struct stat st{};
        ::lstat(entry.path().c_str(), &st);
        std::string bytes;
        if (S_ISREG(st.st_mode)) {
            std::ifstream in(entry.path());
            bytes.assign(std::istreambuf_iterator<char>(in), {});
        }
        out[entry.path()] = std::to_string(st.st_ino) + ":" + std::to_string(st.st_uid) + ":" +
                            std::to_string(st.st_mode) + ":" + bytes;
    }
    return out;
}

TEST(HostileRequests, NoOrdinaryUserReachesWhatRootOwns) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to own the decoys and act as the daemon; CI runs as root";
    if (kHostRuleSet != RuleSet::withLinuxAdditions) GTEST_SKIP() << "the Linux additions apply on Linux only";

    TempDir outsideDir("/var");  // root-owned, outside every clean-up root
    TempDir cleanupDir("/tmp");  // root-owned, under a clean-up root
    TempDir homeDir("/tmp");
    const std::string outside = outsideDir.path(), cleanup = cleanupDir.path(), home = homeDir.path();
    folder(outside, 0755, 0);
    folder(cleanup, 0755, 0);
    folder(home, 0755, kNobody);
    write(outside + "/secret", "secret", 0600, 0);
    folder(outside + "/locked", 0700, 0);
    write(outside + "/locked/f", "f", 0600, 0);
    folder(outside + "/bin", 0755, 0);
    write(cleanup + "/rootfile", "log", 0644, 0);
    folder(cleanup + "/rootdir", 0755, 0);
    write(cleanup + "/rootdir/f", "cache", 0644, 0);
    write(home + "/mine", "mine", 0644, kNobody);
    write(home + "/staged", "staged", 0644, kNobody);

    Facts facts = Facts::real();
    facts.isAdministrator = [](std::uint32_t uid) { return uid == kAdministrator; };
    auto send = [&](const PrivilegedOperation& operation, std::uint32_t uid) -> std::optional<R> {
        auto refusal = validate(operation, home, uid, facts);
        if (!refusal) {
            OperationContext context;
            context.callerUID = uid;
            try {
                runOperation(operation, context);
            } catch (const OVError&) {
            }
        }
        return refusal;
    };

    const auto before = std::pair(fingerprint(outside), fingerprint(cleanup));
    const struct {
        PrivilegedOperation operation;
        R expected;
    } cases[] = {
        {op::RemovePath{outside + "/secret"}, R::pathNotAllowed},
        {op::RemovePath{outside + "/locked"}, R::pathNotAllowed},
        {op::RemovePath{cleanup + "/rootfile"}, R::pathNotAllowed},
        {op::RemovePath{cleanup + "/rootdir"}, R::pathNotAllowed},
        {op::MoveAside{outside + "/secret", home + "/got", kNobody}, R::pathNotAllowed},
        {op::MoveAside{cleanup + "/rootfile", home + "/got", kNobody}, R::pathNotAllowed},
        {op::MoveAside{home + "/mine", outside + "/bin/planted", kNobody}, R::pathNotAllowed},
        {op::MoveAside{home + "/mine", outside + "/locked/planted", kNobody}, R::pathNotAllowed},
        {op::SwapToSymlink{outside + "/secret", home + "/mine"}, R::pathNotAllowed},
        {op::SwapToSymlink{cleanup + "/rootfile", home + "/mine"}, R::pathNotAllowed},
        {op::RestoreFromStaging{home + "/staged", outside + "/locked/new"}, R::pathNotAllowed},
        {op::RestoreFromStaging{home + "/staged", outside + "/new"}, R::pathNotAllowed},
        {op::RestoreFromStaging{home + "/staged", cleanup + "/rootdir/new"}, R::pathNotAllowed},
        {op::RestoreFromStaging{outside + "/secret", home + "/new"}, R::pathNotAllowed},
        {op::PrivilegedScan{"folder", outside, "", home + "/dump.json"}, R::pathNotAllowed},
    };
    for (const auto& c : cases) EXPECT_EQ(send(c.operation, kNobody), c.expected) << c.operation.description();
    EXPECT_EQ(std::pair(fingerprint(outside), fingerprint(cleanup)), before) << "a decoy was touched";
    EXPECT_FALSE(fs::exists(home + "/got"));

    // The caller's own items still go.
    EXPECT_EQ(send(op::MoveAside{home + "/mine", home + "/aside", kNobody}, kNobody), std::nullopt);
    EXPECT_TRUE(fs::exists(home + "/aside"));

    // An administrator may clean what root keeps under a clean-up root, and nothing elsewhere.
    EXPECT_EQ(send(op::RemovePath{outside + "/secret"}, kAdministrator), R::pathNotAllowed);
    EXPECT_EQ(send(op::RemovePath{cleanup + "/rootfile"}, kAdministrator), std::nullopt);
    EXPECT_FALSE(fs::exists(cleanup + "/rootfile"));
    EXPECT_TRUE(fs::exists(outside + "/secret"));
}

// The dry run of a plan (no caller) on the real system's own places.
TEST(HostileRequests, PlansOnSystemPlacesAreRefused) {
    if (kHostRuleSet != RuleSet::withLinuxAdditions) GTEST_SKIP() << "the Linux additions apply on Linux only";
    TempDir dir;
    const std::string staged = dir / "staged";
    std::ofstream(staged) << "x";
    const std::string home = dir.path();
    const struct {
        PrivilegedOperation operation;
        R expected;
    } cases[] = {
        {op::RemovePath{"/etc/shadow"}, R::pathNotAllowed},
        {op::MoveAside{"/etc/shadow", dir / "shadow", 0}, R::pathNotAllowed},
        {op::RestoreFromStaging{staged, "/etc/cron.d/x"}, R::pathNotAllowed},
        {op::RestoreFromStaging{staged, "/etc/ld.so.preload"}, R::pathNotAllowed},
        {op::RestoreFromStaging{staged, "/etc/systemd/system/x.service"}, R::pathNotAllowed},
        {op::RestoreFromStaging{staged, "/root/x"}, R::pathNotAllowed},
        {op::RemovePath{"/root/x"}, R::pathNotAllowed}, {op::RemovePath{"/boot/x"}, R::pathNotAllowed},
        {op::RemovePath{"/dev/null"}, R::pathNotAllowed}, {op::RemovePath{"/sys/kernel"}, R::pathNotAllowed},
        {op::SwapToSymlink{"/usr/bin/env", staged}, R::pathNotAllowed},
        {op::MoveAside{staged, "/usr/local/bin/ls", 0}, R::pathNotAllowed},
    };
    for (const auto& c : cases) {
        auto refused = validatePrivilegedBatch({c.operation}, home);
        ASSERT_TRUE(refused) << c.operation.description();
        EXPECT_EQ(refused->refusal, c.expected) << c.operation.description();
    }
}

}  // namespace
}  // namespace orvane
