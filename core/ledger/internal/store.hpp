// The ledger's shared state (queue, retired flag) and the file access all of the store goes through.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "core/common/json_files.hpp"
#include "core/ledger/internal/serial_queue.hpp"
#include "core/ledger/versioned_payload.hpp"

namespace orvane::ledger::internal {

inline constexpr std::string_view kMovesFile = "moves.json";

// `Ledger.q`, label "ledger". It lives as long as the process; what is queued when the process
// exits normally still runs.
SerialQueue& ledgerQueue();

bool isRetired();
// Held while the ledger's folder is wiped, and by any writer that runs off the ledger's queue
// while it checks the flag and writes, so that no such writer can bring the folder back.
std::mutex& wipeLock();
void markRetired();

// The functions below that touch files must run on the ledger's queue.

// The path of a file of the ledger's folder.
std::string ledgerFile(std::string_view name);
// Called before the folder is read or written. The first time in a process (and again whenever
// the folder is another), removes the temporary files of writes killed midway: regular files
// named ".NAME.tmp-N" (N decimal digits, as writeFileAtomically names them) unchanged for ten
// minutes. A younger one may be another process's write under way, since nothing locks the
// folder between processes. Does nothing when retired.
void openLedgerDir();
// Opens, then creates the folder with its parents; failure is ignored (the write that follows
// fails too).
void createLedgerDir();

// Far above what the store writes (the log rotates near 2 MB, a scan cache holds hundreds of
// items): a bound only on what a damaged or planted file can cost.
inline constexpr std::uint64_t kLedgerFileMaxBytes = 256ull * 1024 * 1024;

// The file's bytes; none when it is missing, unreadable, not a regular file (a FIFO is never
// waited on), above kLedgerFileMaxBytes, or the ledger is retired.
std::optional<std::string> readLedgerFile(std::string_view name);
// Creates the folder and replaces the file atomically. False when retired or when it failed.
bool writeLedgerFile(std::string_view name, std::string_view bytes);

// The decoded payload of a versioned file; an empty value when it is missing or does not decode.
template <typename T>
T readVersionedFile(std::string_view name) {
    auto bytes = readLedgerFile(name);
    if (!bytes) return T{};
    return decodeVersioned<T>(*bytes).value_or(T{});
}

template <typename T>
void writeVersionedFile(std::string_view name, const T& value, int version) {
    if (isRetired()) return;
    if (auto bytes = encodeVersioned(value, version)) writeLedgerFile(name, *bytes);
}

}  // namespace orvane::ledger::internal
