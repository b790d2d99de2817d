#include "core/report/treemap.hpp"

#include <gtest/gtest.h>

#include <random>

namespace orvane {
namespace {

bool overlap(const TreemapRect& a, const TreemapRect& b) {
    constexpr double e = 1e-6;
    return a.x + e < b.x + b.width && b.x + e < a.x + a.width && a.y + e < b.y + b.height && b.y + e < a.y + a.height;
}

TEST(Treemap, AreasFollowSizesWithoutOverlapInsideTheCanvas) {
    std::mt19937_64 rng(7);
    for (int round = 0; round < 50; ++round) {
        std::vector<std::int64_t> sizes(1 + rng() % 60);
        for (auto& size : sizes) size = static_cast<std::int64_t>(rng() % 5 == 0 ? 0 : 1 + rng() % (1ULL << (rng() % 40)));
        const TreemapRect canvas{10, 20, 300 + static_cast<double>(rng() % 900), 100 + static_cast<double>(rng() % 700)};
        const auto rects = squarifiedLayout(sizes, canvas);
        ASSERT_EQ(rects.size(), sizes.size());
        long double total = 0;
        for (auto size : sizes) total += static_cast<long double>(size);
        for (std::size_t i = 0; i < rects.size(); ++i) {
            const auto& r = rects[i];
            EXPECT_GE(r.x, canvas.x - 1e-6);
            EXPECT_GE(r.y, canvas.y - 1e-6);
            EXPECT_LE(r.x + r.width, canvas.x + canvas.width + 1e-6);
            EXPECT_LE(r.y + r.height, canvas.y + canvas.height + 1e-6);
            const double expected = total > 0 ? static_cast<double>(sizes[i] / total) * canvas.area() : 0;
            EXPECT_NEAR(r.area(), expected, canvas.area() * 1e-9 + 1e-6) << "round " << round << " item " << i;
            for (std::size_t j = i + 1; j < rects.size(); ++j) {
                const bool both = r.area() > 0 && rects[j].area() > 0;
                EXPECT_FALSE(both && overlap(r, rects[j])) << i << " and " << j;
            }
        }
    }
}

TEST(Treemap, SquareishAndStableForTies) {
    // The classic example: six rows' worth of sizes in a 6 x 4 canvas, none thinner than 1:3.
    const auto rects = squarifiedLayout({6, 6, 4, 3, 2, 2, 1}, {0, 0, 6, 4});
    for (const auto& r : rects) EXPECT_LE(std::max(r.width / r.height, r.height / r.width), 3.0 + 1e-9);
    EXPECT_EQ(rects[0], (TreemapRect{0, 0, 3, 2}));
    EXPECT_EQ(rects[1], (TreemapRect{0, 2, 3, 2}));
    // Equal sizes keep their order, and the same input gives the same picture.
    const auto tied = squarifiedLayout({5, 5, 5, 5}, {0, 0, 100, 100});
    EXPECT_LT(tied[0].x + tied[0].y, tied[3].x + tied[3].y);
    EXPECT_EQ(tied, squarifiedLayout({5, 5, 5, 5}, {0, 0, 100, 100}));
    EXPECT_EQ(squarifiedLayout({0, -1}, {0, 0, 10, 10}), (std::vector<TreemapRect>(2, TreemapRect{0, 0, 0, 0})));
    EXPECT_EQ(squarifiedLayout({1}, {0, 0, 0, 10})[0].area(), 0);
}

}  // namespace
}  // namespace orvane
