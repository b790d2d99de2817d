#include "core/duplicates/clone_claim.hpp"

#include <gtest/gtest.h>

namespace orvane {
namespace {

TEST(CloneClaim, ClonesCountOnceAndUnknownsNever) {
    using Starts = std::vector<std::optional<std::int64_t>>;
    struct Case {
        Starts starts;
        DupeClaim expected;
    };
    const std::vector<Case> cases = {
        {{5, 5, 9}, {1, 100}},
        {{5, 5}, {0, 0}},
        {{std::nullopt, std::nullopt}, {1, 100}},
        {{std::nullopt, 5, 5}, {1, 100}},
        {{5}, {0, 0}},
        {{}, {0, 0}},
        {{1, 2, 3, std::nullopt}, {3, 300}},
    };
    for (const Case& c : cases) {
        const DupeClaim claim = cloneAwareDupeClaim(100, c.starts);
        EXPECT_EQ(claim, c.expected) << c.starts.size() << " starts: " << claim.copies << ", " << claim.bytes;
    }

    struct Sizes {
        std::vector<std::int64_t> sizes;
        std::int64_t expected;
    };
    for (const Sizes& c : std::vector<Sizes>{{{10, 20, -5}, 10}, {{7}, 0}, {{}, 0}, {{-5, -3}, 0}, {{30, 30, 30}, 60}, {{5, 40, 10}, 15}})
        EXPECT_EQ(keepOneReclaimBytes(c.sizes), c.expected) << c.sizes.size() << " sizes";
}

}  // namespace
}  // namespace orvane
