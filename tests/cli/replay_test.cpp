// A recorded Mac as the world: captures of real runs answer the same as the real tools, a bad
// recording gets one sentence, and nothing under a recording is ever changed.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>

#include <nlohmann/json.hpp>

#include "core/common/tool_runner.hpp"
#include "tests/cli/run_orvane.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;
using testing::runOrvane;
using testing::TempDir;
constexpr auto write = testing::writeFile;

std::string joinedNul(const std::vector<std::string>& lines) {
    std::string out;
    for (const auto& line : lines) out += line + '\0';
    return out;
}

// Every entry under `root`, with what a write would change.
std::map<std::string, std::string> tree(const std::string& root) {
    std::map<std::string, std::string> out;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        struct stat st{};
        ::lstat(entry.path().c_str(), &st);
        out[entry.path()] = std::to_string(st.st_size) + ":" + std::to_string(st.st_mtim.tv_sec) + "." +
                            std::to_string(st.st_mtim.tv_nsec) + ":" + std::to_string(st.st_ino);
    }
    return out;
}

class Recording : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = recording_.path();
        fs::create_directories(dir_);
        write(dir_ + "/home", "/Users/alex\n");
        write(dir_ + "/system.json", R"({"homeVolume": {"totalCapacity": 500000000000, "availableCapacity": 120000000000}})");
        write(dir_ + "/tools.json", "[]");
        fs::create_directories(dir_ + "/root/Users/alex");
    }
    // Records a real run of `argv` into the recording, as a recording tool on a Mac would.
    void record(const std::vector<std::string>& argv, bool nulDelimited, ToolErrors errors) {
        const auto real = runToolSplit(argv.front(), {argv.begin() + 1, argv.end()}, 60, nulDelimited, errors);
        const std::string name = "capture-" + std::to_string(runs_.size());
        write(dir_ + "/" + name + ".out", nulDelimited ? joinedNul(real.lines) : [&] {
            std::string text;
            for (const auto& line : real.lines) text += line + "\n";
            return text;
        }());
        std::string err;
        for (const auto& line : real.errLines) err += line + "\n";
        write(dir_ + "/" + name + ".err", err);
        runs_.push_back({{"argv", argv}, {"stdout", name + ".out"}, {"stderr", name + ".err"}, {"status", real.status}});
        write(dir_ + "/tools.json", runs_.dump());
    }
    std::string replay(const std::string& arguments) { return "--replay " + dir_ + " " + arguments; }

    TempDir recording_;
    TempDir scratch_;
    std::string dir_;
    nlohmann::json runs_ = nlohmann::json::array();
};

TEST_F(Recording, CapturedRunsAnswerAsTheRealToolsDid) {
    // A real folder, measured and scanned for real, then recorded with its tree under root/.
    TempDir realDir;
    const std::string real = realDir.path();
    write(real + "/Movies/big.mov", std::string(11 << 20, 'm'));
    write(real + "/Movies/small.txt", "s");
    fs::create_directories(dir_ + "/root" + fs::path(real).parent_path().string());
    fs::copy(real, dir_ + "/root" + real, fs::copy_options::recursive);
    std::filesystem::last_write_time(dir_ + "/root" + real + "/Movies/big.mov",
                                     fs::last_write_time(real + "/Movies/big.mov"));
    record({"/usr/bin/du", "-skx", "--", real + "/Movies"}, false, ToolErrors::separate);
    record({"/usr/bin/find", real, "-type", "f", "-size", "+10M", "-print0"}, true, ToolErrors::discarded);

    const auto du = runOrvane("du " + real + "/Movies --json", scratch_.path());
    const auto duReplayed = runOrvane(replay("du " + real + "/Movies --json"), scratch_.path());
    EXPECT_EQ(duReplayed.status, 0) << duReplayed.err;
    EXPECT_EQ(duReplayed.out, du.out);

    auto items = [](const std::string& json) { return nlohmann::json::parse(json).at("items"); };
    const auto scan = runOrvane("--ledger-dir " + scratch_.path() + "/ledger scan " + real + " --json", scratch_.path());
    const auto scanReplayed = runOrvane(replay("scan " + real + " --json"), scratch_.path());
    ASSERT_EQ(scanReplayed.status, 0) << scanReplayed.err;
    EXPECT_EQ(items(scanReplayed.out), items(scan.out));
    EXPECT_EQ(items(scanReplayed.out).size(), 1u);
    // The recorded volume's figures, not this machine's.
    EXPECT_EQ(nlohmann::json::parse(scanReplayed.out).at("free"), 120000000000);

    const auto table = runOrvane(replay("scan " + real), scratch_.path());
    EXPECT_NE(table.out.find("Movies/big.mov — "), std::string::npos) << table.out;
    EXPECT_NE(table.out.find("120 GB free of 500 GB on this file system."), std::string::npos) << table.out;

    // A tool the recording does not hold is absent: du measures nothing.
    const auto unrecorded = runOrvane(replay("du " + real), scratch_.path());
    EXPECT_EQ(unrecorded.status, 1);
    EXPECT_NE(unrecorded.out.find(": unknown"), std::string::npos);
}

