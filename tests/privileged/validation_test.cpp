#include "core/privileged/validation.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/privileged/fake_disk.hpp"
#include "tests/support/mount_point.hpp"

#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using R = PrivilegedRefusal;
using testing::FakeDisk;
namespace fs = std::filesystem;

const std::string kHome = "/Users/a";
constexpr std::uint32_t kUID = 501;

FakeDisk macDisk() {
    FakeDisk d;
    d.folder("/Users").folder("/Users/a", kUID).folder("/Users/b", 502).folder("/Users/Shared");
    d.file("/Users/a/file", kUID).file("/Users/a/theirs", 502).file("/Users/a/occupied", kUID);
    d.folder("/Users/a/real", kUID).file("/Users/a/real/x", kUID).link("/Users/a/linkdir", "/Users/a/real", kUID);
    d.folder("/Users/a/.Trash", kUID).folder("/Users/a/.Trash/Some.app", kUID);
    d.file("/Users/a/.Trash/Plain.app", kUID).link("/Users/a/.Trash/Link.app", "/Users/a/real", kUID);
    d.folder("/Users/a/.Trash/Copy.app 10-22-33", kUID);
    d.folder("/Users/a/Library", kUID).folder("/Users/a/Library/LaunchAgents", kUID);
    d.file("/Users/a/Library/LaunchAgents/mine.plist", kUID);
    d.folder("/Library").folder("/Library/LaunchDaemons").folder("/Library/LaunchAgents");
    d.file("/Library/LaunchDaemons/x.plist").file("/Library/LaunchDaemons/com.vendor.d.plist");
    d.file("/Library/LaunchDaemons/com.vendor.off.plist.disabled-by-orvane");
    d.file("/Library/LaunchDaemons/com.vendor.both.plist");
    d.file("/Library/LaunchDaemons/com.vendor.both.plist.disabled-by-orvane");
    d.link("/Library/LaunchAgents/linked.plist", "/Library/LaunchDaemons/x.plist");
    d.file("/Library/LaunchAgents/com.apple.x.plist");
    d.folder("/Volumes").folder("/Volumes/Drive").mount("/Volumes/Drive").file("/Volumes/Drive/data", kUID);
    d.folder("/staging").file("/staging/copy").file("/staging/theirs", 502);
    d.link("/Users/a/restored", "/Volumes/Drive/data", kUID);
    d.folder("/private").folder("/private/tmp").link("/tmp", "/private/tmp").folder("/private/tmp/scan");
    d.file("/private/tmp/staged");
    d.folder("/data").folder("/data/root-owned").file("/data/root-owned/item", kUID);
    return d;
}

struct OpCase {
    PrivilegedOperation operation;
    std::optional<std::uint32_t> uid;
    std::optional<R> expected;
};

void expectAll(const std::vector<OpCase>& cases, const Facts& disk) {
    for (const auto& c : cases) {
        auto got = validate(c.operation, kHome, c.uid, disk);
        EXPECT_EQ(got, c.expected) << c.operation.description() << " uid "
                                   << (c.uid ? std::to_string(*c.uid) : "absent") << ": got "
                                   << (got ? rawValue(*got) : "nothing");
    }
}

