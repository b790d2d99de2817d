#include "core/privileged/admin_fallback.hpp"

#include <sys/stat.h>

#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/common/tool_runner.hpp"
#include "core/common/variant_visit.hpp"

namespace orvane {

namespace {

constexpr double kAdminTimeout = 86400;

std::string replacedAll(std::string_view text, std::string_view what, std::string_view with) {
    std::string out;
    std::size_t from = 0;
    for (std::size_t at; (at = text.find(what, from)) != std::string_view::npos; from = at + what.size())
        out.append(text.substr(from, at - from)).append(with);
    return out.append(text.substr(from));
}

}  // namespace

std::string shellQuote(std::string_view text) { return "'" + replacedAll(text, "'", "'\\''") + "'"; }

std::string adminShellScript(std::string_view command) {
    const std::string escaped = replacedAll(replacedAll(command, "\\", "\\\\"), "\"", "\\\"");
    return "with timeout of 86400 seconds\ndo shell script \"" + escaped + "\" with administrator privileges\nend timeout";
}

AdminOutcome runAdminScript(const std::string& script, const std::string& program) {
    const auto run = runToolSplit(program, {"-e", script}, kAdminTimeout, false, ToolErrors::merged);
    std::string text;
    for (const auto& line : run.lines) text += (text.empty() ? "" : " ") + line;
    if (run.status == 0) return admin::OK{};
    const std::string lower = lowercased(text);
    if (text.find("-128") != std::string::npos || lower.find("user canceled") != std::string::npos ||
        lower.find("user cancelled") != std::string::npos)
        return admin::Cancelled{};
    const std::string trimmed = trimWhitespace(text);
    if (!trimmed.empty()) return admin::Failed{trimmed};
    return admin::Failed{"the privileged step exited with status " + std::to_string(run.status)};
}

std::vector<std::string> fallbackFollowedPaths(const PrivilegedOperation& operation, std::string_view home) {
    return std::visit(
        Overloaded{
            [](const op::RemovePath& o) -> std::vector<std::string> { return {o.path}; },
            [](const op::SetLaunchItemEnabled& o) -> std::vector<std::string> { return {o.path}; },
            [](const op::SwapToSymlink& o) -> std::vector<std::string> { return {o.original}; },
            [](const op::RestoreFromStaging& o) -> std::vector<std::string> { return {o.destination}; },
            [](const op::MoveAside& o) -> std::vector<std::string> { return {o.path, o.to}; },
            [](const op::TrashLaunchItem& o) -> std::vector<std::string> { return {o.path, o.to}; },
            [&](const op::DeleteTrashedApp& o) -> std::vector<std::string> {
                return {appendingPathComponent(home, ".Trash/" + o.name)};
            },
            [](const auto&) -> std::vector<std::string> { return {}; },
        },
        operation.value);
}

bool fallbackSwapVulnerable(std::string_view path, std::string_view home, const Facts& facts) {
    std::string dir = deletingLastPathComponent(deletingLastPathComponent(path));
    // Bounded by the path's depth; the guard stops a text that never shortens to "/".
    for (std::size_t step = 0; step <= path.size() + 1; ++step) {
        if (dir.empty()) dir = "/";
        if (!home.empty() && isAtOrBelow(dir, home)) return true;
        if (const auto seen = facts.lstat(dir); seen && (seen->mode & 01002) == 00002) return true;
        if (dir == "/") return false;
        dir = deletingLastPathComponent(dir);
    }
    return false;
}

AdminSwapAftermath adminSwapAftermath(bool originalPresent, const TreeTally& before, const TreeTally& after) {
    if (!originalPresent) return AdminSwapAftermath::fullyRemoved;
    return before == after ? AdminSwapAftermath::unchanged : AdminSwapAftermath::partiallyRemoved;
}

std::string failedAdminSwapMessage(AdminSwapAftermath aftermath, std::string_view original,
                                   std::string_view verifiedCopy, bool relinked) {
    const std::string o(original);
    const std::string copy(verifiedCopy);
    switch (aftermath) {
        case AdminSwapAftermath::unchanged:
            return "the administrator step was declined or failed — " + o + " is still in place, exactly as it was.";
        case AdminSwapAftermath::partiallyRemoved:
            return "the administrator step didn't finish, and " + o +
                   " is now INCOMPLETE — some of it was removed before the step failed, so do not treat it as your "
                   "data. The complete, verified copy is at " +
                   copy + "; reinstate it from History, which still holds this move.";
        case AdminSwapAftermath::fullyRemoved:
            if (relinked)
                return "the administrator step didn't finish, and " + o + " is no longer in place. Your verified copy is "
                       "safe at " + copy + " — reconnect it by running this in Terminal: sudo ln -s " +
                       shellQuote(copy) + " " + shellQuote(o);
            return "the administrator step didn't finish, and " + o + " is no longer in place. Your verified copy is safe at " +
                   copy + " — nothing was lost.";
    }
    return {};
}

}  // namespace orvane
