#include "core/apps/tcc_permissions.hpp"

#include <algorithm>
#include <chrono>

#include "core/apps/app_copies.hpp"
#include "core/apps/homebrew_casks.hpp"
#include "core/common/text.hpp"

namespace orvane {

nlohmann::ordered_json toJSON(const TCCResetOutcome& outcome) {
    nlohmann::ordered_json out;
    out["bundleID"] = outcome.bundleID;
    out["status"] = rawValue(outcome.status);
    out["detail"] = outcome.detail;
    return out;
}

bool isTCCResettableBundleID(std::string_view bundleID, const std::vector<std::string>& ownIDs) {
    if (bundleID.empty() || bundleID.size() > 255) return false;
    if (bundleID.starts_with('.') || bundleID.ends_with('.') || bundleID.starts_with('-'))
        return false;
    if (bundleID.find("..") != std::string_view::npos) return false;
    std::size_t pieces = 0;
    for (std::size_t start = 0; start <= bundleID.size();) {
        const std::size_t dot = std::min(bundleID.find('.', start), bundleID.size());
        if (dot > start) ++pieces;
        start = dot + 1;
    }
    if (pieces < 2) return false;
    for (const char c : bundleID) {
        const bool ascii =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!ascii && c != '.' && c != '-' && c != '_') return false;
    }
    const std::string lower = lowercased(bundleID);
    if (lower == "com.apple" || lower.starts_with("com.apple.")) return false;
    for (const std::string& own : ownIDs) {
        const std::string ownLower = lowercased(own);
        if (lower == ownLower || lower.starts_with(ownLower + ".")) return false;
    }
    return true;
}

std::optional<std::vector<std::string>> tccResetArguments(std::string_view bundleID,
                                                          const std::vector<std::string>& ownIDs) {
    if (!isTCCResettableBundleID(bundleID, ownIDs)) return std::nullopt;
    return std::vector<std::string>{"reset", "All", std::string(bundleID)};
}

TCCResetOutcome parseTCCReset(std::string_view bundleID, std::int32_t exitStatus,
                              std::string_view output) {
    const std::string text = trimWhitespace(output);
    TCCResetOutcome outcome{std::string(bundleID), TCCResetStatus::failed, text};
    if (exitStatus == 0 && text.find("Successfully reset") != std::string::npos) {
        outcome.status = TCCResetStatus::reset;
    } else if (text.find("No such bundle identifier") != std::string::npos ||
               text.find("-10814") != std::string::npos) {
        // -10814 is LaunchServices' kLSApplicationNotFoundErr.
        outcome.status = TCCResetStatus::notFound;
    } else if (text.empty()) {
        outcome.detail = "exit " + std::to_string(exitStatus);
    }
    return outcome;
}

namespace TCCPermissions {

TCCResetOutcome reset(const std::string& bundleID, const std::vector<std::string>& ownIDs,
                      const std::string& tool, const std::string& home,
                      const std::optional<std::string>& excludingPath, const Facts& facts) {
    const auto arguments = tccResetArguments(bundleID, ownIDs);
    if (!arguments) return {bundleID, TCCResetStatus::refused, "not an allowed bundle id"};

    // Permissions belong to the id, not to a bundle: a reset would take them from every copy.
    std::string living;
    for (const std::string& path : installedCopies(bundleID, home, facts)) {
        if (excludingPath && path == *excludingPath) continue;
        if (!living.empty()) living += ", ";
        living += path;
    }
    if (!living.empty()) return {bundleID, TCCResetStatus::otherCopyInstalled, living};

    // tccutil would reset this machine's permissions, not the recorded Mac's.
    if (facts.recorded)
        return {bundleID, TCCResetStatus::failed, "Nothing was changed: this is a recorded Mac."};
    const auto result = runInvocation(
        tool, *arguments, {{"PATH", "/usr/bin:/bin"}},
        std::chrono::milliseconds(static_cast<long long>(kResetTimeoutSeconds * 1000)));
    return parseTCCReset(bundleID, result.status, result.output);
}

}  // namespace TCCPermissions

}  // namespace orvane
