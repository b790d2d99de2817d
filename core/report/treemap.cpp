#include "core/report/treemap.hpp"

#include <algorithm>
#include <numeric>

namespace orvane {

namespace {

// The worst aspect ratio of a row of areas laid along a side of length `side`.
double worstRatio(double sum, double smallest, double largest, double side) {
    const double side2 = side * side;
    const double sum2 = sum * sum;
    return std::max(side2 * largest / sum2, sum2 / (side2 * smallest));
}

}  // namespace

std::vector<TreemapRect> squarifiedLayout(const std::vector<std::int64_t>& sizes, const TreemapRect& bounds) {
    std::vector<TreemapRect> out(sizes.size(), TreemapRect{bounds.x, bounds.y, 0, 0});
    std::vector<std::size_t> order;
    long double total = 0;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        if (sizes[i] <= 0) continue;
        order.push_back(i);
        total += static_cast<long double>(sizes[i]);
    }
    if (order.empty() || bounds.width <= 0 || bounds.height <= 0) return out;
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return sizes[a] > sizes[b]; });
    const long double scale = static_cast<long double>(bounds.width) * bounds.height / total;
    std::vector<double> areas(sizes.size(), 0);
    for (const auto i : order) areas[i] = static_cast<double>(static_cast<long double>(sizes[i]) * scale);

    TreemapRect space = bounds;
    std::size_t first = 0;
    while (first < order.size()) {
        const double side = std::min(space.width, space.height);
        // Grow the row while that does not make its worst rectangle less square.
        double sum = areas[order[first]];
        double largest = sum;
        double smallest = sum;
        double worst = worstRatio(sum, smallest, largest, side);
        std::size_t end = first + 1;
        for (; end < order.size(); ++end) {
            const double area = areas[order[end]];
            const double ratio = worstRatio(sum + area, std::min(smallest, area), largest, side);
            if (ratio > worst) break;
            sum += area;
            smallest = std::min(smallest, area);
            worst = ratio;
        }
        const bool last = end == order.size();
        const bool alongHeight = space.width >= space.height;
        // The last row takes what is left, so rounding never leaves a sliver or spills over.
        const double length = alongHeight ? space.height : space.width;
        const double room = alongHeight ? space.width : space.height;
        const double thickness = last ? room : std::min(room, sum / length);
        double offset = 0;
        for (std::size_t k = first; k < end; ++k) {
            const double share = k + 1 == end ? length - offset : areas[order[k]] / thickness;
            out[order[k]] = alongHeight ? TreemapRect{space.x, space.y + offset, thickness, share}
                                        : TreemapRect{space.x + offset, space.y, share, thickness};
            offset += share;
        }
        if (alongHeight) {
            space.x += thickness;
            space.width -= thickness;
        } else {
            space.y += thickness;
            space.height -= thickness;
        }
        first = end;
    }
    return out;
}

}  // namespace orvane