TEST_F(Recording, ReadsNeverLeaveTheRecording) {
    // An absolute link in the recording means a place of the recorded Mac, not of this one.
    fs::create_directory_symlink("/etc", dir_ + "/root/Users/alex/escape");
    fs::create_directory_symlink("../../../../..", dir_ + "/root/Users/alex/up");
    for (const char* path : {"/Users/alex/escape/passwd", "/Users/alex/up/etc/passwd", "/etc/passwd"}) {
        const auto o = runOrvane(replay(std::string("verdict ") + path), scratch_.path());
        EXPECT_EQ(o.status, 2) << path;
        EXPECT_NE(o.out.find(": does not exist"), std::string::npos) << path << ": " << o.out;
    }
}

TEST_F(Recording, ABadRecordingGetsOneSentence) {
    const struct {
        std::function<void(const std::string&)> spoil;
        std::string sentence;
    } cases[] = {
        {[](const std::string& d) { fs::remove_all(d); }, "There is no recorded Mac at DIR."},
        {[](const std::string& d) { write(d + "/tools.json", "[{"); }, "DIR/tools.json does not decode: "},
        {[](const std::string& d) { write(d + "/tools.json", R"({"argv": []})"); },
         "DIR/tools.json does not decode: it must be a JSON array of runs."},
        {[](const std::string& d) { write(d + "/tools.json", R"([{"argv": ["/usr/bin/du"], "stdout": "gone.txt", "status": 0}])"); },
         "Run 1 of DIR/tools.json names a file that cannot be read: DIR/gone.txt does not exist."},
        {[](const std::string& d) { write(d + "/tools.json", R"([{"argv": ["/usr/bin/du"], "stdout": "../../etc/passwd", "status": 0}])"); },
         "Run 1 of DIR/tools.json names \"../../etc/passwd\", which is not a file inside the recording."},
        {[](const std::string& d) { write(d + "/tools.json", R"([{"argv": ["/usr/bin/du"]}])"); },
         "Run 1 of DIR/tools.json has no \"status\" that is a whole number."},
        {[](const std::string& d) { fs::remove(d + "/home"); }, "The recording names no home: DIR/home does not exist."},
        {[](const std::string& d) { write(d + "/uid", "alex"); }, "DIR/uid must hold a user id, such as 501."},
        {[](const std::string& d) { write(d + "/system.json", R"({"homeVolume": {"availableCapacity": -5}})"); },
         "DIR/system.json does not decode: \"homeVolume.availableCapacity\" must be a byte count."},
    };
    for (const auto& c : cases) {
        fs::remove_all(dir_);
        SetUp();
        c.spoil(dir_);
        const auto o = runOrvane(replay("du /Users/alex"), scratch_.path());
        std::string expected = c.sentence;
        for (std::size_t at; (at = expected.find("DIR")) != std::string::npos;) expected.replace(at, 3, dir_);
        EXPECT_EQ(o.status, 2) << expected;
        EXPECT_EQ(o.err.rfind("orvane: " + expected, 0), 0u) << o.err;
        EXPECT_EQ(std::count(o.err.begin(), o.err.end(), '\n'), 1) << o.err;
    }
}

TEST_F(Recording, NothingIsChangedOnARecording) {
    TempDir ledger;
    write(dir_ + "/root/Users/alex/Movies/keep.mov", "k");
    const auto before = std::pair(tree(dir_), tree(ledger.path()));
    for (const char* command : {"protect add /Users/alex/Movies", "repair", "scan /Users/alex --admin",
                                "helper perform '{\"removePath\":{\"_0\":\"/Users/alex/Movies\"}}'", "helper version"}) {
        const auto o = runOrvane("--ledger-dir " + ledger.path() + " " + replay(command), scratch_.path());
        EXPECT_EQ(o.status, 1) << command << ": " << o.err;
        EXPECT_EQ(o.err, "orvane: Nothing was changed: this is a recorded Mac.\n") << command;
        EXPECT_FALSE(o.out.empty()) << command << ": the plan is shown";
    }
    EXPECT_EQ(std::pair(tree(dir_), tree(ledger.path())), before);
}

}  // namespace
}  // namespace orvane
