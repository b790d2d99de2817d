#include "core/privileged/operations.hpp"

#include <algorithm>
#include <type_traits>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "core/apps/trash_app_delete.hpp"
#include "core/common/format.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/privileged/no_follow.hpp"
#include "core/scan/generic_scan.hpp"

namespace orvane {
namespace {

constexpr double kSnapshotTimeout = 3600;
constexpr double kPurgeTimeout = 600;
constexpr double kResetTimeout = 120;

[[noreturn]] void fail(int code, std::string text) { throw HelperError(code, std::move(text)); }

bool succeeded(const ToolResult& r) { return !r.timedOut && r.status == 0; }

std::string joined(const std::vector<std::string>& lines, std::string_view separator) {
    std::string out;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i) out += separator;
        out += lines[i];
    }
    return out;
}

std::string domainOf(std::string_view path, std::uint32_t uid) {
    return path.starts_with("/Library/LaunchDaemons/") ? std::string("system") : "gui/" + std::to_string(uid);
}

bool renameLaunchItem(const std::string& from, const std::string& to, const OperationContext& context) {
    return renameLaunchItemNoFollow(from, to, context.launchFolders.data(), context.launchFolders.size());
}

void run(const op::RemovePath& c, const OperationContext&) {
    if (!removeNoFollow(c.path)) fail(kFileErrorCode, "remove of " + c.path + " failed or was redirected");
}

void run(const op::SwapToSymlink& c, const OperationContext&) {
    if (!removeNoFollow(c.original))
        fail(kFileErrorCode, "swap remove of " + c.original + " failed or was redirected");
    if (!symlinkNoFollow(c.original, c.target)) fail(kFileErrorCode, "swap link at " + c.original + " failed");
}

void run(const op::RestoreFromStaging& c, const OperationContext&) {
    if (!moveIntoPlaceNoFollow(c.staging, c.destination, 0, 0))
        fail(kFileErrorCode, "restore into " + c.destination + " failed");
}

void run(const op::MoveAside& c, const OperationContext&) {
    if (!moveIntoPlaceNoFollow(c.path, c.to, c.chownTo, kStaffGroup))
        fail(kFileErrorCode, "move-aside to " + c.to + " failed");
}

void run(const op::DeleteSnapshots& c, const OperationContext& context) {
    std::vector<std::string> failures;
    for (const auto& date : c.dates) {
        auto r = context.facts.run(kSnapshotTool, {"deletelocalsnapshots", date}, kSnapshotTimeout, false,
                                  ToolErrors::merged);
        if (succeeded(r)) continue;
        failures.push_back(date + ": " + (r.timedOut ? std::string("timed out") : detail(r.lines)));
    }
    if (failures.empty()) return;
    const std::size_t total = c.dates.size();
    fail(kToolErrorCode, "deleted " + std::to_string(total - failures.size()) + " of " + std::to_string(total) +
                             " — tmutil: " + clipCharacters(joined(failures, "; "), 240));
}

void run(const op::ThinSnapshots&, const OperationContext& context) {
    auto r = context.facts.run(kSnapshotTool, {"thinlocalsnapshots", "/", "999999999999", "4"}, kSnapshotTimeout,
                              false, ToolErrors::merged);
    if (!succeeded(r))
        fail(kToolErrorCode,
             "thinlocalsnapshots failed (status " + std::to_string(r.status) + "): " + detail(r.lines));
}

void run(const op::PurgeInactiveMemory&, const OperationContext& context) {
    auto r = context.facts.run(kMemoryTool, {}, kPurgeTimeout, false, ToolErrors::merged);
    if (!succeeded(r)) fail(kToolErrorCode, "purge failed (status " + std::to_string(r.status) + "): " + detail(r.lines));
}

void run(const op::ResetBackgroundItems&, const OperationContext& context) {
    auto r = context.facts.run(kBackgroundTaskTool, {"resetbtm"}, kResetTimeout, false, ToolErrors::merged);
    // Unlike the other tools, neither trimmed nor "no detail": the raw start of what it said.
    if (!succeeded(r))
        fail(kToolErrorCode, "resetbtm failed (status " + std::to_string(r.status) + "): " +
                                 clipCharacters(joined(r.lines, " "), 120));
}

void run(const op::SetLaunchItemEnabled& c, const OperationContext& context) {
    const std::string domain = domainOf(c.path, context.callerUID);
    if (c.enabled) {
        const std::string newPath = c.path.substr(0, c.path.size() - std::min(c.path.size(), disabledAgentSuffix.size()));
        if (!renameLaunchItem(c.path, newPath, context)) fail(kFileErrorCode, "switching " + c.path + " back on failed");
        (void)runStatusThrough(context.facts, kLaunchTool, {"bootstrap", domain, newPath});
    } else {
        // Renamed first, then stopped by its new name: a job that restarts finds no file.
        const std::string newPath = c.path + std::string(disabledAgentSuffix);
        if (!renameLaunchItem(c.path, newPath, context)) fail(kFileErrorCode, "switching " + c.path + " off failed");
        (void)runStatusThrough(context.facts, kLaunchTool, {"bootout", domain, newPath});
    }
}