TEST(Validate, EveryOperationOnAMac) {
    const std::string nul("/Library/LaunchDaemons/x.plist\0", 31);
    const std::string off = "/Library/LaunchDaemons/com.vendor.off.plist.disabled-by-orvane";
    expectAll({
        {op::RemovePath{"relative/path"}, kUID, R::notAbsolutePath},
        {op::RemovePath{""}, kUID, R::notAbsolutePath},
        {op::RemovePath{nul}, kUID, R::notAbsolutePath},  // ahead of every other rule
        {op::RemovePath{"/Library/LaunchDaemons/x.plist"}, kUID, R::pathNotAllowed},
        {op::RemovePath{"/Library/LaunchDaemons/x.plist"}, std::nullopt, R::pathNotAllowed},
        {op::RemovePath{"/private/etc/sudoers"}, kUID, R::pathNotAllowed},
        {op::RemovePath{"/Users/a/Library/LaunchAgents/mine.plist"}, kUID, R::pathNotAllowed},
        {op::RemovePath{"/Users/a"}, kUID, R::pathNotAllowed}, {op::RemovePath{"/Users/a/"}, kUID, R::pathNotAllowed},
        {op::RemovePath{"/Users/a/../a"}, kUID, R::pathNotAllowed},
        {op::RemovePath{"/Users"}, kUID, R::pathNotAllowed}, {op::RemovePath{"/Foo"}, kUID, R::pathNotAllowed},
        {op::RemovePath{"/"}, kUID, R::pathNotAllowed}, {op::RemovePath{"/Volumes/Drive"}, kUID, R::pathNotAllowed},
        {op::RemovePath{"/Users/a/linkdir/x"}, kUID, R::pathTraversesSymlink},
        {op::RemovePath{"/Users/a/linkdir"}, kUID, R::pathTraversesSymlink},
        {op::RemovePath{"/tmp/staged"}, kUID, R::pathTraversesSymlink},
        {op::RemovePath{"/Users/a/theirs"}, kUID, R::pathNotAllowed},
        {op::RemovePath{"/Users/a/theirs"}, std::nullopt, std::nullopt},
        {op::RemovePath{"/Users/a/theirs"}, 502u, std::nullopt},
        {op::RemovePath{"/Users/a/file"}, kUID, std::nullopt},
        {op::RemovePath{"/staging/copy"}, kUID, std::nullopt},  // root's item passes
        {op::RemovePath{"/Users/a/absent"}, kUID, std::nullopt},
        {op::SwapToSymlink{"/Users/a/file", "rel"}, kUID, R::notAbsolutePath},
        {op::SwapToSymlink{"/Users/a", "/Volumes/Drive/data"}, kUID, R::pathNotAllowed},
        {op::SwapToSymlink{"/Users/a/linkdir/x", "/Volumes/Drive/data"}, kUID, R::pathTraversesSymlink},
        {op::SwapToSymlink{"/Users/a/file", "/Volumes/Drive/none"}, kUID, R::sourceMissing},
        {op::SwapToSymlink{"/Users/a/theirs", "/Volumes/Drive/data"}, kUID, R::pathNotAllowed},
        {op::SwapToSymlink{"/Users/a/file", "/Volumes/Drive/data"}, kUID, std::nullopt},
        // Not asked about persistence: the swap only puts a link where a deletable item stood.
        {op::SwapToSymlink{"/Library/LaunchDaemons/x.plist", "/Volumes/Drive/data"}, kUID, std::nullopt},
        {op::RestoreFromStaging{"/staging/copy", "/Users/a/restored"}, kUID, std::nullopt},
        {op::RestoreFromStaging{"/staging/copy", "/Users/a/occupied"}, kUID, R::destinationOccupied},
        {op::RestoreFromStaging{"/staging/copy", "/Users/a/new"}, kUID, std::nullopt},
        {op::RestoreFromStaging{"/staging/none", "/Users/a/new"}, kUID, R::sourceMissing},
        {op::RestoreFromStaging{"/staging/theirs", "/Users/a/new"}, kUID, R::pathNotAllowed},
        {op::RestoreFromStaging{"/staging/copy", "/Library/LaunchDaemons/new.plist"}, kUID, R::pathNotAllowed},
        {op::RestoreFromStaging{"/staging/copy", "/Users/b/new"}, kUID, R::pathNotAllowed},
        {op::RestoreFromStaging{"/staging/copy", "/Users/b/new"}, std::nullopt, std::nullopt},
        {op::RestoreFromStaging{"/staging/copy", "/Users/a/linkdir/new"}, kUID, R::pathTraversesSymlink},
        {op::RestoreFromStaging{"/staging/copy", "/Volumes/Drive"}, kUID, R::destinationOccupied},
        {op::RestoreFromStaging{"/staging/copy", "/data/new"}, kUID, std::nullopt},  // root's folder receives
        {op::RestoreFromStaging{"/staging/copy", "/newtop"}, kUID, R::pathNotAllowed},
        // The comparison form is walked: "/tmp" is not held against a staging path.
        {op::RestoreFromStaging{"/tmp/staged", "/Users/a/new"}, kUID, std::nullopt},
        {op::RestoreFromStaging{"/Users/a/linkdir/x", "/Users/a/new"}, kUID, R::pathTraversesSymlink},
        {op::DeleteSnapshots{}, kUID, R::malformedSnapshotDate},
        {op::DeleteSnapshots{{"2026-01-31-120000"}}, kUID, std::nullopt},
        {op::DeleteSnapshots{{"9999-99-99-999999"}}, kUID, std::nullopt},
        {op::DeleteSnapshots{{"2026-01-31-120000", "2026-01-31-12000"}}, kUID, R::malformedSnapshotDate},
        {op::DeleteSnapshots{{"2026-01-31-120000\n"}}, kUID, R::malformedSnapshotDate},
        {op::DeleteSnapshots{{"2026-01-31T120000"}}, kUID, R::malformedSnapshotDate},
        {op::DeleteSnapshots{{"\u0662026-01-31-120000"}}, kUID, R::malformedSnapshotDate},
        {op::DeleteSnapshots{{"-d /"}}, kUID, R::malformedSnapshotDate}, {op::ThinSnapshots{}, kUID, std::nullopt},
        {op::PurgeInactiveMemory{}, kUID, std::nullopt}, {op::ResetBackgroundItems{}, std::nullopt, std::nullopt},
        {op::MoveAside{"/Users/a/file", "rel", kUID}, kUID, R::notAbsolutePath},
        {op::MoveAside{"/Users/a/file", "/Users/a/aside", kUID}, kUID, std::nullopt},
        {op::MoveAside{"/Users/a/file", "/Users/a/aside", 502}, kUID, R::pathNotAllowed},
        {op::MoveAside{"/Users/a/file", "/Users/a/aside", 502}, std::nullopt, std::nullopt},
        {op::MoveAside{"/Users", "/Users/a/aside", kUID}, kUID, R::pathNotAllowed},
        {op::MoveAside{"/Users/a/linkdir/x", "/Users/a/aside", kUID}, kUID, R::pathTraversesSymlink},
        {op::MoveAside{"/Users/a/none", "/Users/a/aside", kUID}, kUID, R::sourceMissing},
        {op::MoveAside{"/Users/a/file", "/Users/a/occupied", kUID}, kUID, R::destinationOccupied},
        {op::MoveAside{"/Users/a/file", "/Users/a/linkdir/aside", kUID}, kUID, R::pathTraversesSymlink},
        {op::MoveAside{"/Users/a/file", "/Library/LaunchAgents/aside.plist", kUID}, kUID, R::pathNotAllowed},
        {op::MoveAside{"/Users/a/file", "/Users/a/Library/LaunchAgents/x", kUID}, kUID, R::pathNotAllowed},
        {op::MoveAside{"/Users/a/file", "/Users/b/aside", kUID}, kUID, R::pathNotAllowed},
        {op::MoveAside{"/Users/a/file", "/Users/Shared/aside", kUID}, kUID, R::pathNotAllowed},
        {op::MoveAside{"/Users/a/file", "/Users/Shared/aside", kUID}, std::nullopt, std::nullopt},
        {op::MoveAside{"/Users/a/theirs", "/Users/a/aside", kUID}, kUID, R::pathNotAllowed},
        {op::MoveAside{"/Volumes/Drive/data", "/Users/a/aside", kUID}, kUID, std::nullopt},
        {op::PrivilegedScan{"disk", "/Users/a", "L", "/Users/a/dump.json"}, kUID, R::pathNotAllowed},
        {op::PrivilegedScan{"Folder", "/Users/a", "L", "/Users/a/dump.json"}, kUID, R::pathNotAllowed},
        {op::PrivilegedScan{"folder", "Users/a", "L", "/Users/a/dump.json"}, kUID, R::notAbsolutePath},
        {op::PrivilegedScan{"folder", "/Users/a", "L", "dump.json"}, kUID, R::notAbsolutePath},
        {op::PrivilegedScan{"folder", "/Users/a", "", "/Users/a/dump.json"}, kUID, std::nullopt},
        {op::PrivilegedScan{"volume", "/Volumes/Drive", "Drive", "/Users/a/dump.json"}, kUID, std::nullopt},
        {op::PrivilegedScan{"folder", "/Users/a/file", "L", "/Users/a/dump.json"}, kUID, R::sourceMissing},
        {op::PrivilegedScan{"folder", "/Users/a/none", "L", "/Users/a/dump.json"}, kUID, R::sourceMissing},
        {op::PrivilegedScan{"folder", "/Users/a/linkdir", "L", "/Users/a/dump.json"}, kUID, R::sourceMissing},
        {op::PrivilegedScan{"folder", "/tmp/scan", "L", "/Users/a/dump.json"}, kUID, R::pathTraversesSymlink},
        {op::PrivilegedScan{"folder", "/Users/a", "L", "/Library/LaunchDaemons/d.plist"}, kUID, R::pathNotAllowed},
        {op::PrivilegedScan{"folder", "/Users/a", "L", "/Users/b/dump.json"}, kUID, R::pathNotAllowed},
        {op::PrivilegedScan{"folder", "/Users/a", "L", "/Users/a/occupied"}, kUID, R::destinationOccupied},
        {op::PrivilegedScan{"folder", "/Users/a", "L", "/Users/a/.Trash/Link.app"}, kUID, R::destinationOccupied},
        {op::PrivilegedScan{"folder", "/Users/a", "L", "/Users/a/linkdir/d.json"}, kUID, R::pathTraversesSymlink},
        {op::PrivilegedScan{"folder", "/Users/a", "L", "/Users/a/none/d.json"}, kUID, R::sourceMissing},
        {op::PrivilegedScan{"folder", "/Users/a", "L", "/Users/a/file/d.json"}, kUID, R::sourceMissing},
        // A root-owned folder is in the caller's domain.
        {op::PrivilegedScan{"folder", "/Users/a", "L", "/staging/d.json"}, kUID, std::nullopt},
        {op::SetLaunchItemEnabled{"/Library/LaunchDaemons/com.apple.x.plist", false}, kUID, R::pathNotAllowed},
        {op::SetLaunchItemEnabled{"/Library/LaunchDaemons/com.vendor.d.plist", false}, kUID, std::nullopt},
        {op::SetLaunchItemEnabled{"/Library/LaunchDaemons/com.vendor.d.plist", true}, kUID, R::pathNotAllowed},
        {op::SetLaunchItemEnabled{off, true}, kUID, std::nullopt},
        {op::SetLaunchItemEnabled{off, false}, kUID, R::pathNotAllowed},
        {op::SetLaunchItemEnabled{"/Library/LaunchDaemons/com.vendor.both.plist", false}, kUID,
         R::destinationOccupied},
        {op::SetLaunchItemEnabled{"/Library/LaunchDaemons/gone.plist", false}, kUID, R::sourceMissing},
        {op::SetLaunchItemEnabled{"/Library/LaunchAgents/linked.plist", false}, kUID, R::pathTraversesSymlink},
        {op::SetLaunchItemEnabled{"/Library/LaunchDaemons/sub/x.plist", false}, kUID, R::pathNotAllowed},
        {op::SetLaunchItemEnabled{"/Users/a/Library/LaunchAgents/mine.plist", false}, kUID, R::pathNotAllowed},
        {op::SetLaunchItemEnabled{"Library/LaunchDaemons/x.plist", false}, kUID, R::notAbsolutePath},
        {op::TrashLaunchItem{"/Library/LaunchDaemons/com.vendor.d.plist", "/Users/a/.Trash/d.plist", kUID}, kUID,
         std::nullopt},
        {op::TrashLaunchItem{"/Library/LaunchDaemons/com.vendor.d.plist", "/Users/a/.Trash/d.plist", 502}, kUID,
         R::pathNotAllowed},
        {op::TrashLaunchItem{"/Library/LaunchDaemons/com.vendor.d.plist", "/Users/a/.Trash/d.plist", 502},
         std::nullopt, std::nullopt},
        {op::TrashLaunchItem{"/Library/LaunchDaemons/com.vendor.d.plist", "/Users/a/d.plist", kUID}, kUID,
         R::pathNotAllowed},
        {op::TrashLaunchItem{"/Library/LaunchDaemons/com.vendor.d.plist", "/Users/b/.Trash/d.plist", kUID}, kUID,
         R::pathNotAllowed},
        {op::TrashLaunchItem{"/Library/LaunchDaemons/com.vendor.d.plist", "/Users/a/.Trash/Plain.app", kUID}, kUID,
         R::destinationOccupied},
        {op::TrashLaunchItem{"/Library/LaunchAgents/com.apple.x.plist", "/Users/a/.Trash/x.plist", kUID}, kUID,
         R::pathNotAllowed},
        {op::TrashLaunchItem{"/Library/LaunchAgents/linked.plist", "/Users/a/.Trash/x.plist", kUID}, kUID,
         R::pathTraversesSymlink},
        {op::TrashLaunchItem{"/Library/LaunchAgents/none.plist", "/Users/a/.Trash/x.plist", kUID}, kUID,
         R::sourceMissing},
        {op::DeleteTrashedApp{"Some.app"}, kUID, std::nullopt},
        {op::DeleteTrashedApp{"Copy.app 10-22-33"}, kUID, std::nullopt},
        {op::DeleteTrashedApp{"Plain.app"}, kUID, R::pathTraversesSymlink},  // any non-folder
        {op::DeleteTrashedApp{"Link.app"}, kUID, R::pathTraversesSymlink},
        {op::DeleteTrashedApp{"Gone.app"}, kUID, R::sourceMissing},
        {op::DeleteTrashedApp{"../../x.app"}, kUID, R::pathNotAllowed},
        {op::DeleteTrashedApp{"notes.txt"}, kUID, R::pathNotAllowed},
    }, macDisk().facts());
}

