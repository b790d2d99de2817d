#include "core/ledger/repair.hpp"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "core/common/ov_error.hpp"
#include "core/common/path.hpp"
#include "core/ledger/action_log.hpp"
#include "core/ledger/internal/journal_entries.hpp"
#include "core/ledger/internal/store.hpp"
#include "core/ledger/ledger.hpp"
#include "core/ledger/trash.hpp"
#include "core/platform/platform.hpp"

namespace orvane::Ledger {

using namespace ledger::internal;
namespace fs = std::filesystem;

namespace {

bool isSymlink(const std::string& path) {
    auto facts = platform::lstatFacts(path);
    return facts && facts->isSymlink();
}

// Removes every entry of the path's folder whose name begins with `prefix`; whether there was one.
bool sweep(const std::string& path, const std::string& prefix) {
    std::string folder = deletingLastPathComponent(path);
    if (folder.empty()) folder = ".";
    std::error_code error;
    std::vector<fs::path> found;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (it->path().filename().string().starts_with(prefix)) found.push_back(it->path());
    for (const auto& entry : found) {
        std::error_code ignored;
        fs::remove_all(entry, ignored);  // a link goes, never what it points at
    }
    return !found.empty();
}

// Never replaces anything, not even a dangling link standing at `to`.
bool moveBack(const std::string& from, const std::string& to) {
    int error = platform::renameNoReplace(AT_FDCWD, from, AT_FDCWD, to);
    if (error == EINVAL && !platform::lstatFacts(to)) error = ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
    return error == 0;
}

void logRepairs(const std::vector<std::string>& messages) {
    for (const auto& message : messages) log("REPAIR " + message);
}

// Adds the record to "moves.json" unless one with its `dst` is there already.
void recordMoveUnlessKnown(const MoveRecord& record) {
    ledgerQueue().sync([&] {
        auto moves = readVersionedFile<std::vector<MoveRecord>>(kMovesFile);
        for (const auto& known : moves)
            if (known.dst == record.dst) return;
        moves.push_back(record);
        writeVersionedFile(kMovesFile, moves, movesFormatVersion);
    });
}

}  // namespace

std::optional<std::string> repairInPlaceSwap(const std::string& path, std::string_view backupSuffix,
                                             std::string_view tmpSuffix, bool disposeBackupToTrash) {
    // A relative path would be read against whatever folder this process runs in.
    if (!path.starts_with('/')) return std::nullopt;
    const std::string name = lastPathComponent(path);
    const std::string backup = path + std::string(backupSuffix);
    const std::string tmpPrefix = name + std::string(tmpSuffix);

    if (!fileExists(backup)) {
        // The swap never started, or it ended: at most working files are left.
        if (sweep(path, tmpPrefix)) return name + ": leftover working copy removed";
        return std::nullopt;
    }
    if (!fileExists(path)) {
        // The original was moved aside and the new file never took its place.
        const bool restored = moveBack(backup, path);
        sweep(path, tmpPrefix);
        if (restored) return name + ": restored after an interrupted compression";
        return name + ": could not be restored automatically \u2014 the original is at " + backup;
    }
    // The new file is in place; only the clean-up was missing.
    if (disposeBackupToTrash) {
        try {
            moveToTrash(backup);
        } catch (const std::exception&) {
            // The backup stays beside the file; the user loses nothing by it.
        }
    } else {
        std::error_code ignored;
        fs::remove_all(backup, ignored);
    }
    sweep(path, tmpPrefix);
    return name + ": compression finished, leftover backup removed";
}

std::vector<std::string> repairInterruptedCompacts() {
    const auto paths = ledgerQueue().sync(readCompactJournal);
    if (paths.empty()) return {};
    std::vector<std::string> messages;
    for (const auto& path : paths)
        if (auto message = repairInPlaceSwap(path, compactBackupSuffix, compactTmpSuffix, false))
            messages.push_back(std::move(*message));
    ledgerQueue().sync([] { writeCompactJournal({}); });
    logRepairs(messages);
    return messages;
}

std::vector<std::string> repairInterruptedSwaps() {
    const auto entries = ledgerQueue().sync(readSwapJournal);
    if (entries.empty()) return {};
    std::vector<std::string> messages;
    for (const auto& entry : entries) {
        switch (entry.kind) {
            case InflightKind::compress:
                if (auto message = repairInPlaceSwap(entry.path, compressBackupSuffix, compressTmpSuffix, true))
                    messages.push_back(std::move(*message));
                break;
            case InflightKind::dedupe: {
                const std::string tmp = entry.path + std::string(cloneTmpSuffix);
                if (entry.path.starts_with('/') && platform::lstatFacts(tmp)) {
                    std::error_code ignored;
                    fs::remove_all(tmp, ignored);
                    messages.push_back(lastPathComponent(entry.path) + ": leftover clone copy removed");
                }
                break;
            }
            case InflightKind::compact:
            case InflightKind::move:
                break;  // never written to this journal; dropped
        }
    }
    ledgerQueue().sync([] { writeSwapJournal({}); });
    logRepairs(messages);
    return messages;
}

std::vector<std::string> repairInterruptedMoves() {
    const auto records = ledgerQueue().sync(readMoveJournal);
    if (records.empty()) return {};
    std::vector<std::string> messages;
    std::vector<MoveRecord> survivors;
    for (const auto& record : records) {
        const std::string& title = record.title;
        const std::string& src = record.src;
        const std::string& dst = record.dst;
        // Relative paths would be read against whatever folder this process runs in: such an
        // entry was never written by a move, and nothing is done for it.
        if (!src.starts_with('/') || !dst.starts_with('/')) continue;

        if (!fileExists(dst)) {
            survivors.push_back(record);
            messages.push_back("Move of " + title + " is pending \u2014 the drive holding its copy at " + dst +
                               " isn't connected; reconnect it and relaunch to finish.");
            continue;
        }

        if (record.adminScope.value_or(false)) {
            // Only the privileged service may touch the source, so nothing is done to it here.
            if (isSymlink(src) || !fileExists(src)) {
                recordMoveUnlessKnown(record);
                messages.push_back("Recovered interrupted move of " + title + " \u2014 the verified copy is at " +
                                   dst + ".");
            } else {
                messages.push_back("The move of " + title + " didn't finish \u2014 your original is still at " + src +
                                   ", and an unused copy remains at " + dst + "; remove it when convenient.");
            }
            continue;
        }

        if (fileExists(src) && !isSymlink(src)) {
            try {
                moveToTrash(src);
            } catch (const std::exception&) {
                survivors.push_back(record);
                messages.push_back("Move of " + title + " is still unfinished \u2014 the leftover at " + src +
                                   " could not be moved to the Trash. The verified copy is safe at " + dst +
                                   "; relaunch to retry.");
                continue;
            }
        }
        if (record.symlinked) {
            if (!isSymlink(src)) {
                std::error_code ignored;
                fs::create_symlink(dst, src, ignored);
            }
            if (!isSymlink(src)) {
                survivors.push_back(record);
                messages.push_back("The copy of " + title + " is safe at " + dst + ", but the shortcut at " + src +
                                   " could not be created; relaunch to retry.");
                continue;
            }
        }
        recordMoveUnlessKnown(record);
        if (record.symlinked)
            messages.push_back("Recovered interrupted move of " + title + " \u2014 " + src + " now points at " + dst +
                               "; any leftover partial went to the Trash.");
        else
            messages.push_back("Recovered interrupted move of " + title + " \u2014 the verified copy is at " + dst +
                               "; any leftover partial went to the Trash.");
    }
    ledgerQueue().sync([&] { writeMoveJournal(survivors); });
    logRepairs(messages);
    return messages;
}

std::vector<std::string> repairInterrupted() {
    auto messages = repairInterruptedCompacts();
    for (auto* repair : {&repairInterruptedSwaps, &repairInterruptedMoves}) {
        auto more = repair();
        messages.insert(messages.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
    }
    return messages;
}

}  // namespace orvane::Ledger
