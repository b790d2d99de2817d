#include "core/relocation/mover.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "core/common/json_files.hpp"
#include "core/ledger/action_log.hpp"
#include "core/ledger/journals.hpp"
#include "core/ledger/ledger.hpp"
#include "core/platform/platform.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;

// A second file system to move to: /dev/shm where it is one of its own.
std::optional<std::string> secondFileSystem(const testing::TempDir& source) {
    const auto there = platform::mountOf("/dev/shm");
    const auto here = platform::mountOf(source.path());
    if (!there || !here || there->mountPoint == here->mountPoint || ::access("/dev/shm", W_OK) != 0) return std::nullopt;
    return "/dev/shm";
}

struct LedgerIn {
    explicit LedgerIn(const std::string& folder) { Ledger::setTestDirOverride(folder); }
    ~LedgerIn() { Ledger::setTestDirOverride(std::nullopt); }
};

TEST(Mover, MovesAFolderBehindAShortcutWithEverythingKept) {
    testing::TempDir home("/var/tmp");
    const auto shm = secondFileSystem(home);
    if (!shm) GTEST_SKIP() << "/dev/shm is not a second writable file system here";
    testing::TempDir drive(shm->c_str());
    const LedgerIn ledger(home / "ledger");

    const std::string project = home.mkdir("Projects/Film");
    home.write("Projects/Film/cut.mov", std::string(3 * 1024 * 1024 + 5, 'm'));
    const std::string script = home.write("Projects/Film/notes/script.txt", "INT. DAY");
    ::chmod(script.c_str(), 0640);
    const struct timespec old[2] = {{1'500'000'000, 0}, {1'500'000'000, 0}};
    ::utimensat(AT_FDCWD, script.c_str(), old, AT_SYMLINK_NOFOLLOW);
    fs::create_symlink("notes/script.txt", project + "/latest");

    const MovePreparation prepared = prepareMove(project, drive.path(), "", {}, Facts::real());
    ASSERT_TRUE(prepared.plan) << prepared.refusal;
    EXPECT_EQ(prepared.plan->dst, drive / "Offloaded/Film");
    EXPECT_EQ(prepared.plan->files, 2);
    EXPECT_EQ(prepared.plan->bytes, 3 * 1024 * 1024 + 5 + 8);

    fs::create_directories(drive / "Offloaded/Film 9.ov-move-tmp/left");  // what a killed move left
    std::int64_t heard = 0;
    const MoveOutcome outcome = performMove(*prepared.plan, [&](std::int64_t copied) { heard = copied; });
    ASSERT_TRUE(outcome.moved) << outcome.sentence;
    EXPECT_EQ(heard, prepared.plan->bytes);
    EXPECT_EQ(fs::read_symlink(project), drive / "Offloaded/Film");
    EXPECT_EQ(readFile(project + "/notes/script.txt"), "INT. DAY");  // through the shortcut
    EXPECT_EQ(fs::read_symlink(project + "/latest"), "notes/script.txt");
    const auto copied = platform::lstatFacts(drive / "Offloaded/Film/notes/script.txt");
    EXPECT_EQ(copied->mode & 07777, 0640u);
    EXPECT_EQ(copied->modifiedSeconds, 1'500'000'000);
    EXPECT_FALSE(fs::exists(drive / "Offloaded/Film 9.ov-move-tmp"));

    EXPECT_EQ(readFile(Ledger::moveJournalPath()), R"({"v":1,"data":[]})");
    const auto moves = Ledger::loadMoves();
    ASSERT_EQ(moves.size(), 1u);
    EXPECT_EQ(moves[0].src, project);
    EXPECT_TRUE(moves[0].symlinked);
    EXPECT_TRUE(Ledger::tail(1).at(0).ends_with("MOVE " + project + " -> " + drive / "Offloaded/Film"));

    // Another item of the same name never goes over the first.
    const std::string again = home.write("Film", "second");
    const auto second = prepareMove(again, drive.path(), "", {}, Facts::real());
    ASSERT_TRUE(second.plan);
    EXPECT_EQ(second.plan->dst, drive / "Offloaded/Film 2");
}

TEST(Mover, RefusesBeforeCopyingAnything) {
    testing::TempDir home("/var/tmp");
    const auto shm = secondFileSystem(home);
    if (!shm) GTEST_SKIP() << "/dev/shm is not a second writable file system here";
    testing::TempDir drive(shm->c_str());
    const std::string folder = home.mkdir("Box");
    home.write("Box/a", "a");
    const std::string link = home / "link";
    fs::create_symlink(folder, link);
    const std::string piped = home.mkdir("Piped");
    ::mkfifo((piped + "/fifo").c_str(), 0600);
    const MoveChecks keep{[&](const std::string& path) -> std::optional<std::string> {
                              if (path == home / "Kept") return "it is protected.";
                              return std::nullopt;
                          },
                          [&](const std::string& path) -> std::optional<std::string> {
                              if (path == home / "Store") return "Move it from inside its app.";
                              return std::nullopt;
                          },
                          {}};
    home.mkdir("Kept");
    home.mkdir("Store");
    const std::vector<std::pair<std::string, std::string>> rows = {
        {home / "missing", "There is nothing at " + home / "missing" + "."},
        {link, link + " is a shortcut already; move what it points at instead."},
        {home / "Kept", home / "Kept" + " can't be moved: it is protected."},
        {home / "Store", "Move it from inside its app."},
        {piped, piped + "/fifo is neither a file, a folder nor a shortcut, so it can't be copied."},
    };
    for (const auto& [source, sentence] : rows) {
        const auto prepared = prepareMove(source, drive.path(), "", keep, Facts::real());
        EXPECT_FALSE(prepared.plan) << source;
        EXPECT_EQ(prepared.refusal, sentence);
    }
    const auto sameDrive = prepareMove(folder, home.mkdir("elsewhere"), "", keep, Facts::real());
    EXPECT_EQ(sameDrive.refusal, home / "elsewhere" + " is on the same drive as " + folder + ": moving it there frees nothing.");
    EXPECT_FALSE(fs::exists(drive / "Offloaded"));
}

}  // namespace
}  // namespace orvane
