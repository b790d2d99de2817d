// Crash repair: finishing or undoing at launch what an interrupted change left on disk.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Nothing is removed on the strength of a journal alone: every decision rests on what exists on
// disk, and every outcome is told to the user in a sentence.
namespace orvane::Ledger {

// Settles one in-place swap of `path` by what is on disk: with no backup, working files are
// swept; with a backup and no file, the backup is put back; with both, the swap had finished and
// the backup goes (to the Trash when `disposeBackupToTrash`, else deleted). The message for the
// user, or none when there was nothing to do. Never throws; runs on the caller's thread.
std::optional<std::string> repairInPlaceSwap(const std::string& path, std::string_view backupSuffix,
                                             std::string_view tmpSuffix, bool disposeBackupToTrash);

// Each reads its journal, repairs every entry, rewrites the journal, logs every message after
// "REPAIR ", and returns the messages. An empty journal gives none and is not rewritten. The
// compact and swap journals are always emptied; the move journal keeps the entries that a later
// launch can still finish (a drive that is away, a Trash that refused, a link not made).
std::vector<std::string> repairInterruptedCompacts();
std::vector<std::string> repairInterruptedSwaps();
std::vector<std::string> repairInterruptedMoves();

// The three above in that order, their messages in that order. Called once at launch, before any
// scan or new operation: the repairs run off the ledger's queue and assume nothing else is under way.
std::vector<std::string> repairInterrupted();

}  // namespace orvane::Ledger
