#include "core/ledger/internal/store.hpp"

#include <sys/stat.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>

#include "core/common/path.hpp"
#include "core/ledger/ledger.hpp"

namespace orvane::ledger::internal {
namespace {

std::atomic<bool> retired{false};

}  // namespace

SerialQueue& ledgerQueue() {
    // Never destroyed: a log line queued from another static's destructor must still find its
    // queue. Lines queued before a normal exit are written by the handler registered here.
    static SerialQueue* queue = [] {
        auto* q = new SerialQueue("ledger");
        std::atexit([] { ledgerQueue().flush(); });
        return q;
    }();
    return *queue;
}

bool isRetired() { return retired.load(); }

std::mutex& wipeLock() {
    static std::mutex lock;
    return lock;
}

void markRetired() { retired.store(true); }

std::string ledgerFile(std::string_view name) { return appendingPathComponent(Ledger::dir(), name); }

void createLedgerDir() {
    std::error_code ignored;
    std::filesystem::create_directories(Ledger::dir(), ignored);
}

std::optional<std::string> readLedgerFile(std::string_view name) {
    if (isRetired()) return std::nullopt;
    return readFile(ledgerFile(name), kLedgerFileMaxBytes).bytes;
}

bool writeLedgerFile(std::string_view name, std::string_view bytes) {
    if (isRetired()) return false;
    createLedgerDir();
    return writeFileAtomically(ledgerFile(name), bytes);
}

}  // namespace orvane::ledger::internal
