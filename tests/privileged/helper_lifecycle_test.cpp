#include "core/privileged/helper_lifecycle.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/privileged/admin_fallback.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using testing::TempDir;

TEST(HelperLifecycle, OnlyARegisteredHelperOfTheRequiredMajorVersionWorks) {
    using D = HelperUpgradeDecision;
    struct Case {
        bool registered;
        std::optional<std::string> version;
        D decision;
    };
    for (const auto& c : std::initializer_list<Case>{{false, "6", D::notInstalled}, {true, " 6\n", D::current},
                                                     {true, "7.0", D::current}, {true, "5.9", D::needsUpgrade},
                                                     {true, std::nullopt, D::needsUpgrade}, {true, " \n", D::needsUpgrade},
                                                     {true, "abc", D::needsUpgrade}})
        EXPECT_EQ(helperUpgradeDecision(c.registered, c.version, 6), c.decision) << c.version.value_or("nil");
    EXPECT_TRUE(permitsPrivilegedWork(D::current));
    EXPECT_FALSE(permitsPrivilegedWork(D::needsUpgrade));
    EXPECT_TRUE(mayAutoUpgradeHelper(0));
    EXPECT_FALSE(mayAutoUpgradeHelper(1));
    EXPECT_EQ(helperUnavailableNote(D::current, true), "");
    EXPECT_NE(helperUnavailableNote(D::notInstalled, true), helperUnavailableNote(D::needsUpgrade, true));
    EXPECT_NE(helperUnavailableNote(D::notInstalled, false).find("administrator password"), std::string::npos);
}

TEST(HelperLifecycle, AuthorisedClientsComeFromTheEmbeddedListWithinTheBound) {
    TempDir dir;
    const std::string list =
        "\x7F" "ELF\x01\x02<key>SMAuthorizedClients</key>\n\t<array>\n"
        "\t\t<string>identifier \"com.vendor.app\" and anchor apple generic and certificate leaf[subject.OU] = X</string>\n"
        "\t\t<string>identifier com.vendor.app-lite or identifier \"com.vendor.app\"</string>\n"
        "\t</array>\n<string>identifier com.outside.array</string>";
    const std::string tool = dir.write("tool", list);
    const std::vector<std::string> both = {"com.vendor.app", "com.vendor.app-lite"};
    EXPECT_EQ(smAuthorizedClients(tool, 1 << 20), both);
    // The closing tag beyond the bound: nothing, rather than a list cut short.
    EXPECT_EQ(smAuthorizedClients(tool, list.find("</array>") + 4), std::vector<std::string>{});
    EXPECT_EQ(smAuthorizedClients(dir.write("plain", "identifier com.a"), 1 << 20), std::vector<std::string>{});
    EXPECT_EQ(smAuthorizedClients(dir / "missing", 1 << 20), std::vector<std::string>{});
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(smAuthorizedClients(dir / "fifo", 1 << 20), std::vector<std::string>{});

    EXPECT_TRUE(isOrphanedHelper(both, {"com.other"}, true));
    EXPECT_FALSE(isOrphanedHelper(both, {"COM.VENDOR.APP"}, true));
    EXPECT_FALSE(isOrphanedHelper(both, {"com.other"}, false));
    EXPECT_FALSE(isOrphanedHelper(both, {}, true));
    EXPECT_FALSE(isOrphanedHelper({}, {"com.other"}, true));
}

TEST(AdminFallback, QuotingAndTheScriptAroundACommand) {
    EXPECT_EQ(shellQuote("a'b"), "'a'\\''b'");
    EXPECT_EQ(shellQuote(""), "''");
    EXPECT_EQ(adminShellScript("rm \"a\\b\""),
              "with timeout of 86400 seconds\ndo shell script \"rm \\\"a\\\\b\\\"\" with administrator privileges\n"
              "end timeout");
}

