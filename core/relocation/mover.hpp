// Moving an item to another drive with a shortcut left in its place: refused before any byte is
// copied when it must not go, and journalled so that a crash at any moment loses nothing.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/raw_value.hpp"
#include "core/ledger/move_record.hpp"

namespace orvane {

// The kinds of work the mover carries out. `delete` is a word of the language, so that case is
// `delete_`; its raw value is "delete".
enum class MoverRun { move, delete_, compact, evict, dedupe, autoMove, putBackFromTrash, reinstateMove, expandShrink };

template <>
struct RawValues<MoverRun> {
    static constexpr std::array<std::pair<MoverRun, std::string_view>, 9> table = {{
        {MoverRun::move, "move"},
        {MoverRun::delete_, "delete"},
        {MoverRun::compact, "compact"},
        {MoverRun::evict, "evict"},
        {MoverRun::dedupe, "dedupe"},
        {MoverRun::autoMove, "autoMove"},
        {MoverRun::putBackFromTrash, "putBackFromTrash"},
        {MoverRun::reinstateMove, "reinstateMove"},
        {MoverRun::expandShrink, "expandShrink"},
    }};
};
inline constexpr std::array<MoverRun, 9> allMoverRuns = {
    MoverRun::move,   MoverRun::delete_,          MoverRun::compact,       MoverRun::evict,       MoverRun::dedupe,
    MoverRun::autoMove, MoverRun::putBackFromTrash, MoverRun::reinstateMove, MoverRun::expandShrink};

// Working copies are named after their final name with this suffix, in the destination folder; a
// move into that folder removes those a killed move left.
inline constexpr std::string_view kMoveWorkingSuffix = ".ov-move-tmp";

// What keeps a source where it is, beyond the drive: each gives the sentence, or none.
struct MoveChecks {
    std::function<std::optional<std::string>(const std::string&)> sourceRefusal;  // verdicts and protections
    std::function<std::optional<std::string>(const std::string&)> storeRefusal;   // folders apps expect, stores
    std::function<std::vector<std::string>(const std::string&)> storeNotes;       // what to know before it goes
};

struct MovePlan {
    std::string src;
    std::string title;
    std::string folder;  // the destination's "Offloaded" folder
    std::string dst;     // the final path planned; a fresh one is taken if it is gone by then
    std::string fileSystemType;  // of the destination
    std::int64_t bytes = 0;      // of the source's regular files
    std::int64_t files = 0;
    std::vector<std::string> notes;  // warnings to show before going ahead
    bool operator==(const MovePlan&) const = default;
};

// A plan, or the sentence that refuses the move.
struct MovePreparation {
    std::optional<MovePlan> plan;
    std::string refusal;
};

// Everything that can be judged before a byte is copied: the source's verdicts and protections,
// folders apps expect and vendor stores, the destination's format and file system (the source's
// own frees nothing), what the source holds (only files, folders and shortcuts can be copied, all
// on one file system), the room on the drive, and whether the source can be taken from its folder.
// `destination` is a folder on the drive; the item goes into its "Offloaded" folder.
MovePreparation prepareMove(const std::string& src, const std::string& destination, const std::string& title,
                            const MoveChecks& checks, const Facts& facts);

struct MoveOutcome {
    bool moved = false;
    // Whether the journal still holds the move: the copy is safe and `orvane repair` finishes it.
    bool pending = false;
    std::string sentence;
    MoveRecord record;
};

// Copies into a working name, verifies every file by SHA-256 against the digest taken while
// reading the source and the source's signatures before and after, renames the copy to its final
// name, journals the move, removes the source, leaves a symbolic link to the copy in its place,
// records the move and logs it. Until the journal entry is written the source is untouched, and a
// failure removes the working copy. `progress` hears the bytes copied so far.
MoveOutcome performMove(const MovePlan& plan, const std::function<void(std::int64_t copied)>& progress);

}  // namespace orvane