void run(const op::TrashLaunchItem& c, const OperationContext& context) {
    if (!std::string_view(c.path).ends_with(disabledAgentSuffix))
        (void)runStatusThrough(context.facts, kLaunchTool, {"bootout", domainOf(c.path, context.callerUID), c.path});
    if (!moveIntoPlaceNoFollow(c.path, c.to, c.chownTo, kStaffGroup))
        fail(kFileErrorCode, "moving " + c.path + " to the Trash failed");
}

void run(const op::PrivilegedScan& c, const OperationContext& context) {
    const ScanScope scope = c.kind == "folder" ? ScanScope(scope::Folder{c.root}) : ScanScope(scope::Volume{c.root, c.label});
    const auto dump = buildGenericScanDump(scope, false, ScanPrivilege::administrator, context.callerUID, context.facts);
    const std::string bytes = toJSON(dump, JSONDateEncoding::iso8601)
                                  .dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);

    const std::string parent = deletingLastPathComponent(c.outPath);
    const std::string name = lastPathComponent(c.outPath);
    int parentFD = openDirectoryChainNoFollow(parent);
    // As the primitives do: the kernel's own path for the folder must be the one validated.
    if (parentFD >= 0 && !fdIsDirectory(parentFD, parent)) {
        ::close(parentFD);
        parentFD = -1;
    }
    if (parentFD < 0) fail(kDumpErrorCode, "scan dump parent " + parent + " is not a real directory chain");
    // Always a new file, and nothing planted at the name can be written through.
    int fd = ::openat(parentFD, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        ::close(parentFD);
        fail(kDumpErrorCode, "could not create the scan dump at " + c.outPath);
    }
    (void)::fchown(fd, context.callerUID, kStaffGroup);
    std::size_t offset = 0;
    while (offset < bytes.size()) {
        ssize_t n = ::write(fd, bytes.data() + offset, bytes.size() - offset);
        if (n < 0 && errno == EINTR) continue;
        if (n < 1) {
            ::close(fd);
            ::close(parentFD);
            fail(kDumpErrorCode, "writing the scan dump failed at byte " + std::to_string(offset));
        }
        offset += static_cast<std::size_t>(n);
    }
    ::close(fd);
    ::close(parentFD);
}

void run(const op::DeleteTrashedApp& c, const OperationContext& context) {
    if (context.callerHome.empty()) fail(kFileErrorCode, "no home for the caller");
    auto outcome = deleteTrashedApp(c.name, context.callerHome + "/.Trash", context.callerUID);
    if (outcome.deleted) return;
    fail(kFileErrorCode, c.name + ": " + outcome.reason.value_or("not deleted"));
}

}  // namespace

void runOperation(const PrivilegedOperation& operation, const OperationContext& context) {
    std::visit([&](const auto& c) { run(c, context); }, operation.value);
}

std::string detail(const std::vector<std::string>& lines) {
    std::string text = trimWhitespace(joined(lines, " "));
    if (text.empty()) return "no detail";
    return clipCharacters(text, 160);
}

std::vector<std::string> confirmedSnapshotDeletions(const std::vector<std::string>& requested,
                                                    const std::vector<std::string>& stillListed) {
    std::vector<std::string> confirmed;
    for (const auto& date : requested)
        if (std::find(stillListed.begin(), stillListed.end(), date) == stillListed.end()) confirmed.push_back(date);
    return confirmed;
}

std::string snapshotDeleteReport(const std::vector<std::string>& requested,
                                 const std::vector<std::string>& stillListed, std::int64_t releasedBytes,
                                 const std::string& detailText) {
    const std::size_t confirmed = confirmedSnapshotDeletions(requested, stillListed).size();
    const std::size_t asked = requested.size();
    const std::string tail = detailText.empty() ? "" : " " + detailText;
    if (confirmed > 0 && confirmed == asked) {
        const std::string head = "Deleted " + std::to_string(confirmed) + " snapshot" + (confirmed == 1 ? "" : "s");
        if (releasedBytes <= 50'000'000)
            return head + ". macOS is releasing the blocks in the background — the ceiling above falls as it finishes.";
        return head + " — " + fmtBytes(releasedBytes) + " released so far, more can follow over the next minutes.";
    }
    if (confirmed > 0) {
        const std::size_t left = asked - confirmed;
        return "Deleted " + std::to_string(confirmed) + " of " + std::to_string(asked) + " snapshots — " +
               std::to_string(left) + " could not be removed and " + (left == 1 ? "is" : "are") + " still there." +
               tail;
    }
    if (asked == 1) return "Nothing was deleted — all 1 snapshot is still there." + tail;
    return "Nothing was deleted — all " + std::to_string(asked) + " snapshots are still there." + tail;
}

}  // namespace orvane
