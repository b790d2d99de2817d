// The squarified treemap: sizes laid out as rectangles whose areas are proportional to them,
// each as close to a square as the row it shares allows, so that a size can be read by eye.
#pragma once

#include <cstdint>
#include <vector>

namespace orvane {

struct TreemapRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    bool operator==(const TreemapRect&) const = default;
    double area() const { return width * height; }
};

// One rectangle per size, in the order of `sizes`, filling `bounds`. Sizes are placed largest
// first, equal sizes in their given order, so the same input always gives the same picture. A
// size of zero or less gets an empty rectangle at the corner of the space left.
std::vector<TreemapRect> squarifiedLayout(const std::vector<std::int64_t>& sizes, const TreemapRect& bounds);

}  // namespace orvane
