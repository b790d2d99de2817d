// The request road inside one connection: decode, home, validate, run, log, reply.
#include "helper/helper.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include "core/common/json_files.hpp"
#include "core/privileged/wire.hpp"
#include "core/common/tool_runner.hpp"
#include "helper/helper_log.hpp"

#include "tests/support/temp_dir.hpp"

namespace orvane::helper {
namespace {

namespace fs = std::filesystem;

class Road : public ::testing::Test {
protected:
    Helper helper(std::uint32_t uid) {
        HelperSettings settings;
        settings.logPath = log_;
        settings.homeOf = [this](std::uint32_t u) -> std::optional<std::string> {
            if (u == 4'000'000) return std::nullopt;
            return root_;
        };
        settings.operations.facts.run = [this](const std::string& tool, const std::vector<std::string>&, double, bool,
                                              ToolErrors) {
            ranTools_.push_back(tool);
            return ToolResult{{"tool says no"}, {}, false, 1};
        };
        return Helper(uid, settings);
    }
    // The log's records with their time stamps checked and taken off.
    std::vector<std::string> records() const {
        std::vector<std::string> out;
        auto text = readFile(log_);
        if (!text) return out;
        static const std::regex stamp(R"(^\[\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}Z\] (.*)$)");
        std::size_t start = 0;
        while (start < text->size()) {
            auto end = text->find('\n', start);
            EXPECT_NE(end, std::string::npos) << "a record without its line end";
            if (end == std::string::npos) break;
            std::smatch m;
            std::string line = text->substr(start, end - start);
            EXPECT_TRUE(std::regex_match(line, m, stamp)) << line;
            out.push_back(m[1]);
            start = end + 1;
        }
        return out;
    }

    orvane::testing::TempDir temp_;
    std::string root_ = temp_.path(), log_ = root_ + "/helper.log";
    std::vector<std::string> ranTools_;
};

TEST_F(Road, EveryShapeOfReplyAndItsRecord) {
    const auto me = static_cast<std::uint32_t>(getuid());
    auto h = helper(me);
    temp_.write("doomed");
    fs::create_directory_symlink(root_, root_ + "/link");

    EXPECT_EQ(h.version(), "6");
    EXPECT_EQ(h.perform(R"({"removePath":{"_0":")" + root_ + R"(/doomed"}})"), std::nullopt);
    EXPECT_FALSE(fs::exists(root_ + "/doomed"));
    EXPECT_EQ(h.perform(R"({"removePath":{"_0":")" + root_ + R"(/link/x"}})"), "pathTraversesSymlink");
    EXPECT_EQ(h.perform(R"({"nothingKnown":{}})"), "operationFailed");  // no record
    EXPECT_EQ(h.perform("not json"), "operationFailed");
    EXPECT_EQ(h.perform(R"({"thinSnapshots":{}})"), "operationFailed: thinlocalsnapshots failed (status 1): tool says no");
    EXPECT_EQ(h.perform(R"({"removePath":{"_0":")" + root_ + R"(/gone/x"}})"),
              "operationFailed: remove of " + root_ + "/gone/x failed or was redirected");
    EXPECT_EQ(h.perform(R"({"privilegedScan":{"kind":"folder","root":")" + root_ + R"(","label":"L","outPath":")" +
                        root_ + R"(/dump.json"}})"),
              std::nullopt);
    EXPECT_TRUE(fs::exists(root_ + "/dump.json"));
    EXPECT_EQ(h.perform(R"({"deleteTrashedApp":{"name":"Gone.app"}})"), "sourceMissing");

    EXPECT_EQ(records(), (std::vector<std::string>{
                             "OK removePath(\"" + root_ + "/doomed\")",
                             "REFUSED pathTraversesSymlink — removePath(\"" + root_ + "/link/x\")",
                             "FAILED thinSnapshots: thinlocalsnapshots failed (status 1): tool says no",
                             "FAILED removePath(\"" + root_ + "/gone/x\"): remove of " + root_ +
                                 "/gone/x failed or was redirected",
                             "OK privilegedScan(kind: \"folder\", root: \"" + root_ + "\", label: \"L\", outPath: \"" +
                                 root_ + "/dump.json\")",
                             "REFUSED sourceMissing — deleteTrashedApp(name: \"Gone.app\")",
                         }));
    struct stat st{};
    ASSERT_EQ(::stat(log_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
}

TEST_F(Road, ACallerWithoutAHomeIsRefusedEverything) {
    auto h = helper(4'000'000);
    EXPECT_EQ(h.perform(R"({"thinSnapshots":{}})"), "pathNotAllowed");  // needs no home, refused all the same
    EXPECT_EQ(h.perform(R"({"removePath":{"_0":"relative"}})"), "pathNotAllowed");
    EXPECT_EQ(h.perform(R"({"bad":{}})"), "operationFailed");
    EXPECT_EQ(h.version(), "6");
    EXPECT_TRUE(ranTools_.empty());
    EXPECT_EQ(records(), (std::vector<std::string>{"REFUSED no directory record for uid 4000000",
                                                   "REFUSED no directory record for uid 4000000"}));
}

TEST_F(Road, TheChownTargetMustBeTheCaller) {
    auto h = helper(501);
    temp_.write("item");
    EXPECT_EQ(h.perform(R"({"moveAside":{"path":")" + root_ + R"(/item","to":")" + root_ +
                        R"(/aside","chownTo":0}})"),
              "pathNotAllowed");
    EXPECT_TRUE(fs::exists(root_ + "/item"));
}

