#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <thread>

#include "core/common/base64.hpp"
#include "core/privileged/wire.hpp"
#include "tests/cli/run_orvane.hpp"
#include "tests/support/http_test_server.hpp"
#include "tests/support/test_signer.hpp"

namespace orvane::testing {
namespace {

const std::string kFeed = R"({"version":"0.9.1","notes":"Faster scans","download_url":"https://example.com/get/Orvane-0.9.1.zip?x=1"})";

TEST(UpdateCommands, ASignedFeedFromAForgedOne) {
    const TestSigner signer;
    const std::string key = " --key " + signer.publicKeyBase64();
    auto signedFeed = [&](std::string feed) {
        return [feed, &signer](const TempDir& dir) {
            dir.write("feed.json", feed);
            dir.write("feed.json.sig", base64Encoded(signer.sign(feed)) + "\n");
        };
    };
    auto forged = [&](const TempDir& dir) {
        signedFeed(kFeed)(dir);
        std::string feed = kFeed;
        feed[14] = '8';
        dir.write("feed.json", feed);
    };
    auto bare = [](const TempDir& dir) { dir.write("feed.json", kFeed); };
    const std::string offer =
        "Verified: the update information matches its signature.\n"
        "On offer: 0.9.1 (installed: 0.1.0), newer.\n"
        "Download: https://example.com/get/Orvane-0.9.1.zip?x=1 (zip)\n"
        "Notes: Faster scans\n";
    const CommandCase cases[] = {
        {"update check {D}/feed.json" + key, 0, CommandCase::out, offer, CommandCase::whole, signedFeed(kFeed)},
        {"update check {D}/feed.json" + key, 1, CommandCase::out,
         "Rejected: the update information didn't match its signature.\nNothing on offer is shown or installed.\n",
         CommandCase::whole, forged},
        {"update check {D}/feed.json" + key, 1, CommandCase::out, "arrived without a signature", CommandCase::contains, bare},
        // The built-in key is not the test's.
        {"update check {D}/feed.json", 1, CommandCase::out, "didn't match its signature", CommandCase::contains,
         signedFeed(kFeed)},
        {"update check {D}/feed.json --key ''", 0, CommandCase::out, "Not signed", CommandCase::contains, bare},
        {"update check {D}/feed.json --key QUJD", 1, CommandCase::out, "this build's update key is unreadable",
         CommandCase::contains, signedFeed(kFeed)},
        {"update check {D}/feed.json --installed 1.0-beta" + key, 1, CommandCase::out,
         "older than the installed version: a downgrade is never installed", CommandCase::contains, signedFeed(kFeed)},
        {"update check {D}/feed.json --installed 0.9.1" + key, 1, CommandCase::out, ", not newer.", CommandCase::contains,
         signedFeed(kFeed)},
        {"update check {D}/feed.json" + key, 1, CommandCase::out, "Download: refused, http://example.com/a.zip is not",
         CommandCase::contains, signedFeed(R"({"version":"2","download_url":"http://example.com/a.zip"})")},
        {"update check {D}/feed.json" + key, 2, CommandCase::err, "orvane: The update information has no \"download_url\".\n",
         CommandCase::whole, signedFeed(R"({"version":"2"})")},
        {"update check {D}/feed.json" + key, 2, CommandCase::err, "is not a regular file", CommandCase::contains,
         [](const TempDir& dir) { ::mkfifo((dir / "feed.json").c_str(), 0600); }},
        {"update check http://example.com/feed.json", 2, CommandCase::err, "is not an https address", CommandCase::contains},
    };
    expectCommands(cases);

    TempDir dir;
    signedFeed(kFeed)(dir);
    const auto o = runOrvane("update check --json " + (dir / "feed.json") + key + " --installed 1.0", dir.path());
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(nlohmann::json::parse(o.out),
              nlohmann::json::parse(R"({"verdict":"verified","reason":null,"version":"0.9.1","installed":"1.0",
                "newer":false,"downgrade":true,"download":{"url":"https://example.com/get/Orvane-0.9.1.zip?x=1",
                "kind":"zip"},"notes":"Faster scans"})"));
}

TEST(UpdateCommands, AFeedOverHTTPSWithItsSignatureBeside) {
    const TestSigner signer;
    const auto certificate = TestCertificate::make();
    HttpTestServer server(&certificate);
    server.on("/feed.json", {httpResponse(200, kFeed), httpResponse(200, kFeed)});
    server.on("/feed.json.sig", {httpResponse(200, base64Encoded(signer.sign(kFeed))), httpResponse(404, "none")});
    TempDir dir;
    dir.write("ca.pem", certificate.certificatePEM);
    // No feed named: the address set in the user defaults is the one asked.
    dir.write("ledger/user-defaults.json", nlohmann::json{{"updateFeedURL", " " + server.url("/feed.json") + "\n"}}.dump());
    const std::string options = " --key " + signer.publicKeyBase64() + " --cacert " + (dir / "ca.pem");
    auto o = runOrvane("--ledger-dir " + (dir / "ledger") + " update check" + options, dir.path());
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_NE(o.out.find("Verified"), std::string::npos) << o.out;
    // A signature that is not there is a missing one.
    o = runOrvane("update check " + server.url("/feed.json") + options, dir.path());
    EXPECT_EQ(o.status, 1) << o.err;
    EXPECT_NE(o.out.find("arrived without a signature"), std::string::npos) << o.out;
}

TEST(UpdateCommands, ThePackagesSignerFromTheRecordedMac) {
    TempDir dir;
    auto o = runOrvane(kAlexReplay + "update pkg-team /Users/alex/Downloads/Nudge_Suite-1.1.9.81436.pkg", dir.path());
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "Signed for team 9GQZ7KUFR6.\n");
    o = runOrvane(kAlexReplay + "update pkg-team --json /Users/alex/Downloads/Other.pkg", dir.path());
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(nlohmann::json::parse(o.out)["team"], nullptr);
}

// A socket that answers one version question with `reply`, or closes without a word.
class StandInHelper {
public:
    StandInHelper(const std::string& path, std::optional<std::string> reply) : path_(path) {
        fd_ = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::listen(fd_, 4);
        thread_ = std::thread([this, reply] {
            const int client = ::accept(fd_, nullptr, nullptr);
            if (client < 0) return;
            if (wire::readFrame(client) && reply) wire::writeFrame(client, wire::encodeReply(*reply));
            ::close(client);
        });
    }
    ~StandInHelper() {
        ::shutdown(fd_, SHUT_RDWR);
        thread_.join();
        ::close(fd_);
    }

private:
    std::string path_;
    int fd_ = -1;
    std::thread thread_;
};

TEST(HelperCommands, StatusSaysWhetherTheHelperCanDoPrivilegedWork) {
    struct Case {
        std::optional<std::optional<std::string>> server;  // none: no socket at all
        const char* decision;
        int status;
    };
    for (const auto& c : std::initializer_list<Case>{{std::nullopt, "notInstalled", 1},
                                                     {std::optional<std::string>("5"), "needsUpgrade", 1},
                                                     {std::optional<std::string>(" 6\n"), "current", 0},
                                                     {std::optional<std::string>(std::nullopt), "needsUpgrade", 1}}) {
        TempDir dir;
        const std::string socket = dir / "h.sock";
        std::optional<StandInHelper> helper;
        if (c.server) helper.emplace(socket, *c.server);
        const auto o = runOrvane("helper status --json --socket " + socket, dir.path());
        EXPECT_EQ(o.status, c.status) << c.decision << o.err;
        const auto json = nlohmann::json::parse(o.out, nullptr, false);
        EXPECT_EQ(json.value("decision", ""), c.decision);
        EXPECT_EQ(json.value("registered", false), c.server.has_value());
        EXPECT_EQ(json.value("permitsPrivilegedWork", true), c.status == 0);
        EXPECT_EQ(json.value("note", "?").empty(), c.status == 0);
    }
    TempDir dir;
    const auto o = runOrvane("helper status --socket " + (dir / "none.sock"), dir.path());
    EXPECT_NE(o.out.find("sudo systemctl enable --now orvane-helper"), std::string::npos) << o.out;
}

TEST(PlanCommands, FallbackNamesTheLinksAShellWouldFollow) {
    auto plan = [](const TempDir& dir) {
        dir.write("real/file");
        ::symlink((dir / "real").c_str(), (dir / "link").c_str());
        dir.write("through.json", R"([{"removePath":{"_0":")" + (dir / "link/file") + R"("}},{"thinSnapshots":{}}])");
        dir.write("direct.json", R"([{"deleteTrashedApp":{"name":"A.app"}}])");
    };
    const CommandCase cases[] = {
        {"plan fallback {D}/through.json", 1, CommandCase::out, "{D}/link/file: goes through a link", CommandCase::contains,
         plan},
        {"plan fallback {D}/direct.json --home {D}/home", 0, CommandCase::out,
         "Step 1: deleteTrashedApp(name: \"A.app\")\n  {D}/home/.Trash/A.app: no link on the way; a folder above it could be "
         "exchanged while the step runs\n",
         CommandCase::whole, plan},
        {"plan fallback {D}/through.json", 2, CommandCase::err, "The plan cannot be read", CommandCase::contains,
         [](const TempDir& dir) { dir.write("through.json", "[{"); }},
    };
    expectCommands(cases);
}

TEST(SupportFolder, TheOldFolderTakesItsNewNameAtLaunch) {
    TempDir dir;
    dir.write("Library/Application Support/Orvane/history.json", "[]");
    const std::string prefix = "HOME=" + dir.path();
    // Not with a ledger folder of its own: that run is about another ledger.
    runOrvane("--ledger-dir " + (dir / "other") + " history", dir.path(), prefix);
    EXPECT_TRUE(std::filesystem::exists(dir / "Library/Application Support/Orvane"));
    const auto o = runOrvane("history", dir.path(), prefix);
    EXPECT_EQ(o.err, "");
    EXPECT_FALSE(std::filesystem::exists(dir / "Library/Application Support/Orvane"));
    EXPECT_TRUE(std::filesystem::exists(dir / "Library/Application Support/Velloran Orvane/history.json"));
}

}  // namespace
}  // namespace orvane::testing
