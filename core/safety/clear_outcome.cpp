#include "core/safety/clear_outcome.hpp"

#include <unistd.h>

#include "core/common/format.hpp"
#include "core/platform/platform.hpp"

namespace orvane {

std::string_view rawValue(ClearAccess access) {
    switch (access) {
        case ClearAccess::ours: return "ours";
        case ClearAccess::needsAdministrator: return "needsAdministrator";
        case ClearAccess::missing: return "missing";
    }
    return {};
}

ClearAccess clearAccess(const std::string& path) {
    auto facts = platform::lstatFacts(path);
    if (!facts) return ClearAccess::missing;
    if (facts->uid == ::getuid() && ::access(path.c_str(), W_OK) == 0) return ClearAccess::ours;
    return ClearAccess::needsAdministrator;
}

ClearOutcome clearOutcome(std::string_view titleView, std::int64_t removed, std::int64_t skipped, ClearAccess access,
                          std::int64_t sizeBytes) {
    const std::string title(titleView);
    if (removed == 0) {
        switch (access) {
            case ClearAccess::missing: return {"• " + title + ": it was already gone.", true, 0, false};
            case ClearAccess::needsAdministrator:
                return {"• " + title +
                            ": nothing was moved — this folder belongs to macOS, not to you, so removing it needs "
                            "your password. Close this window and Velloran Orvane will ask.",
                        false, 0, true};
            case ClearAccess::ours:
                return {"✗ " + title + ": nothing was moved — " + std::to_string(skipped) +
                            " item(s) could not be removed. The folder is unchanged.",
                        false, 0, false};
        }
    }
    if (skipped <= 0) {
        const std::int64_t credit = sizeBytes < 0 ? 0 : sizeBytes;
        return {"✓ " + title + ": cleared " + std::to_string(removed) + " item(s) — ~" + fmtBytes(credit) + " freed",
                true, credit, false};
    }
    return {"• " + title + ": moved " + std::to_string(removed) + " item(s), " + std::to_string(skipped) +
                " could not be removed — the folder is not empty, so the space is only partly back.",
            true, 0, false};
}

}  // namespace orvane
