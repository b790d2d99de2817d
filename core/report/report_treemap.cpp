#include "core/report/report_treemap.hpp"

#include <algorithm>
#include <map>

#include "core/common/path.hpp"

namespace orvane {

namespace {

struct Piece {
    TileKind kind = TileKind::folder;
    std::string path;
    std::int64_t bytes = 0;
    const SpaceItem* finding = nullptr;
};

class Painter {
public:
    Painter(const DiskWalk& walk, const std::vector<SpaceItem>& findings, const TreemapLimits& limits)
        : walk_(walk), limits_(limits) {
        for (const auto& item : findings) {
            if (item.sizeBytes <= 0) continue;
            byParent_[deletingLastPathComponent(item.id)].push_back(&item);
            byPath_[item.id] = &item;
        }
    }

    void folder(const std::string& path, const TreemapRect& rect, int depth) {
        const auto& walked = walk_.folders.at(path);
        const bool labelled = rect.width >= limits_.labelWidth && rect.height >= limits_.labelHeight;
        tiles_.push_back({rect, TileKind::folder, path, walked.bytes, std::nullopt, std::nullopt,
                          labelled ? lastPathComponent(path) : std::string(), depth});
        if (depth >= limits_.maxDepth || rect.width < limits_.minSide || rect.height < limits_.minSide) return;
        const double inset = 1;
        const TreemapRect inner{rect.x + inset, rect.y + inset + (labelled ? limits_.header : 0),
                                std::max(0.0, rect.width - 2 * inset),
                                std::max(0.0, rect.height - 2 * inset - (labelled ? limits_.header : 0))};
        if (inner.area() <= 0 || walked.bytes <= 0) return;

        std::vector<Piece> pieces;
        std::int64_t foundHere = 0;
        if (const auto found = byParent_.find(path); found != byParent_.end())
            for (const auto* item : found->second) {
                pieces.push_back({TileKind::finding, item->id, item->sizeBytes, item});
                if (!walk_.folders.count(item->id)) foundHere += item->sizeBytes;
            }
        for (const auto& name : walked.folders) {
            const std::string child = appendingPathComponent(path, name);
            if (byPath_.count(child)) continue;  // drawn as its finding
            pieces.push_back({TileKind::folder, child, walk_.folders.at(child).bytes, nullptr});
        }
        // The files no finding names; a scan's sizes and the walk's may differ a little.
        if (walked.fileBytes - foundHere > 0)
            pieces.push_back({TileKind::otherFiles, path, walked.fileBytes - foundHere, nullptr});

        std::int64_t total = 0;
        for (const auto& piece : pieces) total += std::max<std::int64_t>(piece.bytes, 0);
        if (total <= 0) return;
        // Too small to see: gathered before the layout, so the rest keeps its proportions.
        std::vector<Piece> drawn;
        std::int64_t smaller = 0;
        for (auto& piece : pieces) {
            const double area = static_cast<double>(piece.bytes) / static_cast<double>(total) * inner.area();
            if (piece.bytes <= 0) continue;
            if (area < limits_.minArea) smaller += piece.bytes;
            else drawn.push_back(std::move(piece));
        }
        std::stable_sort(drawn.begin(), drawn.end(), [](const Piece& a, const Piece& b) { return a.bytes > b.bytes; });
        if (smaller > 0) drawn.push_back({TileKind::smallerItems, path, smaller, nullptr});
        std::vector<std::int64_t> sizes;
        for (const auto& piece : drawn) sizes.push_back(piece.bytes);
        const auto rects = squarifiedLayout(sizes, inner);
        for (std::size_t i = 0; i < drawn.size(); ++i) {
            const auto& piece = drawn[i];
            if (piece.kind == TileKind::folder) {
                folder(piece.path, rects[i], depth + 1);
                continue;
            }
            const bool named = piece.kind == TileKind::finding && rects[i].width >= limits_.labelWidth &&
                               rects[i].height >= limits_.labelHeight;
            TreemapTile tile{rects[i], piece.kind, piece.path, piece.bytes, std::nullopt, std::nullopt,
                             named ? lastPathComponent(piece.path) : std::string(), depth + 1};
            if (piece.finding) {
                tile.fileKind = fileKindOf(*piece.finding);
                tile.safety = piece.finding->safety;
            }
            tiles_.push_back(std::move(tile));
        }
    }

    std::vector<TreemapTile> tiles() && { return std::move(tiles_); }

private:
    const DiskWalk& walk_;
    const TreemapLimits& limits_;
    std::map<std::string, std::vector<const SpaceItem*>> byParent_;
    std::map<std::string, const SpaceItem*> byPath_;
    std::vector<TreemapTile> tiles_;
};

}  // namespace

std::vector<TreemapTile> reportTreemap(const DiskWalk& walk, const std::vector<SpaceItem>& findings,
                                       const TreemapRect& canvas, const TreemapLimits& limits) {
    if (!walk.folders.count(walk.root)) return {};
    Painter painter(walk, findings, limits);
    painter.folder(walk.root, canvas, 0);
    return std::move(painter).tiles();
}

}  // namespace orvane
