#include "core/scan/unreadable.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using Reason = UnreadableReason;

TEST(UnreadableFolders, ReasonsAtTheEdges) {
    const std::map<std::string, std::string> browsers = {{"/h/Chrome", "Chrome"}, {"/h/Arc", "Arc"}};
    struct Case {
        std::vector<std::string> paths;
        bool granted;
        std::vector<UnreadableFolder> expected;
    } cases[] = {
        // Only the outermost refusal is shown, in order.
        {{"/h/b/inner", "/h/b", "/h/a"}, false,
         {{"/h/a", Reason::needsFullDiskAccess, {}}, {"/h/b", Reason::needsFullDiskAccess, {}}}},
        // With access granted, nothing is the browser's fault any more.
        {{"/h/Chrome"}, true, {{"/h/Chrome", Reason::protectedByMacOS, {}}}},
        {{"/h/Chrome"}, false, {{"/h/Chrome", Reason::browserNeedsFullDiskAccess, "Chrome"}}},
        {{"/h/Arc/Default/Cache"}, false, {{"/h/Arc/Default/Cache", Reason::browserNeedsFullDiskAccess, "Arc"}}},
        // A sibling whose name merely begins alike is no browser's.
        {{"/h/Chrome Beta"}, false, {{"/h/Chrome Beta", Reason::needsFullDiskAccess, {}}}},
        {{}, false, {}},
    };
    for (const auto& c : cases) EXPECT_EQ(unreadableFolders(c.paths, browsers, c.granted), c.expected) << c.paths.size();
}

TEST(UnreadableFolders, ExplanationAndFix) {
    EXPECT_EQ((UnreadableFolder{"/x", Reason::browserNeedsFullDiskAccess, {}}).explanation(),
              "Browser data couldn't be checked: needs Full Disk Access. Its size isn't included anywhere in this scan.");
    EXPECT_EQ((UnreadableFolder{"/x", Reason::needsFullDiskAccess, {}}).fix(), "Turn on Full Disk Access");
    EXPECT_EQ((UnreadableFolder{"/x", Reason::protectedByMacOS, {}}).fix(), std::nullopt);
    EXPECT_EQ(toJSON(UnreadableFolder{"/x", Reason::protectedByMacOS, {}}).dump(),
              R"({"path":"/x","reason":"protectedByMacOS","browser":null,"explanation":"macOS keeps this folder from )"
              R"(every app, even with Full Disk Access. Nothing to do; it's part of System Data.","fix":null})");
}

TEST(SkippedCloudRoots, RootAndInsideOnly) {
    const struct {
        const char* path;
        bool inside;
    } cases[] = {
        {"/Users/a/Library/Mobile Documents", true},
        {"/Users/a/Library/Mobile Documents/com~apple~CloudDocs/x", true},
        {"/Users/a/Library/CloudStorage/Dropbox", true},
        {"/Users/a/Library/Mobile Documents Old", false},
        {"/Users/a/Library/CloudStorageX", false},
        {"/Users/a/Library", false},
    };
    for (const auto& c : cases) EXPECT_EQ(isInSkippedCloudRoot(c.path, "/Users/a"), c.inside) << c.path;
}

TEST(FullDiskAccess, VerdictOfProbes) {
    const FolderProbe none{}, listable{true, true}, refused{true, false};
    EXPECT_TRUE(FDA::verdict({}));
    EXPECT_TRUE(FDA::verdict({none, none, none, none}));  // a Mac without these folders shows no refusal
    EXPECT_TRUE(FDA::verdict({listable, refused}));
    EXPECT_FALSE(FDA::verdict({none, refused}));
}

// A folder this user may not open is found refused on the disk itself, not by rule.
TEST(FullDiskAccess, ARealRefusalSeenByAnotherUser) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to make a folder another user cannot read";
    testing::TempDir dir;
    ::chmod(dir.path().c_str(), 0755);
    for (const char* name : {"Library/Safari", "Library/Mail/V10"}) std::filesystem::create_directories(dir / name);
    ::chmod((dir / "Library/Safari").c_str(), 0700);
    Facts facts = Facts::real();
    facts.home = [&](std::string_view component) { return dir / std::string(component); };

    const pid_t child = ::fork();
    if (child == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(126);
        const bool right = FDA::probe(dir / "Library/Safari", facts) == FolderProbe{true, false} &&
                           FDA::probe(dir / "Library/Mail", facts) == FolderProbe{true, true} &&
                           FDA::probe(dir / "Library/Cookies", facts) == FolderProbe{} && FDA::granted(facts);
        ::_exit(right ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
}  // namespace orvane
