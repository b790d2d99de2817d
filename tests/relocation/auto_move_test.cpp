// Automatic moves: when a move is due, what each item counts as, the choice of what goes, and the
// rule's file.
#include "core/relocation/auto_move.hpp"

#include <gtest/gtest.h>

#include "core/common/json_files.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

using Kind = AutoMoveRule::Kind;
constexpr std::int64_t GB = 1'000'000'000;
const TimePoint kNow = Clock::from_time_t(1'700'000'000);
const TimePoint kLongAgo = kNow - std::chrono::hours(24 * 365);

AutoMoveRule onRule() {
    AutoMoveRule rule;
    rule.enabled = true;
    rule.driveName = "Archive";
    return rule;
}

SpaceItem model(std::string path, std::int64_t bytes, std::optional<TimePoint> lastUsed = kLongAgo) {
    SpaceItem item;
    item.id = std::move(path);
    item.category = std::string(catAI);
    item.suggested = Suggested::move;
    item.isDir = true;
    item.sizeBytes = bytes;
    item.lastUsed = lastUsed;
    return item;
}

std::vector<std::string> ids(const std::vector<SpaceItem>& items) {
    std::vector<std::string> out;
    for (const auto& item : items) out.push_back(item.id);
    return out;
}

const auto kNothingProtected = [](const std::string&) { return false; };

TEST(AutoMove, WhenAMoveIsDue) {
    AutoMoveRule noDrive = onRule();
    noDrive.driveName.clear();
    AutoMoveRule off = onRule();
    off.enabled = false;
    AutoMoveRule huge = onRule();
    huge.thresholdGB = INT64_MAX;
    AutoMoveRule negative = onRule();
    negative.thresholdGB = -5;
    struct Case {
        AutoMoveRule rule;
        std::int64_t free;
        bool due;
    } cases[] = {
        {onRule(), 30 * GB, false},     {onRule(), 30 * GB - 1, true}, {onRule(), -1, false},
        {onRule(), 0, true},            {noDrive, 1, false},           {off, 1, false},
        {huge, INT64_MAX - 1, true},    {negative, 0, false},
    };
    for (const auto& c : cases) EXPECT_EQ(autoMoveDue(c.rule, c.free), c.due) << c.rule.thresholdGB << " " << c.free;

    EXPECT_EQ(autoMoveWanted(AutoMoveRule{}, 10 * GB), 23 * GB);
    EXPECT_EQ(autoMoveWanted(AutoMoveRule{}, -1), 33 * GB);  // unknown free space counts as none
    EXPECT_EQ(autoMoveWanted(AutoMoveRule{}, 40 * GB), -7 * GB);
    EXPECT_EQ(autoMoveWanted(huge, 0), INT64_MAX);
}

TEST(AutoMove, KindsOfItems) {
    struct Case {
        std::string id;
        std::string_view category;
        Suggested suggested;
        bool isDir;
        std::optional<Kind> kind;
    } cases[] = {
        {"/m", catAI, Suggested::move, false, Kind::aiModels},
        {"/m", catAI, Suggested::review, true, std::nullopt},
        {"dupes:1", catAI, Suggested::move, true, std::nullopt},  // a pseudo item
        {"/v", catMedia, Suggested::move, false, Kind::media},
        {"/v", catOld, Suggested::move, false, Kind::media},
        {"/v", catOld, Suggested::delete_, false, std::nullopt},
        {"/d", catDev, Suggested::review, true, Kind::devFolders},
        {"/d", catEnv, Suggested::move, true, Kind::devFolders},
        {"/d", catDev, Suggested::delete_, true, std::nullopt},
        {"/d", catDev, Suggested::review, false, std::nullopt},
        {"/b", catBig, Suggested::move, false, std::nullopt},
    };
    for (const auto& c : cases) {
        SpaceItem item;
        item.id = c.id;
        item.category = std::string(c.category);
        item.suggested = c.suggested;
        item.isDir = c.isDir;
        EXPECT_EQ(autoMoveKind(item), c.kind) << c.id << " " << c.category;
    }
}

TEST(AutoMove, WhatIsChosen) {
    AutoMoveRule rule = onRule();
    rule.thresholdGB = 300;
    // 330 GB wanted: the 100 would pass the byte limit after the 150, the 40 still fits.
    EXPECT_EQ(ids(autoMoveCandidates({model("/a", 40 * GB), model("/b", 150 * GB), model("/c", 100 * GB)}, rule, 0,
                                     kNothingProtected, kNow)),
              (std::vector<std::string>{"/b", "/a"}));

    // Nesting is judged on the comparison form, and "/" holds everything.
    EXPECT_EQ(ids(autoMoveCandidates({model("/Users/a/Models", 5 * GB), model("/users/a/models/x.gguf", 4 * GB),
                                      model("/Users/a/ModelsB", 1 * GB)},
                                     rule, 0, kNothingProtected, kNow)),
              (std::vector<std::string>{"/Users/a/Models", "/Users/a/ModelsB"}));
    EXPECT_EQ(ids(autoMoveCandidates({model("/", 5 * GB), model("/x", 4 * GB)}, rule, 0, kNothingProtected, kNow)),
              (std::vector<std::string>{"/"}));

    std::vector<SpaceItem> eleven;
    for (int i = 0; i < 11; ++i) eleven.push_back(model("/m" + std::to_string(i), GB));
    EXPECT_EQ(autoMoveCandidates(eleven, rule, 0, kNothingProtected, kNow).size(), 10u);

    // Equal sizes keep their order; the walk stops once 33 GB is reached, and at least one item
    // is chosen even when nothing is wanted.
    const std::vector<SpaceItem> three = {model("/x", 20 * GB), model("/y", 20 * GB), model("/z", 20 * GB)};
    EXPECT_EQ(ids(autoMoveCandidates(three, onRule(), 0, kNothingProtected, kNow)), (std::vector<std::string>{"/x", "/y"}));
    EXPECT_EQ(ids(autoMoveCandidates(three, onRule(), 100 * GB, kNothingProtected, kNow)), (std::vector<std::string>{"/x"}));
}

TEST(AutoMove, WhatNeverQualifies) {
    const TimePoint cutOff = kNow - std::chrono::hours(24 * 90);
    SpaceItem media = model("/media", GB);
    media.category = std::string(catMedia);
    SpaceItem dev = model("/dev-folder", GB);
    dev.category = std::string(catDev);
    const std::vector<SpaceItem> items = {
        model("/at-cut-off", GB, cutOff),
        model("/just-before", GB, cutOff - std::chrono::seconds(1)),
        model("/undated", GB, std::nullopt),
        model("/empty", 0),
        model("/protected", GB),
        media,
        dev,  // devFolders is not in the default kinds
    };
    const auto isProtected = [](const std::string& path) { return path == "/protected"; };
    EXPECT_EQ(ids(autoMoveCandidates(items, onRule(), 0, isProtected, kNow)),
              (std::vector<std::string>{"/just-before", "/media"}));

    AutoMoveRule devOnly = onRule();
    devOnly.kinds = {Kind::devFolders};
    devOnly.unusedDays = INT64_MAX;  // no date is that old
    EXPECT_TRUE(autoMoveCandidates(items, devOnly, 0, isProtected, kNow).empty());
    devOnly.unusedDays = 0;
    EXPECT_EQ(ids(autoMoveCandidates(items, devOnly, 0, isProtected, kNow)), (std::vector<std::string>{"/dev-folder"}));
}

TEST(AutoMove, TheRuleInJSON) {
    EXPECT_EQ(AutoMoveRule{}.encoded(),
              R"({"version":1,"enabled":false,"thresholdGB":30,"kinds":["aiModels","media"],"unusedDays":90,)"
              R"("driveName":"","moveWithoutAsking":false})");
    AutoMoveRule rule = onRule();
    rule.kinds = {Kind::devFolders, Kind::aiModels};
    rule.moveWithoutAsking = true;
    EXPECT_EQ(AutoMoveRule::decode(rule.encoded()), rule);

    // Every key is required.
    const auto full = nlohmann::json::parse(rule.encoded());
    for (const auto& [key, value] : full.items()) {
        auto lacking = full;
        lacking.erase(key);
        EXPECT_EQ(AutoMoveRule::decode(lacking.dump()), std::nullopt) << key;
    }
    const auto with = [&](const char* key, nlohmann::json value) {
        auto changed = full;
        changed[key] = std::move(value);
        return AutoMoveRule::decode(changed.dump());
    };
    EXPECT_EQ(with("version", 2), std::nullopt);
    EXPECT_EQ(with("version", 0)->version, 0);
    EXPECT_EQ(with("version", -3)->version, -3);
    EXPECT_EQ(with("kinds", {"aiModels", "music"}), std::nullopt);
    EXPECT_EQ(with("kinds", "media"), std::nullopt);
    EXPECT_EQ(with("thresholdGB", 2.5), std::nullopt);
    EXPECT_EQ(with("kinds", nlohmann::json::array())->kinds, std::set<Kind>{});
    EXPECT_EQ(AutoMoveRule::decode("{"), std::nullopt);
    EXPECT_EQ(AutoMoveRule::decode("[]"), std::nullopt);

    EXPECT_EQ(label(Kind::media), "Media and big old files");
}

TEST(AutoMove, TheRecordOfARun) {
    const AutoMoveRun run{"r1", Clock::from_time_t(978'307'200 + 100), "Archive", {"/Volumes/Archive/x"}, 5 * GB, true};
    const auto json = toJSON(run);
    EXPECT_EQ(json.dump(), R"({"runID":"r1","date":100.0,"driveName":"Archive","destinations":["/Volumes/Archive/x"],)"
                           R"("bytes":5000000000,"withoutAsking":true})");
    EXPECT_EQ(AutoMoveRun::decode(nlohmann::json::parse(json.dump())), run);
    auto lacking = nlohmann::json::parse(json.dump());
    lacking.erase("withoutAsking");
    EXPECT_EQ(AutoMoveRun::decode(lacking), std::nullopt);
}

TEST(AutoMove, TheStoredRule) {
    testing::TempDir dir;
    const std::string path = dir.path() + "/auto-move-rule.json";
    auto stored = loadAutoMoveRule(path);
    EXPECT_EQ(stored.rule, AutoMoveRule{});
    EXPECT_FALSE(stored.present);

    testing::writeFile(path, onRule().encoded());
    EXPECT_EQ(loadAutoMoveRule(path).rule, onRule());

    auto later = nlohmann::json::parse(onRule().encoded());
    later["version"] = 2;
    testing::writeFile(path, later.dump());
    stored = loadAutoMoveRule(path);
    EXPECT_EQ(stored.rule, std::nullopt);
    EXPECT_TRUE(stored.present);
    EXPECT_EQ(stored.problem, "The automatic-move rule at " + path +
                                  " is damaged or from a newer release; it is not used and is left as it is.");

    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_EQ(loadAutoMoveRule(path).problem,
              "The automatic-move rule at " + path + " is not a regular file; it is not used and is left as it is.");
}

}  // namespace
}  // namespace orvane