TEST(Validate, TrashedAppNames) {
    struct Name {
        std::string name;
        bool ok;
    } names[] = {
        {"", false}, {".app", false}, {"X.app", true}, {"X.APP", true}, {"..app", true}, {"a/b.app", false},
        {std::string("x\0.app", 6), false}, {"..", false}, {std::string(251, 'a') + ".app", true},
        {std::string(252, 'a') + ".app", false}, {std::string(200, 'a') + std::string(60, 'e') + ".app", false},
        {"X.app 1-02-03", true}, {"X.app 12-34-56-789", true}, {"X.app 123-34-56", false}, {"X.app 1-2-3", false},
        {"X.app 12-34-56-", false}, {"X.app 12-34-56 ", false},
        {"X.APP 12-34-56", false},  // the pattern is case-sensitive; the suffix rule is not
        {"X.app 12-34-56\n", true},  // the pattern's "$" allows one final line break
        {"X.app \u0661\u0662-34-56", true},  // "\d" is any decimal digit
        {"Archive.zip", false},
    };
    for (const auto& n : names) EXPECT_EQ(isTrashedAppName(n.name), n.ok) << n.name;
}

// Linux keeps nothing from root, so the same requests meet more rules there: the system's own
// folders, start-up places, homes under /home, and deny by default for whoever is not root.
TEST(Validate, LinuxAdditions) {
    constexpr std::uint32_t user = 1000, other = 1001, admin = 2000;
    FakeDisk d;
    d.laidOutLikeLinux({admin});
    d.folder("/home").folder("/home/u", user).file("/home/u/file", user).file("/home/u/rootfile");
    d.folder("/home/u/.config", user).folder("/home/u/.config/autostart", user);
    d.folder("/home/v", other).folder("/home/admin", admin).file("/home/admin/f", admin);
    d.folder("/home/\u00e9", user).file("/home/\u00e9/f", user).folder("/home/e\u0301", other);
    d.folder("/etc").file("/etc/shadow").folder("/etc/cron.d").folder("/root").file("/root/x");
    d.folder("/var").folder("/var/cache").folder("/var/cache/app").file("/var/cache/app/blob");
    d.file("/var/cache/mine", user).folder("/var/lib").folder("/var/lib/x");
    d.folder("/opt").folder("/opt/tool").folder("/opt/tool/bin");
    d.folder("/tmp").file("/tmp/mine", user).file("/tmp/rootfile");
    d.folder("/media").folder("/media/Drive").mount("/media/Drive").file("/media/Drive/data");
    d.folder("/dev").file("/dev/null");
    const auto disk = d.facts();

    struct Case {
        PrivilegedOperation operation;
        std::optional<std::uint32_t> uid;
        std::optional<R> expected;
    } cases[] = {
        // An ordinary user: nothing root-owned, nowhere but what they own.
        {op::RemovePath{"/etc/shadow"}, user, R::pathNotAllowed},
        {op::RemovePath{"/home/u/rootfile"}, user, R::pathNotAllowed},
        {op::RemovePath{"/var/cache/app/blob"}, user, R::pathNotAllowed},
        {op::RemovePath{"/tmp/rootfile"}, user, R::pathNotAllowed},
        {op::RemovePath{"/var/cache/mine"}, user, std::nullopt}, {op::RemovePath{"/tmp/mine"}, user, std::nullopt},
        {op::RemovePath{"/home/u/file"}, user, std::nullopt},
        {op::RemovePath{"/home/u/.config/autostart"}, user, R::pathNotAllowed},
        {op::MoveAside{"/etc/shadow", "/home/u/shadow", user}, user, R::pathNotAllowed},
        {op::MoveAside{"/tmp/rootfile", "/home/u/got", user}, user, R::pathNotAllowed},
        {op::MoveAside{"/home/u/file", "/opt/tool/bin/ls", user}, user, R::pathNotAllowed},
        {op::MoveAside{"/home/u/file", "/home/v/x", user}, user, R::pathNotAllowed},
        {op::MoveAside{"/home/u/file", "/root/x2", user}, user, R::pathNotAllowed},
        {op::MoveAside{"/home/u/file", "/home/u/.config/autostart/x.desktop", user}, user, R::pathNotAllowed},
        {op::MoveAside{"/home/u/file", "/home/u/../../etc/cron.d/x", user}, user, R::pathNotAllowed},
        {op::MoveAside{"/home/u/file", "/tmp/aside", user}, user, R::pathNotAllowed},
        {op::MoveAside{"/home/u/file", "/home/u/aside", user}, user, std::nullopt},
        {op::SwapToSymlink{"/home/u/rootfile", "/home/u/file"}, user, R::pathNotAllowed},
        {op::RestoreFromStaging{"/home/u/file", "/etc/cron.d/x"}, user, R::pathNotAllowed},
        {op::RestoreFromStaging{"/home/u/file", "/root/x2"}, user, R::pathNotAllowed},
        {op::RestoreFromStaging{"/home/u/file", "/var/lib/x/new"}, user, R::pathNotAllowed},
        {op::RestoreFromStaging{"/etc/shadow", "/home/u/new"}, user, R::pathNotAllowed},
        {op::RestoreFromStaging{"/home/u/file", "/home/u/new"}, user, std::nullopt},
        {op::PrivilegedScan{"folder", "/root", "", "/home/u/dump.json"}, user, R::pathNotAllowed},
        {op::PrivilegedScan{"folder", "/home/u", "", "/home/u/dump.json"}, user, R::pathNotAllowed},
        // An administrator: root's items only under the clean-up roots and on removable drives.
        {op::RemovePath{"/var/cache/app/blob"}, admin, std::nullopt},
        {op::RemovePath{"/tmp/rootfile"}, admin, std::nullopt},
        {op::RemovePath{"/media/Drive/data"}, admin, std::nullopt},
        {op::RemovePath{"/media/Drive"}, admin, R::pathNotAllowed},
        {op::RemovePath{"/var/lib/x"}, admin, R::pathNotAllowed},
        {op::RemovePath{"/etc/shadow"}, admin, R::pathNotAllowed},
        {op::MoveAside{"/var/cache/app/blob", "/home/admin/blob", admin}, admin, std::nullopt},
        {op::MoveAside{"/home/admin/f", "/opt/tool/bin/ls", admin}, admin, R::pathNotAllowed},
        {op::RestoreFromStaging{"/home/admin/f", "/var/cache/app/new"}, admin, std::nullopt},
        {op::PrivilegedScan{"folder", "/root", "", "/home/admin/dump.json"}, admin, std::nullopt},
        // Root and the dry run keep the rules as they were, with the system folders added.
        {op::RemovePath{"/var/lib/x"}, 0u, std::nullopt},
        {op::RemovePath{"/etc/shadow"}, 0u, R::pathNotAllowed},
        {op::RemovePath{"/var/lib/x"}, std::nullopt, std::nullopt},
        {op::RemovePath{"/dev/null"}, std::nullopt, R::pathNotAllowed},
        {op::RestoreFromStaging{"/home/u/file", "/root/x2"}, std::nullopt, R::pathNotAllowed},
    };
    for (const auto& c : cases) {
        const std::string home = c.uid == admin ? "/home/admin" : "/home/u";
        auto got = validate(c.operation, home, c.uid, disk);
        EXPECT_EQ(got, c.expected) << c.operation.description() << " uid "
                                   << (c.uid ? std::to_string(*c.uid) : "absent") << ": got "
                                   << (got ? rawValue(*got) : "nothing");
    }
    // Names are bytes: the decomposed spelling of the caller's home is another user's folder.
    EXPECT_EQ(validate(op::MoveAside{"/home/\u00e9/f", "/home/e\u0301/x", user}, "/home/\u00e9", user, disk),
              R::pathNotAllowed);
    EXPECT_EQ(validate(op::MoveAside{"/home/\u00e9/f", "/home/\u00e9/x", user}, "/home/\u00e9", user, disk),
              std::nullopt);
}