TEST_F(Road, TheLogIsRepairedAndNeverFailsAReply) {
    appendLogRecord(log_, "first");
    ::chmod(log_.c_str(), 0666);
    appendLogRecord(log_, "second");
    struct stat st{};
    ASSERT_EQ(::stat(log_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);  // put back after every record
    EXPECT_EQ(records(), (std::vector<std::string>{"first", "second"}));

    // A log that cannot be written changes nothing for the caller.
    HelperSettings settings;
    settings.logPath = root_ + "/missing-folder/helper.log";
    settings.homeOf = [this](std::uint32_t) { return std::optional<std::string>(root_); };
    Helper h(static_cast<std::uint32_t>(getuid()), settings);
    EXPECT_EQ(h.perform(R"({"removePath":{"_0":"relative"}})"), "notAbsolutePath");

    // A link planted at the log's place is not written through.
    const std::string target = root_ + "/target";
    std::ofstream(target) << "";
    fs::create_symlink(target, root_ + "/linked.log");
    appendLogRecord(root_ + "/linked.log", "nope");
    EXPECT_EQ(readFile(target), "");
}

TEST_F(Road, EachRecordStaysOneLineWhateverThePathHolds) {
    auto h = helper(static_cast<std::uint32_t>(getuid()));
    const std::string forged = "[2026-01-01T00:00:00Z] OK removePath(\"/etc\")";
    struct Case {
        std::string separator, escaped;
    } cases[] = {
        {"\n", "\\n"}, {"\r", "\\r"},
        {"\xE2\x80\xA8", "\\xE2\\x80\\xA8"},  // a line separator to some readers
    };
    std::vector<std::string> expected;
    for (const auto& c : cases) {
        // A folder that is not there: validation lets it through and the removal fails.
        const std::string path = root_ + "/gone" + c.separator + forged;
        ASSERT_EQ(h.perform(R"({"removePath":{"_0":)" + nlohmann::json(path).dump() + "}}"),
                  "operationFailed: remove of " + path + " failed or was redirected");
        expected.push_back("FAILED removePath(\"" + root_ + "/gone" + c.escaped +
                           "[2026-01-01T00:00:00Z] OK removePath(\\\"/etc\\\")\"): remove of " + root_ + "/gone" +
                           c.escaped + forged + " failed or was redirected");
    }
    EXPECT_EQ(records(), expected);
}

TEST_F(Road, AFailureTooLongForAFrameIsToldInASentence) {
    const std::size_t room = wire::kMaxReplyText - PrivilegedHelper::failurePrefix.size();
    const auto tooLong = [](std::size_t n) {
        return "the failure text was too long to send (" + std::to_string(n) + " bytes)";
    };
    struct Case {
        std::size_t length;
        std::string told;
    } cases[] = {
        {room, std::string(room, 'e')}, {room + 1, tooLong(room + 1)}, {8u << 20, tooLong(8u << 20)},
    };
    for (const auto& c : cases) {
        HelperSettings settings;
        settings.logPath = log_;
        settings.homeOf = [this](std::uint32_t) { return std::optional<std::string>(root_); };
        settings.operations.facts.run = [&](const std::string&, const std::vector<std::string>&, double, bool,
                                           ToolErrors) -> ToolResult { throw OVError(std::string(c.length, 'e')); };
        fs::remove(log_);
        auto reply = Helper(static_cast<std::uint32_t>(getuid()), settings).perform(R"({"thinSnapshots":{}})");
        ASSERT_TRUE(reply);
        EXPECT_EQ(*reply, "operationFailed: " + c.told) << c.length;
        EXPECT_LE(wire::encodeReply(reply).size(), wire::kMaxFrame);
        // The log says what the caller was told, in one record.
        const std::string log = readFile(log_).value_or("");
        EXPECT_EQ(log.substr(log.find("] ") + 2), "FAILED thinSnapshots: " + c.told + "\n") << c.length;
    }
}

}  // namespace
}  // namespace orvane::helper
