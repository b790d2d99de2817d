#include "core/ledger/journals.hpp"

#include <algorithm>

#include "core/ledger/internal/journal_entries.hpp"
#include "core/common/json_fields.hpp"
#include "core/ledger/internal/store.hpp"
#include "core/ledger/ledger.hpp"

namespace orvane {

nlohmann::ordered_json JSONCoding<ledger::internal::SwapEntry>::encode(const ledger::internal::SwapEntry& entry) {
    nlohmann::ordered_json out;
    out["path"] = entry.path;
    out["kind"] = rawValue(entry.kind);
    return out;
}

std::optional<ledger::internal::SwapEntry> JSONCoding<ledger::internal::SwapEntry>::decode(const nlohmann::json& value) {
    JSONFields fields(value, "a swap journal entry");
    ledger::internal::SwapEntry entry{fields.string("path"), fields.raw<InflightKind>("kind")};
    if (!fields) return std::nullopt;
    return entry;
}

}  // namespace orvane

namespace orvane::ledger::internal {

std::vector<std::string> readCompactJournal() {
    return readVersionedFile<std::vector<std::string>>(kCompactJournalFile);
}
std::vector<SwapEntry> readSwapJournal() { return readVersionedFile<std::vector<SwapEntry>>(kSwapJournalFile); }
std::vector<MoveRecord> readMoveJournal() { return readVersionedFile<std::vector<MoveRecord>>(kMoveJournalFile); }

void writeCompactJournal(const std::vector<std::string>& paths) {
    writeVersionedFile(kCompactJournalFile, paths, Ledger::compactJournalFormatVersion);
}
void writeSwapJournal(const std::vector<SwapEntry>& entries) {
    writeVersionedFile(kSwapJournalFile, entries, Ledger::swapJournalFormatVersion);
}
void writeMoveJournal(const std::vector<MoveRecord>& records) {
    writeVersionedFile(kMoveJournalFile, records, Ledger::moveJournalFormatVersion);
}

}  // namespace orvane::ledger::internal

namespace orvane::Ledger {

using namespace ledger::internal;

std::string compactJournalPath() { return ledgerFile(kCompactJournalFile); }
std::string swapJournalPath() { return ledgerFile(kSwapJournalFile); }
std::string moveJournalPath() { return ledgerFile(kMoveJournalFile); }

void beginCompact(const std::string& path) {
    ledgerQueue().sync([&] {
        auto paths = readCompactJournal();
        if (std::find(paths.begin(), paths.end(), path) == paths.end()) paths.push_back(path);
        writeCompactJournal(paths);
    });
}

void endCompact(const std::string& path) {
    ledgerQueue().sync([&] {
        auto paths = readCompactJournal();
        std::erase(paths, path);
        writeCompactJournal(paths);
    });
}

void beginSwap(const std::string& path, InflightKind kind) {
    ledgerQueue().sync([&] {
        auto entries = readSwapJournal();
        const SwapEntry entry{path, kind};
        if (std::find(entries.begin(), entries.end(), entry) == entries.end()) entries.push_back(entry);
        writeSwapJournal(entries);
    });
}

void endSwap(const std::string& path) {
    ledgerQueue().sync([&] {
        auto entries = readSwapJournal();
        std::erase_if(entries, [&](const SwapEntry& e) { return e.path == path; });
        writeSwapJournal(entries);
    });
}

void beginMove(const MoveRecord& record) {
    ledgerQueue().sync([&] {
        auto records = readMoveJournal();
        std::erase_if(records, [&](const MoveRecord& r) { return r.dst == record.dst; });
        records.push_back(record);
        writeMoveJournal(records);
    });
}

void endMove(const std::string& dst) {
    ledgerQueue().sync([&] {
        auto records = readMoveJournal();
        std::erase_if(records, [&](const MoveRecord& r) { return r.dst == dst; });
        writeMoveJournal(records);
    });
}

}  // namespace orvane::Ledger
