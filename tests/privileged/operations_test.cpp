// The operation bodies with the tools replaced: what they run, and the exact failure texts.
#include "core/privileged/operations.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include "core/common/json_files.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;

struct Call {
    std::string tool;
    std::vector<std::string> args;
    bool operator==(const Call&) const = default;
};

// A stand-in for the runner that answers from a script and remembers what was asked.
struct FakeTools {
    std::vector<Call> calls;
    std::function<ToolResult(const Call&)> answer = [](const Call&) { return ToolResult{{}, {}, false, 0}; };

    OperationContext context(std::uint32_t uid = 501) {
        OperationContext c;
        c.callerUID = uid;
        c.facts.run = [this](const std::string& tool, const std::vector<std::string>& args, double, bool,
                             ToolErrors errors) {
            calls.push_back({tool, args});
            // launchctl is only asked for its status; every other tool's words go into the failure text.
            if (tool == kLaunchTool) return ToolResult{{}, {}, false, 0};
            EXPECT_EQ(errors, ToolErrors::merged);
            return answer(calls.back());
        };
        return c;
    }
};

std::string failureOf(const PrivilegedOperation& operation, const OperationContext& context) {
    try {
        runOperation(operation, context);
    } catch (const HelperError& error) {
        return error.msg;
    }
    return "";
}

TEST(Operations, SnapshotDeletionNamesEachFailure) {
    FakeTools tools;
    tools.answer = [](const Call& call) {
        if (call.args[1] == "2026-01-02-000000") return ToolResult{{"  Failed to delete", " snapshot "}, {}, false, 1};
        if (call.args[1] == "2026-01-04-000000") return ToolResult{{"partial"}, {}, true, 15};
        if (call.args[1] == "2026-01-05-000000") return ToolResult{{"  ", "\t"}, {}, false, 2};
        return ToolResult{{}, {}, false, 0};
    };
    auto context = tools.context();
    EXPECT_EQ(failureOf(op::DeleteSnapshots{{"2026-01-01-000000", "2026-01-02-000000", "2026-01-03-000000"}}, context),
              "deleted 2 of 3 — tmutil: 2026-01-02-000000: Failed to delete  snapshot");
    EXPECT_EQ(tools.calls.size(), 3u);  // no stop at a failure
    EXPECT_EQ(tools.calls[0], (Call{"/usr/bin/tmutil", {"deletelocalsnapshots", "2026-01-01-000000"}}));
    EXPECT_EQ(failureOf(op::DeleteSnapshots{{"2026-01-04-000000", "2026-01-05-000000"}}, context),
              "deleted 0 of 2 — tmutil: 2026-01-04-000000: timed out; 2026-01-05-000000: no detail");
    EXPECT_EQ(failureOf(op::DeleteSnapshots{{"2026-01-01-000000"}}, context), "");

    // The joined failures are clipped to 240 characters; the head is not counted.
    tools.answer = [](const Call&) { return ToolResult{{std::string(500, 'e')}, {}, false, 1}; };
    const std::string clipped = failureOf(op::DeleteSnapshots{{"2026-01-01-000000", "2026-01-02-000000"}}, context);
    const std::string head = "deleted 0 of 2 — tmutil: ";
    ASSERT_TRUE(clipped.starts_with(head));
    EXPECT_EQ(clipped.size() - head.size(), 240u);
}

