#include "core/startup/btm_audit.hpp"

#include <gtest/gtest.h>

#include <set>

#include "core/common/json_files.hpp"
#include "core/common/tool_runner.hpp"

namespace orvane {
namespace {

using Records = std::vector<BTMRecord>;
using Paths = std::set<std::string>;
using Reasons = std::map<BTMUnjudged, int>;

std::vector<std::string> dump(const std::string& name) {
    return splitToolOutput(readFile(std::string(TEST_DATA_DIR) + "/sfltool/" + name).value_or(""), false);
}

BTMAssessment assess(const Records& records, const Paths& present) {
    return assessBTMDump(records, 501, "/Users/amy", [&](const std::string& p) { return present.contains(p); });
}

TEST(BTMParse, RealDumps) {
    const std::pair<std::string, Records> cases[] = {
        // Records open at " #N:"; the helper's relative places stay as written.
        {"dumpbtm-keepresso-trimmed.txt",
         {{"Keepresso", "2.sh.gyorgy.keepresso", "", {"/Applications/Keepresso.app"}},
          {"keepresso-helper", "16.sh.gyorgy.keepresso.helper", "2.sh.gyorgy.keepresso",
           {"Contents/Library/LaunchDaemons/sh.gyorgy.keepresso.helper.plist", "Contents/MacOS/keepresso-helper"}},
          {"Logi Options+", "2.com.logi.cp-dev-mgr", "",
           {"/Library/Application Support/Logitech.localized/LogiOptionsPlus/logioptionsplus_agent.app"}},
          {"Keepresso", "2.sh.gyorgy.keepresso", "", {"/Users/gyorgy/.Trash/Keepresso 16.43.20.app"}}}},
        // The preamble is no record, "URL: (null)" no path, and "#1: 16.com…" under "Embedded Item
        // Identifiers:" no header.
        {"dumpbtm-macos-config-notes.txt",
         {{"(null)", "Unknown Developer", "", {}},
          {"launch.sh", "16.com.zerotier.one", "Unknown Developer",
           {"/Library/LaunchDaemons/com.zerotier.one.plist", "/Library/Application Support/ZeroTier/One/launch.sh"}},
          {"php-fpm", "16.homebrew.mxcl.php@8.2", "Unknown Developer",
           {"/Library/LaunchDaemons/homebrew.mxcl.php@8.2.plist", "/opt/homebrew/opt/php@8.2/sbin/php-fpm"}},
          {"AdGuard", "2.com.adguard.mac.adguard", "", {"/Applications/Adguard.app"}}}},
        {"dumpbtm-ventura-taomm-book.txt",
         {{"softwareupdate", "com.apple.softwareupdate", "Unknown Developer",
           {"/Library/LaunchDaemons/com.apple.softwareupdate.plist", "/Users/User/.local/softwareupdate"}},
          {"ChmodBPF", "org.wireshark.ChmodBPF", "Wireshark",
           {"/Library/LaunchDaemons/org.wireshark.ChmodBPF.plist", "/Library/Application Support/Wireshark/ChmodBPF/ChmodBPF"}}}},
    };
    for (const auto& [file, records] : cases) EXPECT_EQ(parseBTMDump(dump(file)), records) << file;
}

TEST(BTMParse, LinesOfOneRecord) {
    const std::pair<std::vector<std::string>, Records> cases[] = {
        {{"Name: before any header", "URL: /x"}, {}},
        {{"#1:"}, {{}}},
        {{"\t#1:", "  executable path: /x", "NAME: a", "Name:\tb\t", "Parent Identifier: 2.p", "Identifier: 4.c"},
         {{"b", "4.c", "2.p", {"/x"}}}},
        {{"#1:", "URL: (null)", "Executable Path: (null)", "URL:", "Executable Path:   "}, {{}}},
        {{"#1:", "URL: file:///Applications/Foo%20Bar.app/", "URL: file://localhost/a%2Fb", "URL: file:///",
          "URL: file:///a/../b.plist"},
         {{"", "", "", {"/Applications/Foo Bar.app", "/a/b", "/", "/a/../b.plist"}}}},
        // Not file URLs, or not URLs at all: kept as written.
        {{"#1:", "URL: https://example.com/x", "URL: file:///a b.app/", "URL: file:///%0A", "URL: Contents/x.plist"},
         {{"", "", "", {"https://example.com/x", "file:///a b.app/", "file:///%0A", "Contents/x.plist"}}}},
        {{"#1:", "Name: a", "#2:", "Team Identifier: T", "Bundle Identifier: b", "#1: 16.not.a.header"}, {{"a", "", "", {}}, {}}},
    };
    for (const auto& [lines, records] : cases) EXPECT_EQ(parseBTMDump(lines), records) << lines.front();
}

TEST(BTMPath, UsersAreWrittenByNumber) {
    const auto checkable = [](std::string p) { return BTMPath{btm_path::Checkable{std::move(p)}}; };
    const std::pair<std::string, BTMPath> cases[] = {
        {"/Users/501/Library/LaunchAgents/x.plist", checkable("/Users/amy/Library/LaunchAgents/x.plist")},
        {"/Users/502/Library/LaunchAgents/x.plist", {btm_path::OtherUser{"/Users/502/Library/LaunchAgents/x.plist"}}},
        {"/Users/0501/x", checkable("/Users/amy/x")},
        {"/Users/501", checkable("/Users/amy")},
        {"/Users/501/", checkable("/Users/amy/")},
        {"/Users/amy/Library/x", checkable("/Users/amy/Library/x")},
        {"/Users/4294967797/x", checkable("/Users/4294967797/x")},
        {"/Users/50a1/x", checkable("/Users/50a1/x")},
        {"/Users/+501/x", checkable("/Users/+501/x")},
        {"/Users//501", checkable("/Users//501")},
        {"/Users", checkable("/Users")},
        {"/users/502/x", checkable("/users/502/x")},
        {"Users/502/x", checkable("Users/502/x")},
        {"//Users/502", checkable("//Users/502")},
    };
    for (const auto& [path, resolved] : cases) EXPECT_EQ(resolveBTMPath(path, 501, "/Users/amy"), resolved) << path;
}

TEST(BTMGroupHeader, OnlyRowsWithoutAnItemIdentifier) {
    const std::pair<BTMRecord, bool> cases[] = {
        {{"", "Some Vendor Inc.", "", {}}, true},
        {{"", "Unknown Developer", "", {}}, true},
        {{"", ".com.vendor", "", {}}, true},
        {{"", "4a.com.vendor", "", {}}, true},
        {{"", "4.com.vendor.app", "", {}}, false},
        {{"", "Some Vendor Inc.", "", {"/x"}}, false},
        {{"", "Some Vendor Inc.", "Other", {}}, false},
        {{"Vendor", "", "", {}}, false},
    };
    for (const auto& [record, header] : cases) EXPECT_EQ(isDeveloperGroupHeader(record), header) << record.identifier;
}

TEST(BTMAssess, RealDumps) {
    const std::tuple<std::string, Paths, BTMAssessment> cases[] = {
        // The helper's parent is the later Keepresso, the copy in the Trash; names sort without case.
        {"dumpbtm-keepresso-trimmed.txt", {"/Applications/Keepresso.app"},
         {4, {"Keepresso", "keepresso-helper", "Logi Options+"}, 0, {}}},
        {"dumpbtm-macos-config-notes.txt", {"/Applications/Adguard.app"}, {3, {"launch.sh", "php-fpm"}, 0, {}}},
        {"dumpbtm-ventura-taomm-book.txt", {"/Library/Application Support/Wireshark/ChmodBPF/ChmodBPF"},
         {2, {"softwareupdate"}, 0, {}}},
    };
    for (const auto& [file, present, expected] : cases) EXPECT_EQ(assess(parseBTMDump(dump(file)), present), expected) << file;
}

// r0 → r1 → … → r<hops>, each with only a relative place; the last lives in /Applications/Deep.app.
Records chain(int hops) {
    Records records;
    for (int i = 0; i <= hops; ++i)
        records.push_back({"r" + std::to_string(i), "16.r" + std::to_string(i), i < hops ? "16.r" + std::to_string(i + 1) : "",
                           {i < hops ? "Contents/x" : "/Applications/Deep.app"}});
    return records;
}

TEST(BTMAssess, WhereARecordLives) {
    const Paths app = {"/Applications/Foo.app", "/Applications/Deep.app", "/Users/amy/Library/LaunchAgents/a.plist"};
    const BTMRecord foo = {"Foo", "2.com.foo", "", {"/Library/LaunchAgents/com.foo.plist", "/Applications/Foo.app"}};
    const std::tuple<std::string, Records, BTMAssessment> cases[] = {
        {"a child lives in its parent's app, not its first place",
         {foo, {"helper", "16.com.foo.helper", "2.COM.FOO", {"Contents/MacOS/helper"}}}, {2, {}, 0, {}}},
        {"grandparent holds the place", {{"h", "16.h", "16.m", {"x"}}, {"m", "16.m", "2.com.foo", {}}, foo}, {3, {}, 0, {}}},
        {"eight parents are followed", chain(8), {9, {}, 0, {}}},
        {"the ninth is not", chain(9), {10, {}, 1, {{BTMUnjudged::parentMissingFromDump, 1}}}},
        {"parents in a cycle", {{"a", "16.a", "16.b", {}}, {"b", "16.b", "16.a", {}}}, {2, {}, 2, {{BTMUnjudged::noPath, 2}}}},
        {"a cycle with a relative place",
         {{"a", "16.a", "16.b", {}}, {"b", "16.b", "16.a", {"Contents/x"}}},
         {2, {}, 2, {{BTMUnjudged::noPath, 1}, {BTMUnjudged::parentMissingFromDump, 1}}}},
        // Walked until the depth ran out, x would end on b rather than c.
        {"a way into a cycle of three",
         {{"x", "16.x", "16.a", {"Contents/x"}}, {"a", "16.a", "16.b", {}}, {"b", "16.b", "16.c", {}},
          {"c", "16.c", "16.a", {"Contents/c"}}},
         {4, {}, 4, {{BTMUnjudged::noPath, 2}, {BTMUnjudged::parentMissingFromDump, 2}}}},
        {"own parent", {{"a", "16.a", "16.a", {"x"}}}, {1, {}, 1, {{BTMUnjudged::parentMissingFromDump, 1}}}},
        {"this user's place is read under the home", {{"a", "16.a", "", {"/Users/501/Library/LaunchAgents/a.plist"}}},
         {1, {}, 0, {}}},
        {"another user's place, also through a parent",
         {{"a", "16.a", "", {"/Users/502/Library/LaunchAgents/a.plist"}}, {"c", "16.c", "16.a", {"x"}}},
         {2, {}, 2, {{BTMUnjudged::otherUser, 2}}}},
        {"another user's place beside one of ours", {{"a", "16.a", "", {"/Users/502/a.plist", "/gone/a.plist"}}},
         {1, {"a"}, 0, {}}},
        {"group headers are no records, a number-dot identifier is",
         {{"", "Some Vendor Inc.", "", {}}, {"", "4.com.vendor.app", "", {}}}, {1, {}, 1, {{BTMUnjudged::noPath, 1}}}},
        {"a parent that records nothing", {{"", "Vendor", "", {}}, {"c", "16.c", "Vendor", {"x"}}},
         {1, {}, 1, {{BTMUnjudged::noPath, 1}}}},
        {"one name for two ghosts, and a name from the place",
         {{"Foo", "2.a", "", {"/gone/a.app"}}, {"Foo", "2.b", "", {"/gone/b.app"}}, {"(null)", "16.c", "", {"/gone/c.plist/"}}},
         {3, {"c.plist", "Foo"}, 0, {}}},
    };
    for (const auto& [what, records, expected] : cases) EXPECT_EQ(assess(records, app), expected) << what;
}

TEST(BTMDescribe, LargestCountFirst) {
    const std::pair<Reasons, std::string> cases[] = {
        {{}, ""},
        {{{BTMUnjudged::noPath, 3}, {BTMUnjudged::parentMissingFromDump, 1}},
         "3 record no location and belong to no app, 1 point inside an app macOS didn't list"},
        {{{BTMUnjudged::noPath, 1}, {BTMUnjudged::parentHasNoLocation, 4}, {BTMUnjudged::otherUser, 1}},
         "4 belong to an app that records no location, 1 record no location and belong to no app, "
         "1 belong to another user account on this Mac"},
    };
    for (const auto& [reasons, text] : cases) EXPECT_EQ(describeBTMUnjudged(reasons), text);
}

}  // namespace
}  // namespace orvane
