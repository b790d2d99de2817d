// orvane verdict: whether each path may be deleted, and if not, the sentence that says why.
#include "cli/command.hpp"
#include "core/common/path.hpp"
#include "core/safety/delete_verdict.hpp"
#include "core/safety/protection.hpp"
#include "core/safety/removal_blocker.hpp"

namespace orvane::cli {
namespace {

// A quick look for a flag that even root cannot override; a miss says nothing beyond this budget.
constexpr int kBlockerDepth = 3;
constexpr int kBlockerEntries = 2000;

struct VerdictOptions {
    std::vector<std::string> paths;
    bool permanently = false;
};

std::string_view verdictWord(const DeleteVerdict& verdict) {
    if (verdict.refused()) return "refuse";
    return std::holds_alternative<DeleteVerdict::Trash>(verdict.value) ? "trash" : "removePermanently";
}

Result runVerdict(const VerdictOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    Result result;
    // The user's own protections refuse too. A list that is there but cannot be read protects
    // everything: what it holds is unknown, so nothing is cleared until it can be read.
    const StoredProtectList protections = storedProtections(facts);
    if (!protections.list) result.notes.push_back(protections.problem);
    const std::string userHome = facts.home("");
    bool allAllowed = true;
    bool allThere = true;
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const auto& typed : options.paths) {
        const std::string path = absolutePath(typed);
        // Nothing there is nothing to judge: "trash" would promise something about an empty place.
        if (path.starts_with('/') && !facts.lstat(path)) {
            allThere = false;
            allAllowed = false;
            result.line(path + ": does not exist");
            rows.push_back({{"path", path}, {"verdict", nullptr}, {"reason", "it does not exist"}, {"blocker", nullptr}});
            continue;
        }
        const DeleteVerdict verdict = onDiskDeleteVerdict(path, options.permanently, facts);
        const std::optional<std::string> protectedBy =
            verdict.refused() ? std::nullopt : protectionRefusal(path, protections, {}, {}, userHome);
        // A refused item is not going anywhere, so only an allowed one is looked into.
        std::optional<RemovalBlocker> blocker;
        if (!verdict.refused() && !protectedBy) blocker = removalBlocker(path, kBlockerDepth, kBlockerEntries, facts);
        allAllowed = allAllowed && !verdict.refused() && !protectedBy && !blocker;

        nlohmann::ordered_json row;
        row["path"] = path;
        row["verdict"] = protectedBy ? "refuse" : verdictWord(verdict);
        row["reason"] = verdict.reason() ? nlohmann::ordered_json(*verdict.reason())
                        : protectedBy   ? nlohmann::ordered_json(*protectedBy)
                                        : nlohmann::ordered_json(nullptr);
        row["blocker"] = nullptr;
        if (blocker)
            row["blocker"] = {{"kind", rawValue(blocker->kind)}, {"path", blocker->path}, {"reason", blocker->reason()}};
        rows.push_back(std::move(row));

        if (auto reason = verdict.reason()) result.line(path + ": refused — " + *reason);
        else if (protectedBy) result.line(path + ": refused — " + *protectedBy);
        else result.line(path + (options.permanently ? ": remove permanently" : ": trash"));
        if (blocker) result.line("  but " + blocker->reason());
    }
    result.json = {{"allowed", allAllowed}, {"paths", std::move(rows)}};
    result.status = !protections.list || !allThere ? kBadInput : allAllowed ? kDone : kRefused;
    return result;
}

}  // namespace

void addVerdictCommand(Registry& registry) {
    auto options = std::make_shared<VerdictOptions>();
    auto* verdict = registry.add(
        "verdict",
        "Say for each PATH whether it may be deleted: \"PATH: trash\", \"PATH: remove permanently\" with "
        "--permanently, or \"PATH: refused — REASON\". Refused are the system's places, mount points, the home "
        "and the folders above it, anything reached through a shortcut, and any folder that is or holds a source "
        "project (its rebuildable parts are what `orvane artifacts` lists), and what you protected with `orvane "
        "protect` (or what holds it). An allowed path is also looked into "
        "briefly for a flag that forbids removal even to root, which is named on the next line. Nothing is "
        "deleted. Exit 0 when every path may go, 1 when one is refused or blocked, 2 when your protection list "
        "cannot be read (every path is then refused) or a PATH does not exist.",
        [options](const Invocation& in) { return runVerdict(*options, in); });
    verdict->add_option("PATH", options->paths, "Files or folders to judge")->required();
    verdict->add_flag("--permanently", options->permanently,
                      "Judge a removal for good rather than a move to the Trash");
}

}  // namespace orvane::cli
