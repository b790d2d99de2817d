#include "core/scan/top_most.hpp"

#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "core/common/byte_counts.hpp"
#include "core/scan/space_item.hpp"
#include "tests/scan/item_at.hpp"

namespace orvane {
namespace {

using testing::at;

std::vector<std::string> idsOf(const std::vector<SpaceItem>& items) {
    std::vector<std::string> ids;
    for (const auto& item : items) ids.push_back(item.id);
    return ids;
}

TEST(TopMost, OneRowPerStretchOfDisk) {
    struct Case {
        const char* name;
        std::vector<SpaceItem> items;
        std::vector<std::string> expected;  // ids in result order
    };
    const std::vector<Case> cases = {
        {"empty", {}, {}}, {"child after", {at("/a/b"), at("/a/b/c")}, {"/a/b"}},
        {"child before", {at("/a/b/c"), at("/a/b")}, {"/a/b"}},
        {"sorted by length", {at("/a/b/c"), at("/zz/y"), at("/q")}, {"/q", "/zz/y", "/a/b/c"}},
        {"component, not prefix", {at("/a/bc"), at("/a/bcd")}, {"/a/bc", "/a/bcd"}},
        {"root covers nothing", {at("/a"), at("/", 9)}, {"/", "/a"}},
        // "/" with a combining accent is one character, so it covers nothing either.
        {"one-character parent", {at("/\u0301/a"), at("/\u0301")}, {"/\u0301", "/\u0301/a"}},
        {"deep nesting", {at("/a/b/c/d/e"), at("/a/b"), at("/a/x")}, {"/a/b", "/a/x"}},
        {"trailing slash", {at("/a/b/"), at("/a")}, {"/a"}},
        {"group under kept", {at("g1", 1, {"/x/y/z"}), at("/x/y")}, {"/x/y"}},
        {"group member is kept", {at("/x/y"), at("g", 1, {"/q", "/x/y"})}, {"/x/y"}},
        {"group above kept", {at("g", 1, {"/x/y/z"}), at("/x/y/z/w")}, {"g", "/x/y/z/w"}},
        {"empty group", {at("/x"), at("gg")}, {"/x", "gg"}},
        {"only non-paths", {at("/x"), at("gg", 1, {"x/y", "gg"})}, {"/x", "gg"}},
        {"group never covers paths", {at("g", 1, {"/m"}), at("/m/n")}, {"g", "/m/n"}},
        {"two groups", {at("gA", 1, {"/m"}), at("gB", 1, {"/m"})}, {"gA", "gB"}},
        // Characters, not bytes: four two-byte letters sort before six one-byte ones.
        {"characters",
         {at("/abcdef"), at("/\u00e9\u00e9\u00e9\u00e9")},
         {"/\u00e9\u00e9\u00e9\u00e9", "/abcdef"}},
    };
    for (const auto& c : cases) EXPECT_EQ(idsOf(topMostByPath(c.items)), c.expected) << c.name;

    // Ties in length keep input order, also in lists long enough for a sort to reorder them:
    // 60 rows over 40 ids of one length, where the first row of each id must stay.
    std::vector<SpaceItem> level;
    for (int i = 0; i < 60; ++i) level.push_back(at("/p" + std::to_string(10 + (i * 7) % 40), i));
    auto kept = topMostByPath(level);
    ASSERT_EQ(kept.size(), 40u);
    std::vector<SpaceItem> expectedLevel;
    std::set<std::string> seen;
    for (const auto& item : level)
        if (seen.insert(item.id).second) expectedLevel.push_back(item);
    EXPECT_EQ(kept, expectedLevel);

    // Of two rows for the same path, the first in input order stays, whatever its size.
    auto first = topMostByPath({at("/dup", 5), at("/dup", 7)});
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(first[0].sizeBytes, 5);
    auto reversed = topMostByPath({at("/dup", 7), at("/dup", 5)});
    ASSERT_EQ(reversed.size(), 1u);
    EXPECT_EQ(reversed[0].sizeBytes, 7);
}

TEST(TopMost, CoveredGroupMembers) {
    const std::unordered_set<std::string> counted = {"/x/y", "/solo"};
    struct Case {
        std::vector<std::string> extra;
        bool covered;
    };
    const std::vector<Case> cases = {
        {{"/x/y/z"}, true}, {{"/x/y"}, true}, {{"/x"}, false}, {{"/x/yz"}, false},
        {{"/other", "/solo/deep/file"}, true},
        {{"x/y/z", "solo"}, false},  // members that are not paths are skipped
        {{}, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(pseudoGroupAlreadyCounted(at("g", 1, c.extra), counted), c.covered)
            << (c.extra.empty() ? "(empty)" : c.extra.front());
    EXPECT_FALSE(pseudoGroupAlreadyCounted(at("g", 1, {"/a/b"}), {"/"}));  // "/" covers nothing
}

TEST(TopMost, SumsSkipNestedAndNegativeSizes) {
    EXPECT_EQ(topMostBytes({}), 0);
    EXPECT_EQ(safeReclaimBytes({}), 0);
    EXPECT_EQ(topMostBytes({at("/s/a", 100), at("/s/a/b", 40), at("/s/c", -7), at("/s/d", 3),
                            at("grp", 50, {"/s/a/x"}), at("grp2", 20, {"/elsewhere"})}),
              123);

    auto reclaim = [](Safety safety, Suggested suggested, std::int64_t size) {
        SpaceItem item = at("/r", size);
        item.safety = safety;
        item.suggested = suggested;
        return item;
    };
    EXPECT_EQ(safeReclaimBytes({reclaim(Safety::safe, Suggested::delete_, 10),
                                reclaim(Safety::safe, Suggested::delete_, 5),  // no nesting check
                                reclaim(Safety::safe, Suggested::delete_, -3),
                                reclaim(Safety::safe, Suggested::delete_, 0),
                                reclaim(Safety::caution, Suggested::delete_, 100),
                                reclaim(Safety::safe, Suggested::move, 100),
                                reclaim(Safety::review, Suggested::review, 100)}),
              15);
}

TEST(TopMostMemo, HitsReturnTheStoredAnswerUnverified) {
    std::vector<SpaceItem> items = {at("/memo/a", 10, {"/ignored"}), at("/memo/a/b", 5),
                                    at("memo-group", 3, {"/m"})};
    items[0].title = "first";
    const auto answer = topMostByPath(items);
    ASSERT_EQ(idsOf(answer), (std::vector<std::string>{"/memo/a", "memo-group"}));
    EXPECT_EQ(topMostByPath(items), answer);

    // Titles and a real path's `extra` are not part of the key: the stored rows come back as they
    // were.
    auto retitled = items;
    retitled[0].title = "second";
    retitled[0].extra = {"/also/ignored"};
    EXPECT_EQ(topMostByPath(retitled), answer);

    // Sizes and pseudo-group members are.
    auto resized = items;
    resized[0].sizeBytes = 11;
    EXPECT_EQ(topMostByPath(resized)[0].sizeBytes, 11);
    auto regrouped = items;
    regrouped[2].extra = {"/memo/a/c"};
    EXPECT_EQ(idsOf(topMostByPath(regrouped)), (std::vector<std::string>{"/memo/a"}));
}

TEST(TopMostMemo, DroppedWholeWhenFull) {
    TopMostMemo memo;
    for (std::int64_t key = 0; key < static_cast<std::int64_t>(TopMostMemo::capacity); ++key)
        memo.store(key, {at("/k" + std::to_string(key))});
    EXPECT_EQ(idsOf(*memo.value(0)), std::vector<std::string>{"/k0"});
    EXPECT_TRUE(memo.value(64));
    memo.store(-1, {});
    EXPECT_FALSE(memo.value(0));
    EXPECT_FALSE(memo.value(64));
    EXPECT_EQ(memo.value(-1), std::vector<SpaceItem>{});
}

TEST(TopMostMemo, ThreadsAgreeOnTheAnswer) {
    // Input i: a folder of i bytes, a file inside it, and a group of 2 bytes whose member is the
    // folder itself for i < 7 (so not counted) and another path otherwise.
    std::vector<std::vector<SpaceItem>> inputs;
    std::vector<std::int64_t> expected;
    for (int i = 0; i < 100; ++i) {
        const std::string folder = "/t/" + std::to_string(i);
        inputs.push_back(
            {at(folder, i), at(folder + "/x", 1), at("grp", 2, {"/t/" + std::to_string(i % 7)})});
        expected.push_back(i + (i < 7 ? 0 : 2));
    }
    std::vector<int> wrong(4, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < 3; ++round)
                for (std::size_t i = 0; i < inputs.size(); ++i)
                    if (topMostBytes(inputs[i]) != expected[i]) ++wrong[t];
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST(TopMost, TotalsPastTheLargestByteCountAreUnknown) {
    SpaceItem big = at("/big", kMaxByteCount);
    big.safety = Safety::safe;
    big.suggested = Suggested::delete_;
    SpaceItem one = big;
    one.id = "/one";
    one.sizeBytes = 1;
    EXPECT_EQ(topMostBytes({big, one}), -1);
    EXPECT_EQ(safeReclaimBytes({big, one}), -1);
    EXPECT_EQ(topMostBytes({big, at("/neg", -1)}), kMaxByteCount);  // a negative size is not subtracted
    // Eight counts a decoder accepts would pass 64 bits: the total is unknown, not an abort.
    std::vector<SpaceItem> eight;
    for (int i = 0; i < 8; ++i) {
        eight.push_back(big);
        eight.back().id = "/big" + std::to_string(i);
    }
    EXPECT_EQ(topMostBytes(eight), -1);
    EXPECT_EQ(safeReclaimBytes(eight), -1);
}

}  // namespace
}  // namespace orvane
