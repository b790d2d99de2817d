#include "core/ledger/user_defaults.hpp"

#include <mutex>

#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/ledger/internal/store.hpp"
#include "core/ledger/ledger.hpp"

namespace orvane {
namespace {

constexpr std::string_view kDefaultsFile = "user-defaults.json";

// Each change reads, changes and writes the whole file; this keeps two changes from crossing.
std::mutex defaultsLock;

nlohmann::json readDefaults() {
    if (ledger::internal::isRetired()) return nlohmann::json::object();
    auto bytes = readFile(userDefaultsPath(), ledger::internal::kLedgerFileMaxBytes).bytes;
    if (!bytes) return nlohmann::json::object();
    auto document = ledger::internal::parseJSON(*bytes);
    if (!document || !document->is_object()) return nlohmann::json::object();
    return *document;
}

}  // namespace

std::string userDefaultsPath() { return appendingPathComponent(Ledger::dir(), kDefaultsFile); }

std::optional<nlohmann::json> userDefault(std::string_view key) {
    std::lock_guard guard(defaultsLock);
    auto defaults = readDefaults();
    auto it = defaults.find(key);
    if (it == defaults.end()) return std::nullopt;
    return *it;
}

void setUserDefault(std::string_view key, const nlohmann::json& value) {
    std::lock_guard guard(defaultsLock);
    auto defaults = readDefaults();
    defaults[std::string(key)] = value;
    auto bytes = ledger::internal::dumpCompact(nlohmann::ordered_json(defaults));
    if (!bytes) return;
    // Checked and written under the wipe lock, so a wipe on the ledger's queue cannot fall between.
    std::lock_guard wipe(ledger::internal::wipeLock());
    ledger::internal::writeLedgerFile(kDefaultsFile, *bytes);
}

}  // namespace orvane