TEST(Operations, ToolFailureTexts) {
    FakeTools tools;
    auto context = tools.context();
    tools.answer = [](const Call&) { return ToolResult{{"  out of ", "luck  "}, {}, false, 3}; };
    EXPECT_EQ(failureOf(op::ThinSnapshots{}, context), "thinlocalsnapshots failed (status 3): out of  luck");
    EXPECT_EQ(tools.calls.back(), (Call{"/usr/bin/tmutil", {"thinlocalsnapshots", "/", "999999999999", "4"}}));
    EXPECT_EQ(failureOf(op::PurgeInactiveMemory{}, context), "purge failed (status 3): out of  luck");
    EXPECT_EQ(tools.calls.back(), (Call{"/usr/sbin/purge", {}}));
    // resetbtm keeps its output raw: not trimmed, no "no detail".
    EXPECT_EQ(failureOf(op::ResetBackgroundItems{}, context), "resetbtm failed (status 3):   out of  luck  ");
    EXPECT_EQ(tools.calls.back(), (Call{"/usr/bin/sfltool", {"resetbtm"}}));

    tools.answer = [](const Call&) { return ToolResult{{}, {}, true, -1}; };
    EXPECT_EQ(failureOf(op::PurgeInactiveMemory{}, context), "purge failed (status -1): no detail");
    EXPECT_EQ(failureOf(op::ResetBackgroundItems{}, context), "resetbtm failed (status -1): ");
    tools.answer = [](const Call&) { return ToolResult{{"fine"}, {}, true, 0}; };  // timed out counts as failed
    EXPECT_EQ(failureOf(op::ThinSnapshots{}, context), "thinlocalsnapshots failed (status 0): fine");

    tools.answer = [](const Call&) { return ToolResult{{std::string(400, 'x')}, {}, false, 1}; };
    EXPECT_EQ(failureOf(op::PurgeInactiveMemory{}, context).size(), std::string("purge failed (status 1): ").size() + 160);
    EXPECT_EQ(failureOf(op::ResetBackgroundItems{}, context).size(), std::string("resetbtm failed (status 1): ").size() + 120);
}

TEST(Operations, DetailMakesToolOutputFit) {
    EXPECT_EQ(detail({}), "no detail");
    EXPECT_EQ(detail({" ", "\n", "\t"}), "no detail");
    EXPECT_EQ(detail({"  a", "b  "}), "a b");
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    std::string many;
    for (int i = 0; i < 200; ++i) many += family;
    EXPECT_EQ(detail({many}).size(), 160 * family.size());  // characters, never cut in half
}

class LaunchItems : public ::testing::Test {
protected:
    void SetUp() override { temp_.mkdir("Trash"); }
    OperationContext context(FakeTools& tools) {
        auto c = tools.context(501);
        c.launchFolders = {agents_};
        return c;
    }
    orvane::testing::TempDir temp_;
    std::string root_ = temp_.path(), agents_ = temp_.mkdir("LaunchAgents");
};

TEST_F(LaunchItems, SwitchingOffAndOnRenamesThenTellsLaunchd) {
    FakeTools tools;
    auto c = context(tools);
    temp_.write("LaunchAgents/a.plist");
    EXPECT_EQ(failureOf(op::SetLaunchItemEnabled{agents_ + "/a.plist", false}, c), "");
    EXPECT_TRUE(fs::exists(agents_ + "/a.plist.disabled-by-orvane"));
    EXPECT_EQ(tools.calls.back(), (Call{"/bin/launchctl", {"bootout", "gui/501", agents_ + "/a.plist.disabled-by-orvane"}}));

    EXPECT_EQ(failureOf(op::SetLaunchItemEnabled{agents_ + "/a.plist.disabled-by-orvane", true}, c), "");
    EXPECT_TRUE(fs::exists(agents_ + "/a.plist"));
    EXPECT_EQ(tools.calls.back(), (Call{"/bin/launchctl", {"bootstrap", "gui/501", agents_ + "/a.plist"}}));

    const std::size_t before = tools.calls.size();
    EXPECT_EQ(failureOf(op::SetLaunchItemEnabled{agents_ + "/gone.plist", false}, c),
              "switching " + agents_ + "/gone.plist off failed");
    EXPECT_EQ(failureOf(op::SetLaunchItemEnabled{agents_ + "/gone.plist.disabled-by-orvane", true}, c),
              "switching " + agents_ + "/gone.plist.disabled-by-orvane back on failed");
    EXPECT_EQ(tools.calls.size(), before);  // no launchctl when the rename failed
}