TEST(PathRules, Persistence) {
    struct Case {
        const char* path;
        const char* home;
        bool expected;
    } cases[] = {
        {"/private/etc/sudoers", "", true}, {"/etc/sudoers.d/", "", true}, {"/etc/sudoers.d/x", "", true},
        {"/etc/sudoersx", "", false}, {"/Users/a/Library/LaunchAgents/x", "", true},
        {"/Users/z/Library/LaunchDaemons", "", true}, {"/Users/z/Library/LaunchAgentsX", "", false},
        {"/Users//Library/LaunchAgents", "", false},
        {"/Users/a/Library/LaunchAgents\n", "", true}, {"/home/a/Library/LaunchAgents/x", "", false},
        {"/home/a/Library/LaunchAgents/x", "/home/a", true},
        {"/library/launchdaemons/x", "", false},  // byte-exact
        {"/System/Library/User Template/x", "", true}, {"/Library/Preferences/com.apple.loginwindow.plist", "", true},
        {"/var/root/.ssh", "", true}, {"/private/var/at/tabs", "", true}, {"/Library/Application Support", "", false},
        {"/", "", false},
    };
    for (const auto& c : cases) EXPECT_EQ(isPersistenceLocation(c.path, c.home, RuleSet::macOS), c.expected) << c.path;

    // Linux adds its start-up places and knows homes under /home/ and /root.
    Case linux[] = {
        {"/etc/cron.d/x", "", true}, {"/private/etc/ld.so.preload", "", true}, {"/etc", "", true},
        {"/etcetera", "", false}, {"/var/spool/cron/crontabs/u", "", true},
        {"/usr/lib/systemd/system/x.service", "", true}, {"/lib/systemd/system", "", true},
        {"/home/a/Library/LaunchAgents/x", "", true}, {"/home/b/.config/autostart/x.desktop", "", true},
        {"/home/b/.config/systemd/user/x.service", "", true}, {"/Users/b/.config/systemd", "", true},
        {"/root/.config/autostart", "", true},
        {"/srv/u/.config/autostart/x", "/srv/u", true},  // the caller's own home, wherever it is
        {"/srv/u/.config/autostartx", "/srv/u", false}, {"/home/b/.config/other", "", false},
        {"/home/.config/systemd", "", false}, {"/var/spool/mail", "", false},
    };
    for (const auto& c : linux)
        EXPECT_EQ(isPersistenceLocation(c.path, c.home, RuleSet::withLinuxAdditions), c.expected) << c.path;
    EXPECT_FALSE(isPersistenceLocation("/etc/cron.d/x", "", RuleSet::macOS));
}

