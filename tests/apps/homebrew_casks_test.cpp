// Homebrew casks: definitions and receipts as Homebrew writes them, Caskrooms on real folders, and
// brew run the way an uninstall runs it.
#include "core/apps/homebrew_casks.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "core/common/json_files.hpp"
#include "core/common/replay.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using orvane::testing::writeFile;

std::string capture(const std::string& name) {
    return readFile(std::string(TEST_DATA_DIR) + "/homebrew/" + name).value_or("");
}

TEST(CaskTokens, SafeAsPathAndArgument) {
    for (const char* good : {"foo-bar@1.2", "c++", "a_b", "0ad"}) EXPECT_TRUE(isCaskToken(good)) << good;
    for (const auto& bad :
         Strings{"", "Foo", "-foo", ".foo", "foo bar", "foo/bar", "caf\xC3\xA9", std::string(129, 'a')})
        EXPECT_FALSE(isCaskToken(bad)) << bad;
    EXPECT_TRUE(isCaskToken(std::string(128, 'a')));
}

TEST(CaskDefinitions, RecordsFromCaptures) {
    const auto docker =
        caskRecordFromCaskJSON(capture("cask-api-json-2023-01-docker.json"), "docker", "/opt/homebrew/Caskroom");
    ASSERT_TRUE(docker);
    EXPECT_EQ(docker->apps, Strings{"Docker.app"});
    EXPECT_TRUE(docker->needsAdmin);     // its uninstall stanza
    ASSERT_EQ(docker->zap.size(), 21u);  // trash entries, then rmdir entries
    EXPECT_EQ(docker->zap.front(), "$(brew --prefix)/bin/docker-compose.backup");
    EXPECT_EQ(docker->zap.back(), "~/Library/Caches/KSCrashReports");
    EXPECT_EQ(docker->brewPath(), "/opt/homebrew/bin/brew");

    const std::string everything = capture("cask-api-json-FORMAT-FIXTURE-homebrew-everything.json");
    EXPECT_EQ(
        caskRecordFromCaskJSON(everything, "everything", "/usr/local/Caskroom"),
        (CaskRecord{
            "everything", "/usr/local/Caskroom", {"Everything.app"}, true, {"~/.everything", "~/Library/Everything"}}));
    // The same artifacts as a receipt keeps them.
    const auto artifacts = nlohmann::json::parse(everything)["artifacts"];
    EXPECT_EQ(
        caskRecordFromInstallReceipt(nlohmann::json{{"uninstall_artifacts", artifacts}}.dump(), "everything", "/c"),
        (CaskRecord{"everything", "/c", {"Everything.app"}, true, {"~/.everything", "~/Library/Everything"}}));

    // The old index's bare arrays and strings carry no stanza names: nothing is read from them.
    for (const char* old : {"cask-data-json-2019-OLDFORMAT-1password-formulae.brew.sh.json",
                            "cask-data-json-OLDFORMAT-adguard-pkg-formulae.brew.sh.json"})
        EXPECT_EQ(caskRecordFromCaskJSON(capture(old), "t", "/c"), (CaskRecord{"t", "/c", {}, false, {}})) << old;
    // A receipt cut short, one without its artifacts, and a definition given as a receipt.
    EXPECT_EQ(caskRecordFromInstallReceipt(capture("cask-INSTALL_RECEIPT-2024-warp-brewPR17554-FRAGMENT.json.txt"), "t",
                                           "/c"),
              std::nullopt);
    EXPECT_EQ(caskRecordFromInstallReceipt(R"({"uninstall_artifacts": {"app": ["A.app"]}})", "t", "/c"), std::nullopt);
    EXPECT_EQ(caskRecordFromInstallReceipt(everything, "t", "/c"), std::nullopt);
}

TEST(CaskDefinitions, ArtifactShapes) {
    const auto read = readArtifacts(nlohmann::json::parse(R"j([
        {"app": ["Sub/Foo.APP", {"target": "Bar.app"}, "notes.txt"]},
        {"zap": [{"rmdir": "~/r", "trash": "~/t", "delete": ["~/d1", 3, "~/d2"]}, "~/skipped"]},
        {"binary": ["x"], "installer": [{"manual": "x"}]},
        "AdGuard.pkg (Pkg)"])j"));
    EXPECT_EQ(read, (CaskArtifacts{{"Foo.APP"}, true, {"~/t", "~/d1", "~/d2", "~/r"}}));
    EXPECT_EQ(readArtifacts(nlohmann::json::parse(R"([{"binary": ["x"], "artifact": ["y"]}])")).needsAdmin, false);
}