TEST_F(LaunchItems, TrashingStopsOnlyWhatIsRunning) {
    FakeTools tools;
    auto c = context(tools);
    temp_.write("LaunchAgents/on.plist");
    temp_.write("LaunchAgents/off.plist.disabled-by-orvane");
    EXPECT_EQ(failureOf(op::TrashLaunchItem{agents_ + "/on.plist", root_ + "/Trash/on.plist", getuid()}, c), "");
    ASSERT_EQ(tools.calls.size(), 1u);
    EXPECT_EQ(tools.calls[0], (Call{"/bin/launchctl", {"bootout", "gui/501", agents_ + "/on.plist"}}));
    EXPECT_TRUE(fs::exists(root_ + "/Trash/on.plist"));

    EXPECT_EQ(failureOf(op::TrashLaunchItem{agents_ + "/off.plist.disabled-by-orvane", root_ + "/Trash/off", getuid()}, c),
              "");
    EXPECT_EQ(tools.calls.size(), 1u);  // already off: not stopped again
    EXPECT_EQ(failureOf(op::TrashLaunchItem{agents_ + "/gone.plist", root_ + "/Trash/gone", getuid()}, c),
              "moving " + agents_ + "/gone.plist to the Trash failed");

    // The domain of a system daemon.
    EXPECT_EQ(failureOf(op::TrashLaunchItem{"/Library/LaunchDaemons/x.plist", root_ + "/Trash/x", getuid()}, c),
              "moving /Library/LaunchDaemons/x.plist to the Trash failed");
    EXPECT_EQ(tools.calls.back(), (Call{"/bin/launchctl", {"bootout", "system", "/Library/LaunchDaemons/x.plist"}}));
}

TEST(Operations, FileBodiesAndTheirTexts) {
    const orvane::testing::TempDir temp;
    const std::string& root = temp.path();
    OperationContext c;
    c.callerUID = getuid();
    EXPECT_EQ(failureOf(op::RemovePath{temp.write("file")}, c), "");
    EXPECT_FALSE(fs::exists(root + "/file"));
    EXPECT_EQ(failureOf(op::RemovePath{root + "/gone/file"}, c), "remove of " + root + "/gone/file failed or was redirected");

    temp.mkdir("target");
    temp.write("original");
    EXPECT_EQ(failureOf(op::SwapToSymlink{root + "/original", root + "/target"}, c), "");
    EXPECT_EQ(fs::read_symlink(root + "/original"), root + "/target");
    EXPECT_EQ(failureOf(op::SwapToSymlink{root + "/none/x", root + "/target"}, c),
              "swap remove of " + root + "/none/x failed or was redirected");

    temp.write("staged");
    temp.write("occupied");
    EXPECT_EQ(failureOf(op::RestoreFromStaging{root + "/staged", root + "/occupied"}, c),
              "restore into " + root + "/occupied failed");
    EXPECT_EQ(failureOf(op::MoveAside{root + "/staged", root + "/occupied", getuid()}, c),
              "move-aside to " + root + "/occupied failed");
    EXPECT_EQ(failureOf(op::MoveAside{root + "/staged", root + "/aside", getuid()}, c), "");
    EXPECT_TRUE(fs::exists(root + "/aside"));
}