TEST(PathRules, LinuxSystemRootsAndCleanupRoots) {
    struct Case {
        const char* path;
        bool system;
        bool cleanup;
    } cases[] = {
        {"/etc/shadow", true, false},   {"/etc", true, false},          {"/boot/x", true, false},
        {"/dev/null", true, false},     {"/sys/kernel", true, false},   {"/proc/1/mem", true, false},
        {"/root/x", true, false},       {"/usr/local/bin/x", true, false}, {"/snap", true, false},
        {"/run/user/1000/x", true, false}, {"/run/media/u", true, true},
        {"/run/media/u/Drive", false, true},  // a user's drive: its mount point is refused as one
        {"/run/media/u/Drive/x", false, true},
        {"/media/Drive/x", false, true},  {"/mnt/x", false, true},      {"/mnt", false, false},
        {"/var/cache/apt/x", false, true}, {"/var/log/syslog", false, true}, {"/tmp/x", false, true},
        {"/tmp", false, false},          {"/var/tmp/x", false, true},   {"/var/crash/c", false, true},
        {"/var/lib/dpkg", false, false}, {"/var/cachex/y", false, false}, {"/home/u/x", false, false},
        {"/etcetera/x", false, false},   {"/opt/x", false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(isUnderLinuxSystemRoot(c.path), c.system) << c.path;
        EXPECT_EQ(isUnderAdministratorCleanupRoot(c.path), c.cleanup) << c.path;
    }
}

TEST(PathRules, CanonicalLaunchItemsAndForeignHomes) {
    struct Canon {
        const char* in;
        const char* out;
    } canon[] = {
        {"/System/Volumes/Data//Users/a/", "/Users/a"},
        {"/tmp", "/private/tmp"}, {"/", "/"},
        {"//", "/"},
        {"/System/Volumes/Data", "/"}, {"/System/Volumes/Data/", "/"},
        {"/System/Volumes/Data/tmp/x", "/private/tmp/x"}, {"/System/Volumes/DataX", "/System/Volumes/DataX"},
        {"/var///folders//", "/private/var/folders"},
        {"/etcetera", "/etcetera"}, {"/private/tmp", "/private/tmp"}, {"", ""},
        {"a//b/", "a/b"},
    };
    for (const auto& c : canon) EXPECT_EQ(canonicalPathForComparison(c.in), c.out) << c.in;

    struct Launch {
        const char* path;
        bool ok;
    } launch[] = {
        {"/Library/LaunchDaemons/com.vendor.d.plist", true},
        {"/Library/LaunchAgents/x.plist.disabled-by-orvane", true},
        {"/Library/LaunchDaemons/com.apple.d.plist", false}, {"/Library/LaunchDaemons/x.txt", false},
        {"/Library/LaunchDaemons/.plist", true}, {"/Library/LaunchDaemons/", false},
        {"/Library/LaunchDaemons//x.plist", false},
        {"/Library/LaunchDaemons/x.plist/", false}, {"/Library/LaunchDaemons/sub/x.plist", false},
        {"/System/Library/LaunchDaemons/x.plist", false}, {"/Users/a/Library/LaunchAgents/x.plist", false},
        {"/Library/LaunchDaemons/../LaunchDaemons/x.plist", false},
    };
    for (const auto& c : launch) EXPECT_EQ(systemLaunchItemPathAllowed(c.path), c.ok) << c.path;

    auto fake = macDisk();
    auto disk = fake.facts();
    EXPECT_TRUE(inForeignHome("/Users/b/x", "/Users/a", kUID, disk));
    EXPECT_TRUE(inForeignHome("/Users/Shared/x", "/Users/a", kUID, disk));
    EXPECT_FALSE(inForeignHome("/Users/a/x", "/Users/a", kUID, disk));
    EXPECT_FALSE(inForeignHome("/Users/a", "/Users/a", kUID, disk));
    EXPECT_FALSE(inForeignHome("/Users/b/x", "/Users/a", std::nullopt, disk));
    EXPECT_FALSE(inForeignHome("/Volumes/Drive/x", "/Users/a", kUID, disk));
    EXPECT_FALSE(inForeignHome("/Users/", "/Users/a", kUID, disk));
    EXPECT_TRUE(inForeignHome("/System/Volumes/Data/Users/b/x", "/Users/a", kUID, disk));
    EXPECT_TRUE(inForeignHome("/Users/a/../b/x", "/Users/a", kUID, disk));
    EXPECT_FALSE(inForeignHome("/Users/a/x", "/Users/a/", kUID, disk));

    EXPECT_TRUE(inCallerDomain("/Users/b/x", "/Users/a", std::nullopt, disk));
    EXPECT_FALSE(inCallerDomain("/Users/b/x", "/Users/a", kUID, disk));  // parent owned by 502
    EXPECT_TRUE(inCallerDomain("/Users/a/x", "/Users/a", kUID, disk));
    EXPECT_TRUE(inCallerDomain("/Users/Shared/x", "/Users/a", kUID, disk));
    EXPECT_TRUE(inCallerDomain("/staging/copy", "/Users/a", kUID, disk));
    EXPECT_TRUE(inCallerDomain("/Users/a/Caf\u00e9", "/Users/a", kUID, disk));
}

TEST(PathRules, AssertDeletable) {
    auto fake = macDisk();
    auto disk = fake.facts();
    struct Case {
        const char* path;
        const char* home;
        bool ok;
    } cases[] = {
        {"/Foo", "/Users/a", false}, {"/Users/a/b", "/Users/a/b/c", false}, {"/Users/a/b/", "/Users/a/b/c", false},
        {"/Users/a/b", "/Users/a/bc", true}, {"/Volumes/Drive", "/Users/a", false},
        {"/Volumes/Drive/", "/Users/a", false}, {"/Volumes/Drive/data", "/Users/a", true},
        {"/Volumes/Nothing", "/Users/a", true},  // absent: not protected for being a mount
        {"/Users/a/x/../../a", "/Users/a", false}, {"/usr", "/Users/a", false}, {"/Network", "/Users/a", false},
        {"relative/x", "/Users/a", false}, {"/", "/Users/a", false}, {"/a/b", "/Users/a", true},
    };
    for (const auto& c : cases) EXPECT_EQ(assertDeletable(c.path, c.home, disk), c.ok) << c.path;
}

TEST(Batch, EarlierStepsVacateLaterDestinations) {
    FakeDisk d;
    d.folder("/a").file("/a/x", kUID).folder("/b").file("/b/y", kUID);
    d.folder("/c").file("/c/y", kUID).file("/c/z", kUID);
    auto disk = d.facts();
    std::vector<PrivilegedOperation> plan = {op::RemovePath{"/a/x"}, op::MoveAside{"/b/y", "/a/x", kUID}};
    EXPECT_EQ(validatePrivilegedBatch(plan, "/Users/a", disk), std::nullopt);

    // Standardised on both sides.
    plan = {op::RemovePath{"/a//x/"}, op::MoveAside{"/b/y", "/a/./x", kUID}};
    EXPECT_EQ(validatePrivilegedBatch(plan, "/Users/a", disk), std::nullopt);

    // Without the removal, the destination is occupied at step 1.
    plan = {op::MoveAside{"/b/y", "/a/x", kUID}};
    auto refused = validatePrivilegedBatch(plan, "/Users/a", disk);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->refusal, R::destinationOccupied);
    EXPECT_EQ(refused->index, 0u);

    // A swap vacates for a restore; the first refusal ends the run with its step.
    plan = {op::SwapToSymlink{"/c/y", "/b/y"}, op::RestoreFromStaging{"/c/z", "/c/y"}, op::DeleteSnapshots{},
            op::RemovePath{"rel"}};
    refused = validatePrivilegedBatch(plan, "/Users/a", disk);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->index, 2u);
    EXPECT_EQ(refused->refusal, R::malformedSnapshotDate);
    EXPECT_EQ(refused->op, PrivilegedOperation(op::DeleteSnapshots{}));

    // Only moveAside and restoreFromStaging have occupied destinations waived.
    plan = {op::RemovePath{"/c/z"}, op::SetLaunchItemEnabled{"/c/z", false}};
    EXPECT_EQ(validatePrivilegedBatch(plan, "/Users/a", disk)->refusal, R::pathNotAllowed);

    // The dry run has no caller: ownership and chownTo are not looked at.
    plan = {op::MoveAside{"/a/x", "/c/new", 999}};
    EXPECT_EQ(validatePrivilegedBatch(plan, "/Users/a", disk), std::nullopt);
    EXPECT_EQ(validatePrivilegedBatch({}, "/Users/a", disk), std::nullopt);
}

