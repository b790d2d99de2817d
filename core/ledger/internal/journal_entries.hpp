// What the crash journals hold on disk, and reading and writing them on the ledger's queue.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/ledger/journals.hpp"
#include "core/ledger/versioned_payload.hpp"

namespace orvane::ledger::internal {

inline constexpr std::string_view kCompactJournalFile = "compact-inflight.json";
inline constexpr std::string_view kSwapJournalFile = "swap-inflight.json";
inline constexpr std::string_view kMoveJournalFile = "moves-inflight.json";

// One entry of the swap journal: a file being replaced by a compressed copy or a clone.
struct SwapEntry {
    std::string path;
    InflightKind kind = InflightKind::compress;
    bool operator==(const SwapEntry&) const = default;
};

// On the ledger's queue only. A missing or damaged journal reads as empty.
std::vector<std::string> readCompactJournal();
std::vector<SwapEntry> readSwapJournal();
std::vector<MoveRecord> readMoveJournal();
void writeCompactJournal(const std::vector<std::string>& paths);
void writeSwapJournal(const std::vector<SwapEntry>& entries);
void writeMoveJournal(const std::vector<MoveRecord>& records);

}  // namespace orvane::ledger::internal

namespace orvane {

// {"path","kind"}, both required; an unknown kind fails the entry.
template <>
struct JSONCoding<ledger::internal::SwapEntry> {
    static nlohmann::ordered_json encode(const ledger::internal::SwapEntry& entry);
    static std::optional<ledger::internal::SwapEntry> decode(const nlohmann::json& value);
};

}  // namespace orvane