// While the bodies run over and over, another thread keeps exchanging a folder on their way with
// a link to a decoy, on the source side and on the destination side. Whatever the interleaving,
// nothing in the decoy is removed, replaced or moved, and nothing arrives in it.
TEST(Operations, RacingSymlinkSwapsNeverReachTheDecoy) {
    const orvane::testing::TempDir temp;
    const std::string& root = temp.path();
    const std::string flip = root + "/flip", decoy = root + "/decoy", steady = root + "/steady";
    fs::create_directories(flip);
    fs::create_directories(decoy);
    fs::create_directories(steady);
    fs::create_directory_symlink(decoy, root + "/other");
    std::ofstream(decoy + "/item") << "precious";
    struct stat original{};
    ASSERT_EQ(::lstat((decoy + "/item").c_str(), &original), 0);
    // The real folder, wherever its name is at the moment.
    const int realFD = ::open(flip.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int steadyFD = ::open(steady.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(realFD, 0);
    ASSERT_GE(steadyFD, 0);
    if (::renameat2(AT_FDCWD, flip.c_str(), AT_FDCWD, (root + "/other").c_str(), RENAME_EXCHANGE) != 0)
        GTEST_SKIP() << "this file system cannot exchange two names (renameat2 RENAME_EXCHANGE)";

    auto freshFile = [](int dirFD, const char* name) {
        struct stat st{};
        if (::fstatat(dirFD, name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode)) return;
        (void)::unlinkat(dirFD, name, 0);
        ::close(::openat(dirFD, name, O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    };
    auto decoyUntouched = [&] {
        std::map<std::string, ino_t> found;
        DIR* dir = ::opendir(decoy.c_str());
        while (const dirent* entry = dir ? ::readdir(dir) : nullptr)
            if (std::string_view(entry->d_name) != "." && std::string_view(entry->d_name) != "..")
                found[entry->d_name] = entry->d_ino;
        if (dir) ::closedir(dir);
        struct stat now{};
        return found == std::map<std::string, ino_t>{{"item", original.st_ino}} &&
               ::lstat((decoy + "/item").c_str(), &now) == 0 && S_ISREG(now.st_mode) &&
               now.st_size == original.st_size;
    };

    const std::uint32_t me = getuid();
    struct Case {
        const char* side;
        PrivilegedOperation operation;
    } cases[] = {
        {"removePath", op::RemovePath{flip + "/item"}},
        {"moveAside source", op::MoveAside{flip + "/item", steady + "/arrived", me}},
        {"moveAside destination", op::MoveAside{steady + "/item", flip + "/arrived", me}},
        {"restoreFromStaging source", op::RestoreFromStaging{flip + "/item", steady + "/arrived"}},
        {"restoreFromStaging destination", op::RestoreFromStaging{steady + "/item", flip + "/arrived"}},
        {"swapToSymlink", op::SwapToSymlink{flip + "/item", steady}},
    };
    std::atomic<bool> stop{false};
    std::thread swapper([&] {
        while (!stop) (void)::renameat2(AT_FDCWD, flip.c_str(), AT_FDCWD, (root + "/other").c_str(), RENAME_EXCHANGE);
    });
    OperationContext context;
    context.callerUID = me;
    for (const auto& c : cases) {
        int done = 0, refused = 0, escapes = 0;
        for (int i = 0; i < 10'000; ++i) {
            freshFile(realFD, "item");
            freshFile(steadyFD, "item");
            (void)::unlinkat(realFD, "arrived", 0);
            (void)::unlinkat(steadyFD, "arrived", 0);
            (failureOf(c.operation, context).empty() ? done : refused) += 1;
            if (!decoyUntouched()) {
                ++escapes;
                fs::remove_all(decoy);  // put the decoy back for the next round
                fs::create_directories(decoy);
                std::ofstream(decoy + "/item") << "precious";
                (void)::lstat((decoy + "/item").c_str(), &original);
            }
        }
        EXPECT_EQ(escapes, 0) << c.side;
        // Both outcomes happened, or the race was not run at all.
        EXPECT_GT(done, 0) << c.side;
        EXPECT_GT(refused, 0) << c.side;
    }
    stop = true;
    swapper.join();
    ::close(realFD);
    ::close(steadyFD);
}

TEST(Operations, ScanDumpReachesTheCallerInAFileOfItsOwn) {
    const orvane::testing::TempDir temp{"/var/tmp"};
    const std::string& root = temp.path();
    fs::resize_file(temp.write("scanned/big.bin"), 12 * 1024 * 1024);  // sparse, above the scan's threshold
    OperationContext c;
    c.callerUID = getuid();
    const std::string out = root + "/dump.json";
    EXPECT_EQ(failureOf(op::PrivilegedScan{"folder", root + "/scanned", "ignored", out}, c), "");
    struct stat st{};
    ASSERT_EQ(::lstat(out.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_EQ(st.st_uid, getuid());
    if (geteuid() == 0) {
        EXPECT_EQ(st.st_gid, 20u);
    }
    std::ifstream in(out);
    auto dump = nlohmann::json::parse(in);
    EXPECT_EQ(dump["privilege"], "Administrator");
    ASSERT_EQ(dump["items"].size(), 1u);
    EXPECT_TRUE(dump["items"][0]["lastUsed"].is_string());  // the dump's dates are ISO 8601 text

    // Something at the name since validation: never written through, never replaced.
    temp.write("taken", "mine");
    fs::create_symlink(root + "/taken", root + "/planted");
    EXPECT_EQ(failureOf(op::PrivilegedScan{"folder", root + "/scanned", "", root + "/taken"}, c),
              "could not create the scan dump at " + root + "/taken");
    EXPECT_EQ(failureOf(op::PrivilegedScan{"volume", root + "/scanned", "V", root + "/planted"}, c),
              "could not create the scan dump at " + root + "/planted");
    EXPECT_EQ(readFile(root + "/taken"), "mine");
    fs::create_directory_symlink(root, root + "/dirlink");
    EXPECT_EQ(failureOf(op::PrivilegedScan{"folder", root + "/scanned", "", root + "/dirlink/d.json"}, c),
              "scan dump parent " + root + "/dirlink is not a real directory chain");
}

TEST(Operations, TrashedAppsOfTheCaller) {
    const orvane::testing::TempDir temp;
    const std::string& home = temp.path();
    fs::create_directories(home + "/.Trash/Old.app/Contents");
    OperationContext c;
    c.callerUID = getuid();
    c.callerHome = home;
    EXPECT_EQ(failureOf(op::DeleteTrashedApp{"Old.app"}, c), "");
    EXPECT_FALSE(fs::exists(home + "/.Trash/Old.app"));
    EXPECT_EQ(failureOf(op::DeleteTrashedApp{"Old.app"}, c), "Old.app: it's no longer in the Trash");
    c.callerHome.clear();
    EXPECT_EQ(failureOf(op::DeleteTrashedApp{"Old.app"}, c), "no home for the caller");
}

TEST(Operations, SnapshotReports) {
    const std::vector<std::string> three = {"a", "b", "c"};
    struct Case {
        std::vector<std::string> requested, stillListed;
        std::int64_t released;
        std::string detailText, text;
    } cases[] = {
        {three, {}, 50'000'000, "ignored",
         "Deleted 3 snapshots. macOS is releasing the blocks in the background — the ceiling above falls as it finishes."},
        {{"a"}, {}, 0, "", "Deleted 1 snapshot. macOS is releasing the blocks in the background — the ceiling above falls as it finishes."},
        {three, {"x"}, 50'000'001, "ignored", "Deleted 3 snapshots — 50 MB released so far, more can follow over the next minutes."},
        {{"a"}, {}, 2'340'000'000, "", "Deleted 1 snapshot — 2.34 GB released so far, more can follow over the next minutes."},
        {three, {"b"}, 0, "", "Deleted 2 of 3 snapshots — 1 could not be removed and is still there."},
        {three, {"b", "c"}, 0, "tmutil said no.", "Deleted 1 of 3 snapshots — 2 could not be removed and are still there. tmutil said no."},
        {{"a"}, {"a"}, 0, "", "Nothing was deleted — all 1 snapshot is still there."},
        {three, three, 0, "Busy.", "Nothing was deleted — all 3 snapshots are still there. Busy."},
        {{}, {}, 0, "", "Nothing was deleted — all 0 snapshots are still there."},
    };
    for (const auto& c : cases)
        EXPECT_EQ(snapshotDeleteReport(c.requested, c.stillListed, c.released, c.detailText), c.text);
    EXPECT_EQ(confirmedSnapshotDeletions({"a", "b", "a", "c"}, {"b"}), (std::vector<std::string>{"a", "a", "c"}));
}

}  // namespace
}  // namespace orvane