TEST(AdminFallback, TheOutcomeOfAScriptRunByAStandIn) {
    TempDir dir;
    auto standIn = [&](const std::string& name, const std::string& body) {
        const std::string path = dir.write(name, "#!/bin/sh\n" + body + "\n");
        ::chmod(path.c_str(), 0755);
        return path;
    };
    EXPECT_EQ(runAdminScript("x", standIn("ok", "exit 0")), AdminOutcome(admin::OK{}));
    EXPECT_EQ(runAdminScript("x", standIn("number", "echo 'execution error: User canceled. (-128)' >&2; exit 1")),
              AdminOutcome(admin::Cancelled{}));
    EXPECT_EQ(runAdminScript("x", standIn("words", "echo 'the user cancelled it'; exit 1")), AdminOutcome(admin::Cancelled{}));
    EXPECT_EQ(runAdminScript("x", standIn("silent", "exit 1")),
              AdminOutcome(admin::Failed{"the privileged step exited with status 1"}));
    EXPECT_EQ(runAdminScript("x", standIn("said", "echo '  disk full'; echo 'for good' >&2; exit 3")),
              AdminOutcome(admin::Failed{"disk full for good"}));
    // The script arrives as one argument after -e, whatever it holds.
    EXPECT_EQ(runAdminScript("a 'b' \"c\"", standIn("args", "[ \"$1\" = -e ] && [ \"$2\" = \"a 'b' \\\"c\\\"\" ]")),
              AdminOutcome(admin::OK{}));
    EXPECT_FALSE(isOK(runAdminScript("x", dir / "absent")));
}

TEST(AdminFallback, WhatAShellWouldFollowAndWhereItIsExposed) {
    const std::string home = "/Users/a";
    EXPECT_EQ(fallbackFollowedPaths(PrivilegedOperation(op::DeleteTrashedApp{"Big.app"}), home),
              std::vector<std::string>{"/Users/a/.Trash/Big.app"});
    EXPECT_EQ(fallbackFollowedPaths(PrivilegedOperation(op::MoveAside{"/L/a", "/L/b", 0}), home),
              (std::vector<std::string>{"/L/a", "/L/b"}));
    EXPECT_EQ(fallbackFollowedPaths(PrivilegedOperation(op::ThinSnapshots{}), home), std::vector<std::string>{});

    TempDir dir;
    EXPECT_TRUE(fallbackSwapVulnerable("/Users/a/Music/Big/File", home));
    EXPECT_FALSE(fallbackSwapVulnerable("/usr/lib/x/y", home));
    // The path's own parent is not examined; from the grandparent up, a folder anyone may write
    // without the sticky bit is exposed, and a sticky one is not.
    dir.write("open/sticky/inner/file");
    ::chmod((dir / "open").c_str(), 0777);
    ::chmod((dir / "open/sticky").c_str(), 01777);
    EXPECT_TRUE(fallbackSwapVulnerable(dir / "open/sticky/inner/file", home));
    ::chmod((dir / "open").c_str(), 0755);
    EXPECT_FALSE(fallbackSwapVulnerable(dir / "open/sticky/inner/file", home));
    EXPECT_FALSE(fallbackSwapVulnerable(dir / "open/sticky/file", home));
    ::chmod((dir / "open/sticky").c_str(), 0777);
    EXPECT_FALSE(fallbackSwapVulnerable(dir / "open/sticky/file", home));
    EXPECT_TRUE(fallbackSwapVulnerable(dir / "open/sticky/inner/file", home));
}

TEST(AdminFallback, TheWordsForAHalfFinishedSwap) {
    const TreeTally before{3, 300, 1};
    EXPECT_EQ(adminSwapAftermath(false, before, before), AdminSwapAftermath::fullyRemoved);
    EXPECT_EQ(adminSwapAftermath(true, before, before), AdminSwapAftermath::unchanged);
    EXPECT_EQ(adminSwapAftermath(true, before, TreeTally{3, 300, 0}), AdminSwapAftermath::partiallyRemoved);

    EXPECT_EQ(failedAdminSwapMessage(AdminSwapAftermath::fullyRemoved, "/L/it's", "/V/copy", true),
              "the administrator step didn't finish, and /L/it's is no longer in place. Your verified copy is safe at "
              "/V/copy — reconnect it by running this in Terminal: sudo ln -s '/V/copy' '/L/it'\\''s'");
    EXPECT_NE(failedAdminSwapMessage(AdminSwapAftermath::partiallyRemoved, "/L/a", "/V/a", false).find("INCOMPLETE"),
              std::string::npos);
    EXPECT_TRUE(failedAdminSwapMessage(AdminSwapAftermath::unchanged, "/L/a", "/V/a", true).ends_with("exactly as it was."));
}

}  // namespace
}  // namespace orvane
