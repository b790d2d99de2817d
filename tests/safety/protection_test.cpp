// Protection: keys and patterns, the built-in table, the precedence of the four kinds, and what
// a protection does to an item.
#include "core/safety/protection.hpp"

#include <gtest/gtest.h>

namespace orvane {
namespace {

const std::string kHome = "/Users/a";

ProtectEntry entry(ProtectEntry::Kind kind, std::string value, std::vector<std::string> folders = {}) {
    return {kind, std::move(value), "Label", std::move(folders), Clock::from_time_t(978'307'200 + 790'000'000)};
}

TEST(Protection, KeysAndPatterns) {
    EXPECT_EQ(protectKey("/private/var/Folders/"), "/var/folders");
    EXPECT_EQ(protectKey("/private/tmp/X"), "/tmp/x");
    EXPECT_EQ(protectKey("/Users/A//B/./c/"), "/users/a/b/c");
    EXPECT_TRUE(pathIsAtOrInside("/Users/A/x", "/users/a"));
    EXPECT_FALSE(pathIsAtOrInside("/Users/Ab", "/Users/A"));
    EXPECT_TRUE(pathIsAtOrInside("/anything", "/"));
    EXPECT_TRUE(pathIsAtOrInside("/Users/a/", "/Users/a"));

    EXPECT_TRUE(pathMatches("a/*/c", "/a/b/c/d"));
    EXPECT_FALSE(pathMatches("a/*/c", "/a/b"));
    EXPECT_TRUE(pathMatches("", "/a"));
    EXPECT_FALSE(pathMatches("a/b*", "/a/bc"));  // "*" inside a name is just a character
    EXPECT_TRUE(pathMatches("a/b*", "/a/b*/x"));
}

TEST(Protection, TheBuiltInTable) {
    struct Case {
        const char* path;
        const char* id;  // null: no built-in protection
    } cases[] = {
        {"/Users/a/.claude/projects/x", "ai-sessions"}, {"/Users/a/.claude", "ai-sessions"},
        {"/Users/a/.claude.json", "ai-sessions"},
        {"/Users/a/Library/Application Support/Claude/Code Cache/y", nullptr},  // "Code Cache" lifts it
        {"/Users/a/Library/Application Support/Claude/sub/logs/y", nullptr},
        {"/Users/a/Library/Application Support/Claude/Conversations", "ai-sessions"},
        {"/Users/a/Library/Application Support/Google/Chrome/Profile 1/Extensions/abc", "browser-extensions"},
        {"/Users/a/Library/Application Support/Firefox/Profiles/x.default/extensions", "browser-extensions"},
        {"/Users/a/Library/Application Support/Google/Chrome/Extensions", nullptr},  // the profile level is needed
        {"/Library/Application Support/iLok/x", "licences"},
        {"/Users/a/Library/Preferences/com.acme.license.plist", "licences"},
        {"/Users/a/Library/HTTPStorages/com.x", "licences"},
        {"/Users/a/Library/Caches/com.arturia.foo", "plugin-caches"},
        {"/Users/a/Library/Caches/misc/arturia", nullptr},  // only the parent's direct child is looked at
        {"/Users/a/Library/Caches/AudioUnitCache", "plugin-caches"},
        {"/Users/a/library/caches/COM.ARTURIA.FOO", "plugin-caches"},  // keyed: case does not matter
        {"/Users/a/Documents/license.txt", nullptr},
        {"/Users/b/.claude", nullptr},  // another home
    };
    for (const auto& c : cases) {
        auto found = builtInProtection(c.path, kHome);
        EXPECT_EQ(found ? found->id : std::string("none"), c.id ? c.id : "none") << c.path;
    }
    EXPECT_EQ(builtInProtection("/home/z/.codex/x", "/home/z")->id, "ai-sessions");  // compiled per home
}

TEST(Protection, PrecedenceUserHiddenInUseBuiltIn) {
    ProtectList list;
    list.add(entry(ProtectEntry::Kind::folder, "/Users/a/Library/Group Containers"));
    const std::vector<RunningApp> running = {{"com.acme.tool.helper", "Acme", std::nullopt},
                                             {"com.other.app", "Team App", std::string("Q7RTK2MXLE")},
                                             {"single", "Single", std::nullopt}};
    // A user entry wins over an app using the place.
    auto p = protection("/Users/a/Library/Group Containers/group.com.acme.tool.data", list, {}, running, kHome);
    ASSERT_TRUE(p);
    EXPECT_TRUE(std::holds_alternative<protection_case::User>(p->value));
    EXPECT_EQ(p->line(), "Kept because you protected it.");

    const ProtectList none;
    EXPECT_EQ(groupContainerUser("/Users/a/Library/Group Containers/group.com.acme.tool.data", running, kHome), "Acme");
    EXPECT_EQ(groupContainerUser("/Users/a/Library/Group Containers/Q7RTK2MXLE.shared/x", running, kHome), "Team App");
    EXPECT_EQ(groupContainerUser("/Users/a/Library/Group Containers/single.x", running, kHome), std::nullopt);
    EXPECT_EQ(groupContainerUser("/Users/a/Library/Group Containers", running, kHome), std::nullopt);
    EXPECT_EQ(groupContainerUser("/Users/a/Library/Other/com.acme.tool", running, kHome), std::nullopt);
    auto inUse = protection("/Users/a/Library/Group Containers/group.com.acme.tool.data/f", none, {}, running, kHome);
    ASSERT_TRUE(inUse);
    EXPECT_EQ(inUse->line(), "Kept because Acme is open and using it.");
    EXPECT_TRUE(inUse->isLock());

    // Hidden items are user protection with a made-up entry; only paths count.
    auto hidden = protection("/Users/a/Movies/clip.mov", none, {"/Users/a/Movies", "group:dupes"}, {}, kHome);
    ASSERT_TRUE(hidden);
    EXPECT_EQ(std::get<protection_case::User>(hidden->value).entry.label, "Movies");

    auto builtIn = protection("/Users/a/.claude/x", none, {}, {}, kHome);
    ASSERT_TRUE(builtIn);
    EXPECT_FALSE(builtIn->isLock());
    EXPECT_EQ(builtIn->line(), "Protected by Velloran Orvane: ai tool sessions. Your conversations, projects and "
                               "settings for Claude, Codex, Cursor and Gemini. They don't come back once deleted.");
    EXPECT_FALSE(protection("/Users/a/Downloads/x", none, {}, {}, kHome));
}

TEST(Protection, RefusalsAndClearing) {
    ProtectList list;
    list.add(entry(ProtectEntry::Kind::item, "/Users/a/Music/Stems/keep.wav"));
    list.add(entry(ProtectEntry::Kind::app, "com.acme.app", {"/Users/a/Library/Caches/com.acme.app"}));
    EXPECT_EQ(protectionRefusal("/Users/a/Music/Stems/keep.wav", list, {}, {}, kHome), "Kept because you protected it.");
    EXPECT_EQ(protectionRefusal("/Users/a/Music", list, {}, {}, kHome),
              "Kept because you protected keep.wav inside it.");
    EXPECT_EQ(protectionRefusal("/Users/a/Library/Caches/com.acme.app/x", list, {}, {}, kHome),
              "Kept because you protected it.");
    EXPECT_EQ(protectionRefusal("/Users/a/.claude", list, {}, {}, kHome), std::nullopt);  // advice is no refusal
    EXPECT_EQ(userProtectedInside("/Users/a", list, {"/Users/a/Z", "/Users/a/B", "pseudo"}),
              (std::vector<std::string>{"/Users/a/B", "/Users/a/Library/Caches/com.acme.app",
                                        "/Users/a/Music/Stems/keep.wav", "/Users/a/Z"}));
    EXPECT_TRUE(userProtectedInside("/Users/a/Music/Stems/keep.wav", list, {}).empty());  // not strictly inside

    EXPECT_FALSE(contentsClearMayRemove("/Users/a/Music/Stems", list, {}, {}, kHome));
    EXPECT_TRUE(contentsClearMayRemove("/Users/a/Downloads/x", list, {}, {}, kHome));
    EXPECT_FALSE(contentsClearMayRemove("/Users/a/Library/Caches/com.acme.app/x", list, {}, {}, kHome));
    // A child shares its folder's built-in protection: it may go with the folder's contents.
    EXPECT_TRUE(contentsClearMayRemove("/Users/a/.claude/projects/x", list, {}, {}, kHome));
    // A child protected where its folder is not stays.
    EXPECT_FALSE(contentsClearMayRemove("/Users/a/Library/Caches/com.arturia.foo", list, {}, {}, kHome));
}

TEST(Protection, WhatAProtectionDoesToAnItem) {
    SpaceItem item;
    item.id = "/Users/a/.claude";
    item.note = "Old note.";
    item.safety = Safety::safe;
    item.suggested = Suggested::delete_;
    const auto builtIn = protection(item.id, {}, {}, {}, kHome);
    auto once = applyingProtection(item, builtIn);
    EXPECT_EQ(once.note, builtIn->line() + "  Old note.");
    EXPECT_EQ(once.safety, Safety::review);
    EXPECT_EQ(once.suggested, Suggested::review);
    EXPECT_EQ(applyingProtection(once, builtIn), once);  // twice is once

    item.suggested = Suggested::move;
    EXPECT_EQ(applyingProtection(item, builtIn).suggested, Suggested::move);  // advice keeps a move
    const Protection lock{protection_case::InUse{"Acme"}};
    EXPECT_EQ(applyingProtection(item, lock).suggested, Suggested::review);
    item.note.clear();
    EXPECT_EQ(applyingProtection(item, lock).note, "Kept because Acme is open and using it.");
    EXPECT_EQ(applyingProtection(item, std::nullopt), item);
}

TEST(Protection, TheListAndItsFile) {
    ProtectList list;
    list.add(entry(ProtectEntry::Kind::folder, "/Users/a/Stems"));
    list.add(entry(ProtectEntry::Kind::folder, "/Users/a/Stems"));  // same id: once
    list.add(entry(ProtectEntry::Kind::item, "/Users/a/Stems"));
    ASSERT_EQ(list.entries.size(), 2u);
    EXPECT_EQ(list.entries[0].id(), "folder:/Users/a/Stems");
    const std::string file = list.encoded();
    EXPECT_EQ(file.find("\"entries\""), 4u);  // sorted keys, pretty
    EXPECT_NE(file.find("\"added\": 790000000.0"), std::string::npos) << file;
    EXPECT_EQ(ProtectList::decode(file), list);
    list.remove("folder:/Users/a/Stems");
    EXPECT_EQ(list.entries.size(), 1u);

    EXPECT_FALSE(ProtectList::decode(R"({"version":2,"entries":[]})"));  // a newer release's list
    EXPECT_FALSE(ProtectList::decode(R"({"version":4294967297,"entries":[]})"));  // would read as 1 cut to 32 bits
    EXPECT_TRUE(ProtectList::decode(R"({"version":1.0,"entries":[]})"));  // numbers are read by value
    EXPECT_FALSE(ProtectList::decode(R"({"entries":[]})"));
    EXPECT_FALSE(ProtectList::decode(R"({"version":1,"entries":[{"kind":"disk","value":"/","label":"","appFolders":[],"added":0}]})"));
    EXPECT_FALSE(ProtectList::decode(R"({"version":1,"entries":[{"kind":"item","value":"/","label":"","added":0}]})"));
    EXPECT_FALSE(ProtectList::decode("not json"));

    EXPECT_EQ(appProtectedRoots("com.acme.app", "Acme", std::string("/Applications/Acme.app"), "/Users/a").front(),
              "/Applications/Acme.app");
    EXPECT_EQ(appProtectedRoots("com.acme.app", "com.acme.app", std::nullopt, "/Users/a").size(), 8u);  // duplicates go
}

}  // namespace
}  // namespace orvane
