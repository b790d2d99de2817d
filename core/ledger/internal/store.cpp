#include "core/ledger/internal/store.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "core/common/path.hpp"
#include "core/ledger/ledger.hpp"

namespace orvane::ledger::internal {
namespace {

std::atomic<bool> retired{false};

// Longer than any write takes between its last byte and its rename.
constexpr std::time_t kLeftoverAgeSeconds = 600;

// ".NAME.tmp-N": the name writeFileAtomically writes NAME through, N a random number in decimal.
bool isLeftoverOfAKilledWrite(std::string_view name) {
    const auto suffix = name.rfind(".tmp-");
    if (!name.starts_with('.') || suffix == std::string_view::npos || suffix < 2) return false;
    const auto digits = name.substr(suffix + 5);
    return !digits.empty() && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Regular files only, looked at and removed without following a link, so that nothing outside
// the folder is reached. False when the folder cannot be listed.
bool sweepLeftovers(const std::string& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    DIR* listing = ::fdopendir(fd);
    if (!listing) {
        ::close(fd);
        return false;
    }
    const std::time_t before = std::time(nullptr) - kLeftoverAgeSeconds;
    std::vector<std::string> leftovers;
    while (const dirent* entry = ::readdir(listing)) {
        struct stat facts {};
        if (isLeftoverOfAKilledWrite(entry->d_name) &&
            ::fstatat(fd, entry->d_name, &facts, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(facts.st_mode) &&
            facts.st_mtime < before)
            leftovers.emplace_back(entry->d_name);
    }
    for (const auto& name : leftovers) ::unlinkat(fd, name.c_str(), 0);
    ::closedir(listing);
    return true;
}

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

void openLedgerDir() {
    struct Swept {
        std::mutex lock;
        std::string folder;  // the folder swept last
    };
    // Never destroyed: the log lines flushed at exit still open the folder.
    static auto* swept = new Swept;
    if (isRetired()) return;
    std::lock_guard guard(swept->lock);
    const std::string folder = Ledger::dir();
    if (folder != swept->folder && sweepLeftovers(folder)) swept->folder = folder;
}

void createLedgerDir() {
    openLedgerDir();
    std::error_code ignored;
    std::filesystem::create_directories(Ledger::dir(), ignored);
}

std::optional<std::string> readLedgerFile(std::string_view name) {
    if (isRetired()) return std::nullopt;
    openLedgerDir();
    return readFile(ledgerFile(name), kLedgerFileMaxBytes).bytes;
}

bool writeLedgerFile(std::string_view name, std::string_view bytes) {
    if (isRetired()) return false;
    createLedgerDir();
    return writeFileAtomically(ledgerFile(name), bytes);
}

}  // namespace orvane::ledger::internal
