// The crash journals: the intent of an in-place change, on disk for as long as the change runs.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/common/raw_value.hpp"
#include "core/ledger/move_record.hpp"

namespace orvane {

enum class InflightKind { compact, compress, dedupe, move };

template <>
struct RawValues<InflightKind> {
    static constexpr std::array<std::pair<InflightKind, std::string_view>, 4> table = {
        {{InflightKind::compact, "compact"}, {InflightKind::compress, "compress"}, {InflightKind::dedupe, "dedupe"},
         {InflightKind::move, "move"}}};
};

}  // namespace orvane

namespace orvane::Ledger {

// Names beside the original, in its folder, while a change is under way. A working file's name
// is the original's name followed by the tmp suffix and anything else.
inline constexpr std::string_view compactBackupSuffix = ".ov-compact-orig";
inline constexpr std::string_view compactTmpSuffix = ".ov-compact-tmp";
inline constexpr std::string_view compressBackupSuffix = ".ov-compress-orig";
inline constexpr std::string_view compressTmpSuffix = ".ov-compress-tmp";
inline constexpr std::string_view cloneTmpSuffix = ".ov-clone-tmp";

std::string compactJournalPath();  // "compact-inflight.json"
std::string swapJournalPath();     // "swap-inflight.json"
std::string moveJournalPath();     // "moves-inflight.json"

// The caller's duty: `begin` before the first change on disk, `end` after the last. A move is
// begun once the copy at `dst` has been verified and before the source is touched. Each call is
// synchronous on the ledger's queue and writes its journal (unless the ledger is retired).

// Adds the path unless it is listed.
void beginCompact(const std::string& path);
// Removes every entry equal to the path.
void endCompact(const std::string& path);

// Adds an entry unless one has the same path and kind.
void beginSwap(const std::string& path, InflightKind kind);
// Removes every entry with this path, whatever its kind.
void endSwap(const std::string& path);

// Replaces any entry with the same `dst` by this record, at the end.
void beginMove(const MoveRecord& record);
void endMove(const std::string& dst);

}  // namespace orvane::Ledger