// The same rules against the real disk: links and owners in a temporary folder.
class RealDisk : public ::testing::Test {
protected:
    void SetUp() override {
        temp_.write("real/inner/file");
        fs::create_directory_symlink(root_ + "/real", root_ + "/link");
    }
    orvane::testing::TempDir temp_;
    std::string root_ = temp_.path();
};

TEST_F(RealDisk, SymlinksOnTheWay) {
    EXPECT_FALSE(pathTraversesSymlink(root_ + "/real/inner/file"));
    EXPECT_TRUE(pathTraversesSymlink(root_ + "/link/inner/file"));
    EXPECT_TRUE(pathTraversesSymlink(root_ + "/link"));
    EXPECT_FALSE(pathTraversesSymlink(root_ + "/real/absent/deeper"));  // unreadable steps pass
    EXPECT_TRUE(isSymlinkPath(root_ + "/link"));
    EXPECT_FALSE(isSymlinkPath(root_ + "/link/inner"));
    EXPECT_FALSE(isSymlinkPath(root_ + "/absent"));

    EXPECT_EQ(validate(op::RemovePath{root_ + "/link/inner/file"}, "/home/nobody", getuid()),
              R::pathTraversesSymlink);
    EXPECT_EQ(validate(op::RemovePath{root_ + "/real/inner/file"}, "/home/nobody", getuid()), std::nullopt);
    // The staging path is walked in its comparison form ("/private/tmp/..." on macOS); the links
    // inside it are still found on a system without /private.
    EXPECT_EQ(validate(op::RestoreFromStaging{root_ + "/link/inner/file", root_ + "/real/new"}, root_, getuid()),
              R::pathTraversesSymlink);
    EXPECT_EQ(validate(op::RestoreFromStaging{root_ + "/real/inner/file", root_ + "/real/new"}, root_, getuid()),
              std::nullopt);
    EXPECT_EQ(validate(op::MoveAside{root_ + "/real/inner/file", root_ + "/real/inner", getuid()},
                       "/home/nobody", getuid()),
              R::destinationOccupied);
}

