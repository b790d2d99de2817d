// The picture of a report: the scanned folder as nested rectangles, folders by their size as `du`
// measures it, the scan's findings as coloured leaves, and what is too small to draw gathered
// into one "smaller items" rectangle per folder.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/report/disk_walk.hpp"
#include "core/report/treemap.hpp"
#include "core/scan/file_kind.hpp"
#include "core/scan/space_item.hpp"

namespace orvane {

enum class TileKind { folder, finding, otherFiles, smallerItems };

struct TreemapTile {
    TreemapRect rect;
    TileKind kind = TileKind::folder;
    std::string path;  // what the tooltip names: the folder, the finding, or the folder they lie in
    std::int64_t bytes = 0;
    std::optional<FileKind> fileKind;  // findings
    std::optional<Safety> safety;      // findings
    std::string label;                 // folders large enough to carry their name; empty otherwise
    int depth = 0;
    bool operator==(const TreemapTile&) const = default;
};

struct TreemapLimits {
    double minArea = 100;     // square pixels below which a piece joins "smaller items"
    double minSide = 6;       // a folder thinner than this is not opened
    int maxDepth = 8;         // folders opened below the root
    double labelWidth = 72;   // room a folder needs to carry its name
    double labelHeight = 30;
    double header = 14;       // the band a labelled folder keeps for its name
};

// Tiles in drawing order: each folder before what lies in it. A folder that a finding covers is
// drawn as that finding.
std::vector<TreemapTile> reportTreemap(const DiskWalk& walk, const std::vector<SpaceItem>& findings,
                                       const TreemapRect& canvas, const TreemapLimits& limits = {});

}  // namespace orvane