TEST(CaskDefinitions, RubySourceLines) {
    struct Case {
        const char* line;
        Strings apps;
        bool needsAdmin;
    } cases[] = {
        {"  app \"Foo.app\"", {"Foo.app"}, false},
        {"app 'Foo.app'", {}, false},
        {"app \"Foo.app\", target: \"Bar.app\"", {"Foo.app"}, false},
        {"app\t\"Sub/Baz.App\"", {"Baz.App"}, false},
        {"app \"Foo.app", {}, false},
        {"app \"Tool\"", {}, false},
        {"application \"Foo.app\"", {}, false},
        {"pkg \"x.pkg\"", {}, true},
        {"pkg", {}, false},
        {"\tuninstall quit: \"x\"", {}, true},
        {"installer manual: \"Install.app\"", {}, true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(caskRecordFromRubySource(std::string("cask \"t\" do\n") + c.line + "\nend\n", "t", "/c"),
                  (CaskRecord{"t", "/c", c.apps, c.needsAdmin, {}}))
            << c.line;
}

TEST(CaskDefinitions, ZapPathsAndAppMatching) {
    EXPECT_EQ(zapPath("~/Library/Foo", "/Users/me"), "/Users/me/Library/Foo");
    for (const char* refused :
         {"/Library/Foo", "~/Library/*", "~/../x", "~/a?", "~/[ab]", "~user/x", "$(brew --prefix)/bin/x", "~/", "~/.",
          "~//", "~/./"})
        EXPECT_EQ(zapPath(refused, "/Users/me"), std::nullopt) << refused;

    const std::vector<CaskRecord> casks = {{"Bad", "/c", {"Foo.app"}, false, {}},
                                           {"foo", "/c", {"Other.app", "foo.APP"}, false, {}},
                                           {"foo-too", "/c", {"Foo.app"}, false, {}}};
    const Strings roots = {"/Applications/", "/Users/me/Applications"};
    EXPECT_EQ(caskForApp("/Applications/Foo.app", roots, casks)->token, "foo");
    EXPECT_EQ(caskForApp("/Users/me/Applications/Other.app", roots, casks)->token, "foo");
    EXPECT_EQ(caskForApp("/Applications/Sub/Foo.app", roots, casks), std::nullopt);
    EXPECT_EQ(caskForApp("/Applications/Missing.app", roots, casks), std::nullopt);
}

TEST(BrewUninstall, InvocationAndItsRefusals) {
    const auto invocation = brewUninstallInvocation("/opt/homebrew/bin/brew", "foo", "/Users/me", "me");
    ASSERT_TRUE(invocation);
    EXPECT_EQ(invocation->executable, "/opt/homebrew/bin/brew");
    EXPECT_EQ(invocation->arguments, (Strings{"uninstall", "--cask", "foo"}));
    EXPECT_EQ(invocation->environment.size(), 10u);
    EXPECT_EQ(invocation->environment.at("PATH"), "/opt/homebrew/bin:/opt/homebrew/sbin:/usr/bin:/bin:/usr/sbin:/sbin");
    EXPECT_EQ(invocation->environment.at("LOGNAME"), "me");
    EXPECT_EQ(invocation->environment.at("HOME"), "/Users/me");
    EXPECT_EQ(invocation->environment.at("HOMEBREW_NO_AUTO_UPDATE"), "1");
    EXPECT_EQ(brewUninstallDisplay("foo"), "brew uninstall --cask foo");

    for (const auto& [brew, token] : std::vector<std::pair<std::string, std::string>>{
             {"/opt/homebrew/bin/brew", "--force"}, {"bin/brew", "foo"}, {"/usr/local/bin/brew2", "foo"}})
        EXPECT_EQ(brewUninstallInvocation(brew, token, "/Users/me", "me"), std::nullopt) << brew << " " << token;

    const CaskRecord cask{"foo", "/nowhere/Caskroom", {"Foo.app"}, false, {}};
    EXPECT_EQ(HomebrewCasks::uninstall(cask, std::nullopt, "/Users/me", "me"),
              (InvocationResult{-1, "Homebrew wasn't found at /nowhere/bin/brew."}));
}

TEST(CaskIndex, AppsByLowercasedName) {
    const std::string docker = capture("cask-api-json-2023-01-docker.json");
    const std::string everything = capture("cask-api-json-FORMAT-FIXTURE-homebrew-everything.json");
    const std::string latest = R"({"token": "nightly", "version": "latest", "artifacts": [{"app": ["Nightly.app"]}]})";
    const std::string rival = R"({"token": "docker-edge", "version": "5", "artifacts": [{"app": ["docker.app"]}]})";
    const auto index = parseCaskIndex("[" + docker + "," + latest + "," + rival + "," + everything + "]");
    EXPECT_EQ(index.size(), 2u);
    EXPECT_EQ(index.at("docker.app"),
              (CaskEntry{"docker", "4.16.1,95567", "https://www.docker.com/products/docker-desktop",
                         "https://desktop.docker.com/mac/main/amd64/95567/Docker.dmg"}));
    EXPECT_EQ(index.at("everything.app").token, "everything");
    EXPECT_TRUE(parseCaskIndex(docker).empty());  // one cask, not an index
    EXPECT_TRUE(parseCaskIndex("[" + docker + ", \"docker\"]").empty());

    EXPECT_EQ(acceptedCaskIndex(200, "[" + docker + "]")->size(), 1u);
    EXPECT_EQ(acceptedCaskIndex(200, "[]"), std::nullopt);
    EXPECT_EQ(acceptedCaskIndex(404, "[" + docker + "]"), std::nullopt);
    EXPECT_EQ(acceptedCaskIndex(200, std::nullopt), std::nullopt);
}

TEST(Caskrooms, ReceiptsThenKeptDefinitions) {
    orvane::testing::TempDir temp;
    const std::string room = temp.path() + "/Caskroom", other = temp.path() + "/Other";
    const std::string receipt = "{\"uninstall_artifacts\": [{\"app\": [\"Docker.app\"]}, {\"uninstall\": [{}]}]}";
    writeFile(room + "/docker/.metadata/INSTALL_RECEIPT.json", receipt);
    // A receipt without apps, then an older and a newer kept definition.
    writeFile(room + "/everything/.metadata/INSTALL_RECEIPT.json", "{\"uninstall_artifacts\": []}");
    writeFile(room + "/everything/.metadata/1.0/20230101000000.000/Casks/everything.rb", "app \"Old.app\"\n");
    writeFile(room + "/everything/.metadata/1.2.3/20240709032016.445/Casks/everything.json",
              capture("cask-api-json-FORMAT-FIXTURE-homebrew-everything.json"));
    // Ruby that is not valid UTF-8 is repaired, not refused.
    writeFile(room + "/legacy/.metadata/2/20200101000000.000/Casks/legacy.rb",
              "# \xFF\nsapp \"x\"\napp \"Legacy \xE2.app\"\n");
    writeFile(room + "/broken/.metadata/INSTALL_RECEIPT.json", "{");
    writeFile(room + "/Upper/.metadata/INSTALL_RECEIPT.json", receipt);
    fs::create_directories(room + "/empty");
    writeFile(other + "/zed/.metadata/INSTALL_RECEIPT.json", "{\"uninstall_artifacts\": [{\"app\": [\"Zed.app\"]}]}");

    const auto casks = HomebrewCasks::installed({room, temp.path() + "/missing", other});
    EXPECT_EQ(casks, (std::vector<CaskRecord>{
                         {"docker", room, {"Docker.app"}, true, {}},
                         {"everything", room, {"Everything.app"}, true, {"~/.everything", "~/Library/Everything"}},
                         {"legacy", room, {"Legacy \xEF\xBF\xBD.app"}, false, {}},
                         {"zed", other, {"Zed.app"}, false, {}},
                     }));
    EXPECT_EQ(HomebrewCasks::cask("/Users/me/Applications/zed.app", "/Users/me", {room, other})->token, "zed");
    EXPECT_EQ(HomebrewCasks::cask("/Users/you/Applications/Zed.app", "/Users/me", {room, other}), std::nullopt);

    EXPECT_EQ(homebrewCask("Zed.app", {room, other}), "zed");
    EXPECT_EQ(homebrewCask("zed.app", {room, other}), std::nullopt);  // exact names only

    writeFile(temp.path() + "/bin/brew", "#!/bin/sh\n");
    EXPECT_EQ(homebrewExecutable("docker", {temp.path()}), std::nullopt);  // not executable yet
    fs::permissions(temp.path() + "/bin/brew", fs::perms::owner_exec, fs::perm_options::add);
    EXPECT_EQ(homebrewExecutable("docker", {"/nowhere", temp.path()}), temp.path() + "/bin/brew");
    EXPECT_EQ(homebrewExecutable("zed", {temp.path()}), std::nullopt);
}

TEST(Caskrooms, ReadFromARecordedMacThatNothingChanges) {
    orvane::testing::TempDir temp;
    const std::string dir = temp.path();
    writeFile(dir + "/home", "/Users/alex\n");
    writeFile(dir + "/tools.json", "[]");
    writeFile(dir + "/root/opt/homebrew/Caskroom/everything/.metadata/1.2.3/20240709032016.445/Casks/everything.json",
              capture("cask-api-json-FORMAT-FIXTURE-homebrew-everything.json"));
    writeFile(dir + "/root/opt/homebrew/bin/brew", "#!/bin/sh\ntouch /tmp/brew-ran\n");
    fs::permissions(dir + "/root/opt/homebrew/bin/brew", fs::perms::owner_all);
    auto load = loadRecording(dir);
    ASSERT_TRUE(load.recording) << load.error;
    const Facts facts = recordedFacts(std::make_shared<const Recording>(std::move(*load.recording)));
    const Strings rooms(HomebrewCasks::defaultCaskrooms.begin(), HomebrewCasks::defaultCaskrooms.end());

    const auto cask = HomebrewCasks::cask("/Applications/Everything.app", "/Users/alex", rooms, facts);
    ASSERT_TRUE(cask);
    EXPECT_EQ(cask->caskroom, "/opt/homebrew/Caskroom");
    EXPECT_EQ(homebrewExecutable(facts), "/opt/homebrew/bin/brew");
    EXPECT_EQ(HomebrewCasks::uninstall(*cask, std::nullopt, "/Users/alex", "alex", facts),
              (InvocationResult{-1, "Nothing was changed: this is a recorded Mac."}));
}

TEST(RunInvocation, OnePipeInOrderWithinItsTime) {
    orvane::testing::TempDir temp;
    const std::string script = temp.path() + "/tool";
    writeFile(script,
              "#!/bin/sh\n"
              "echo \"out $1\"\n"
              "echo \"err $HOME ${LANG:-none}\" >&2\n"
              "echo out-again\n"
              "read line && echo \"got $line\"\n"
              "printf 'bad \\377\\n'\n"
              "[ \"$1\" = slow ] && exec sleep 30\n"
              "exit 3\n");
    fs::permissions(script, fs::perms::owner_all);

    EXPECT_EQ(runInvocation(script, {"one"}, {{"HOME", "/h"}, {"LANG", "C"}}, std::chrono::seconds(10)),
              (InvocationResult{3, "out one\nerr /h C\nout-again\nbad \xEF\xBF\xBD\n"}));

    const auto started = std::chrono::steady_clock::now();
    const auto slow = runInvocation(script, {"slow"}, {}, std::chrono::milliseconds(300));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
    EXPECT_EQ(slow, (InvocationResult{SIGTERM, "out slow\nerr  none\nout-again\nbad \xEF\xBF\xBD\n"}));

    EXPECT_EQ(runInvocation(temp.path() + "/missing", {}, {}, std::chrono::seconds(1)),
              (InvocationResult{-1, "Couldn't start " + temp.path() + "/missing: No such file or directory"}));
}

}  // namespace
}  // namespace orvane