TEST_F(RealDisk, OwnershipNeedsRootToSetUp) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to give a file to another user; CI runs as root";
    const std::string theirs = root_ + "/real/theirs";
    std::ofstream(theirs) << "x";
    ASSERT_EQ(::chown(theirs.c_str(), 4242, 4242), 0);
    EXPECT_EQ(validate(op::RemovePath{theirs}, "/home/nobody", 501u), R::pathNotAllowed);
    EXPECT_EQ(validate(op::RemovePath{theirs}, "/home/nobody", 4242u), std::nullopt);
    EXPECT_EQ(validate(op::RemovePath{theirs}, "/home/nobody", std::nullopt), std::nullopt);
    ASSERT_EQ(::chown(theirs.c_str(), 0, 0), 0);
    // Root's item passes only where the system guards itself; here an ordinary user reaches none.
    EXPECT_EQ(validate(op::RemovePath{theirs}, "/home/nobody", 501u),
              kHostRuleSet == RuleSet::macOS ? std::nullopt : std::optional(R::pathNotAllowed));
}

TEST(RealMounts, AMountPointIsNeverDeletable) {
    const auto point = testing::twoLevelMountPoint();
    if (!point) GTEST_SKIP() << "no mount point two levels deep on this machine";
    EXPECT_FALSE(assertDeletable(*point, "/home/nobody")) << *point;
}

}  // namespace
}  // namespace orvane
