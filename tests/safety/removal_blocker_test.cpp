#include "core/safety/removal_blocker.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "tests/support/temp_dir.hpp"

namespace orvane {

void PrintTo(const RemovalBlocker& blocker, std::ostream* os) { *os << describe(blocker); }

namespace {

namespace fs = std::filesystem;
using platform::kFlagNoUnlink;
using platform::kFlagRestricted;
using B = RemovalBlocker;

TEST(RemovalBlocker, Reasons) {
    EXPECT_EQ(B::systemIntegrityProtection("/System/Library/CoreServices").reason(),
              "System Integrity Protection owns CoreServices, so macOS refuses to delete it — from an administrator "
              "and from root alike. Your password was never the problem, and no app can get past this one.");
    EXPECT_EQ(B::unlinkProhibited("/Library/Locked/thing.plist").reason(),
              "macOS has locked thing.plist against removal (the system 'no-unlink' flag), which overrides an "
              "administrator password.");
}

TEST(RemovalBlocker, FromGatheredFacts) {
    struct Case {
        std::string name;
        PathFlags item;
        std::vector<PathFlags> descendants;
        std::optional<RemovalBlocker> expected;
    };
    const std::vector<Case> cases = {
        {"restricted descendant outranks the item's no-unlink",
         {"/x", kFlagNoUnlink}, {{"/x/a", 0}, {"/x/b", kFlagRestricted}},
         B::systemIntegrityProtection("/x/b")},
        {"item and descendant with no-unlink: the item", {"/x", kFlagNoUnlink}, {{"/x/a", kFlagNoUnlink}},
         B::unlinkProhibited("/x")},
        {"first restricted descendant", {"/x", 0}, {{"/x/a", kFlagRestricted}, {"/x/b", kFlagRestricted}},
         B::systemIntegrityProtection("/x/a")},
        {"restricted item", {"/x", kFlagRestricted | kFlagNoUnlink}, {{"/x/a", kFlagRestricted}},
         B::systemIntegrityProtection("/x")},
        {"first no-unlink descendant", {"/x", 0}, {{"/x/a", 0}, {"/x/b", kFlagNoUnlink}, {"/x/c", kFlagNoUnlink}},
         B::unlinkProhibited("/x/b")},
        {"other flags count for nothing", {"/x", 0x20}, {{"/x/a", 0x00040000}}, std::nullopt},
        {"no flags anywhere", {"/x", 0}, {{"/x/a", 0}}, std::nullopt},
        {"no descendants", {"/x", 0}, {}, std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(removalBlocker(c.item, c.descendants), c.expected) << c.name;
}

// A real tree; the flags that Linux never sets are laid on by a wrapper around the real lstat.
class BlockerWalk : public ::testing::Test {
protected:
    void SetUp() override {
        for (auto f : {"a/one", "a/two", "b/c/d/deep", "e/x"}) temp_.write(f);
        temp_.mkdir("linked/inside");
        fs::create_directory_symlink(dir_ + "/linked", dir_ + "/a/link");
    }

    Facts flagged() {
        Facts facts = Facts::real();
        facts.lstat = [this](const std::string& p) {
            asked_.push_back(p);
            auto entry = platform::lstatFacts(p);
            if (entry && flags_.contains(p)) entry->flags |= flags_.at(p);
            return entry;
        };
        return facts;
    }
    testing::TempDir temp_;
    std::string dir_ = temp_.path();
    std::map<std::string, std::uint32_t> flags_;
    std::vector<std::string> asked_;
};

TEST_F(BlockerWalk, FindsFlagsWithinTheBudget) {
    EXPECT_EQ(removalBlocker(dir_, 5, 1000), std::nullopt);  // the real disk of Linux carries no flags
    EXPECT_EQ(removalBlocker(dir_ + "/missing", 5, 1000, flagged()), std::nullopt);

    flags_[dir_ + "/b/c/d/deep"] = kFlagNoUnlink;
    EXPECT_EQ(removalBlocker(dir_, 4, 1000, flagged()), B::unlinkProhibited(dir_ + "/b/c/d/deep"));
    EXPECT_EQ(removalBlocker(dir_, 3, 1000, flagged()), std::nullopt);  // a level too deep for this budget
    EXPECT_EQ(removalBlocker(dir_ + "/b", 3, 1000, flagged()), B::unlinkProhibited(dir_ + "/b/c/d/deep"));

    flags_[dir_] = kFlagNoUnlink;
    EXPECT_EQ(removalBlocker(dir_, 4, 1000, flagged()), B::unlinkProhibited(dir_));
    flags_[dir_ + "/e/x"] = kFlagRestricted;
    EXPECT_EQ(removalBlocker(dir_, 4, 1000, flagged()), B::systemIntegrityProtection(dir_ + "/e/x"));
}

TEST_F(BlockerWalk, StopsAtTheFirstRestrictedChild) {
    flags_[dir_ + "/b"] = kFlagRestricted;
    asked_.clear();
    EXPECT_EQ(removalBlocker(dir_, 5, 1000, flagged()), B::systemIntegrityProtection(dir_ + "/b"));
    for (const auto& p : asked_) EXPECT_FALSE(p.starts_with(dir_ + "/b/")) << p << " was looked at after the answer";
}

TEST_F(BlockerWalk, NamesBudgetAndLinks) {
    flags_[dir_ + "/linked/inside"] = kFlagRestricted;
    EXPECT_EQ(removalBlocker(dir_ + "/a", 5, 1000, flagged()), std::nullopt);  // a link is not walked into
    EXPECT_EQ(removalBlocker(dir_ + "/a/link", 5, 1000, flagged()), std::nullopt);  // nor a link given as the item
    EXPECT_EQ(removalBlocker(dir_ + "/linked", 5, 1000, flagged()), B::systemIntegrityProtection(dir_ + "/linked/inside"));

    flags_.clear();
    flags_[dir_ + "/b/c"] = kFlagNoUnlink;
    // The top level holds 4 names; with a budget of 4 no second level is listed.
    EXPECT_EQ(removalBlocker(dir_, 5, 4, flagged()), std::nullopt);
    EXPECT_EQ(removalBlocker(dir_, 5, 100, flagged()), B::unlinkProhibited(dir_ + "/b/c"));
    EXPECT_EQ(removalBlocker(dir_, 0, 1000, flagged()), std::nullopt);
}

TEST(SystemDeleteResult, Messages) {
    using R = SystemDeleteResult;
    EXPECT_EQ(R{R::Deleted{"/Library/Caches/com.x"}}.message(), "Deleted com.x.");
    EXPECT_TRUE(R{R::Deleted{"/x"}}.succeeded());
    EXPECT_EQ(R{R::Blocked{B::unlinkProhibited("/a/b")}}.message(), B::unlinkProhibited("/a/b").reason());
    EXPECT_FALSE(R{R::Blocked{B::unlinkProhibited("/a/b")}}.succeeded());
    EXPECT_EQ(R{R::Refused{"protected location"}}.message(), "Nothing was deleted — protected location");
    EXPECT_EQ(R{R::Failed{""}}.message(), "Nothing was deleted. macOS said: no detail");
    EXPECT_EQ(R{R::Failed{std::string(300, 'e')}}.message(), "Nothing was deleted. macOS said: " + std::string(200, 'e'));
    // Characters, not bytes: 300 two-byte letters keep 200 whole letters.
    std::string umlauts;
    for (int i = 0; i < 300; ++i) umlauts += "ü";
    EXPECT_EQ(R{R::Failed{umlauts}}.message(), "Nothing was deleted. macOS said: " + umlauts.substr(0, 400));
    EXPECT_EQ(R{R::Cancelled{}}.message(), "Cancelled at the password prompt — nothing was deleted.");
    EXPECT_FALSE(R{R::Cancelled{}}.succeeded());
    EXPECT_FALSE(R{R::Failed{"x"}}.succeeded());
}

}  // namespace
}  // namespace orvane
