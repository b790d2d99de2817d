// orvane dupes: files that are identical byte for byte, the copy that stays and why, and what
// merging the others would honestly give back; `dupes merge` gives it back, every copy in place.
#include <unistd.h>

#include <iostream>
#include <memory>

#include <fmt/format.h>

#include "cli/command.hpp"
#include "core/common/format.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/duplicates/duplicate_merge.hpp"
#include "core/duplicates/duplicate_scan.hpp"
#include "core/ledger/action_log.hpp"
#include "core/ledger/ledger.hpp"

namespace orvane::cli {

namespace {

constexpr std::string_view kHeading = "Duplicates (reclaim via APFS clone)";
constexpr std::string_view kDescription =
    "Files that are exactly identical, byte for byte. Velloran Orvane merges them instead of deleting: every copy "
    "stays where it is, so nothing that uses one breaks, and the extra space comes back.";

struct DupesOptions {
    std::vector<std::string> paths;
    bool yes = false;
};

// Each PATH as typed, made absolute; a missing, unreadable or special one is one sentence, exit 2.
std::vector<std::string> checkedRoots(const std::vector<std::string>& typed, const Facts& facts) {
    std::vector<std::string> roots;
    for (const auto& one : typed.empty() ? std::vector<std::string>{facts.home("")} : typed) {
        const std::string path = absolutePath(one);
        const auto file = facts.lstat(path);
        if (!file) throw OVError("There is nothing at " + path + ".");
        if (file->isRegularFile()) {
            if (facts.readHead(path, 1).bytes) {
                roots.push_back(path);
                continue;
            }
            throw OVError(path + " cannot be read by this user.");
        }
        if (!file->isDirectory()) throw OVError(path + " is neither a folder nor a regular file.");
        roots.push_back(readableFolder(path, facts));
    }
    return roots;
}

DuplicateFinding find(const std::vector<std::string>& typed, const Invocation& in) {
    const auto roots = checkedRoots(typed, in.facts);
    DuplicateScanOptions options;
    // A recorded Mac tells no device offsets: every copy then counts as one of its own.
    if (!in.facts.recorded) options.physicalStart = platform::physicalStart;
    options.progress = [&](const std::string& text) { in.progress.show(text); };
    in.progress.show("Looking through the files…");
    DuplicateFinding finding = findDuplicates(roots, in.facts, options);
    in.progress.clear();
    return finding;
}

nlohmann::ordered_json claimJSON(const DupeClaim& claim) { return {{"copies", claim.copies}, {"bytes", claim.bytes}}; }

nlohmann::ordered_json findingJSON(const DuplicateFinding& finding) {
    nlohmann::ordered_json groups = nlohmann::ordered_json::array();
    for (const auto& group : finding.groups)
        groups.push_back({{"size", group.size},
                          {"hash", group.hash},
                          {"keeper", group.keeper},
                          {"reason", group.reason},
                          {"copies", group.copies},
                          {"claim", claimJSON(group.claim)}});
    const auto& stats = finding.stats;
    return {{"groups", std::move(groups)},
            {"claim", claimJSON(finding.claim)},
            {"stats",
             {{"files", stats.files},
              {"candidates", stats.candidates},
              {"candidateBytes", stats.candidateBytes},
              {"bytesRead", stats.bytesRead},
              {"seconds", stats.seconds}}}};
}

std::string copiesText(std::int64_t copies) { return fmt::format("{} cop{}", copies, copies == 1 ? "y" : "ies"); }

void describe(const DuplicateFinding& finding, Result& result) {
    result.line(std::string(kHeading));
    result.line(std::string(kDescription));
    for (const auto& group : finding.groups) {
        result.line();
        const std::string each = fmtBytes(group.size) + " each, " + std::to_string(group.copies.size() + 1) + " files";
        if (group.claim.copies == 0)
            result.line(each + " — they already share their storage: nothing to give back");
        else
            result.line(each + " — merging gives back " + fmtBytes(group.claim.bytes));
        result.line("  keep  " + group.keeper);
        result.line("        " + group.reason);
        for (const auto& copy : group.copies) result.line("  copy  " + copy);
    }
    result.line();
    const auto& stats = finding.stats;
    if (finding.groups.empty())
        result.line("No duplicates found.");
    else if (finding.claim.copies == 0)
        result.line("Every copy already shares its storage: merging gives nothing back.");
    else
        result.line(fmt::format("In all: {} group{}; merging {} gives back {}.", finding.groups.size(),
                                finding.groups.size() == 1 ? "" : "s", copiesText(finding.claim.copies),
                                fmtBytes(finding.claim.bytes)));
    result.line(fmt::format("{} files looked at, {} compared by content ({} read of {}) in {:.1f} s.", stats.files,
                            stats.candidates, fmtBytes(stats.bytesRead), fmtBytes(stats.candidateBytes),
                            stats.seconds));
}

Result runDupes(const DupesOptions& options, const Invocation& in) {
    const DuplicateFinding finding = find(options.paths, in);
    Result result;
    describe(finding, result);
    result.json = findingJSON(finding);
    return result;
}

std::string stepLine(const MergeStep& step) {
    if (step.merged) return "• " + step.copy + " — merged, " + fmtBytes(step.bytes) + " back";
    return "• " + step.copy + " — left as it was: " + step.skipped.value_or("") + ".";
}

nlohmann::ordered_json stepJSON(const MergeStep& step) {
    nlohmann::ordered_json json = {{"copy", step.copy}, {"keeper", step.keeper}, {"merged", step.merged}};
    if (step.skipped) json["skipped"] = *step.skipped;
    json["bytes"] = step.bytes;
    return json;
}

Result runMerge(const DupesOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    const DuplicateFinding finding = find(options.paths, in);
    Result result;
    result.json = findingJSON(finding);
    std::vector<std::string> plan;
    for (const auto& group : finding.groups)
        if (group.claim.copies > 0)
            for (const auto& copy : group.copies) plan.push_back("Would merge " + copy + " into " + group.keeper + ".");
    if (plan.empty()) {
        result.line(finding.groups.empty() ? "No duplicates found: nothing to merge."
                                           : "Every copy already shares its storage: nothing to merge.");
        result.json["merged"] = {{"copies", 0}, {"originals", 0}, {"bytes", 0}};
        return result;
    }
    const std::string intro = fmt::format("Merging {} would give back about {}. Every copy stays in place.",
                                          copiesText(finding.claim.copies), fmtBytes(finding.claim.bytes));
    if (facts.recorded) {
        plan.insert(plan.begin(), intro);
        Result recorded = nothingChangedOnARecording(plan);
        recorded.json["dupes"] = result.json;
        return recorded;
    }
    if (!options.yes && in.json) throw OVError("With --json, give --yes: the confirmation cannot be asked in JSON output.");
    if (!options.yes) {
        if (!::isatty(STDIN_FILENO)) {
            result.status = kBadInput;
            result.line(intro);
            result.line("Nothing was merged: confirm on a terminal, or give --yes.");
            return result;
        }
        for (const auto& line : plan) std::cout << line << '\n';
        std::cout << '\n' << intro << "\nMerge them? [y/N] " << std::flush;
        if (!answeredYes()) {
            result.status = kRefused;
            result.line("Nothing was merged.");
            return result;
        }
    }

    const StoredProtectList protections = storedProtections(facts);
    if (!protections.list) result.notes.push_back(protections.problem);
    const std::string home = facts.home("");
    std::function<void(const MergeStep&)> onStep;
    if (!in.json)
        onStep = [&](const MergeStep& step) {
            in.progress.clear();
            std::cout << escapeControlCharacters(stepLine(step)) << std::endl;
        };
    const MergeFacts mergeFacts{facts,
                                [&](const std::string& path) { return protectionRefusal(path, protections, {}, {}, home); },
                                platform::physicalStart, platform::shareStorage, onStep};
    const MergeOutcome outcome = mergeDuplicates(finding.groups, mergeFacts);

    nlohmann::ordered_json steps = nlohmann::ordered_json::array();
    for (const auto& step : outcome.steps) steps.push_back(stepJSON(step));
    result.json["steps"] = std::move(steps);
    result.json["merged"] = {{"copies", outcome.copies}, {"originals", outcome.originals}, {"bytes", outcome.bytes}};
    if (outcome.copies > 0) {
        Ledger::log(mergeSummaryLine(outcome.copies, outcome.originals, fmtBytes(outcome.bytes), "the command line"));
        result.line(fmt::format("Given back: {}, {} merged into {} original{}. Every file is still in place.",
                                fmtBytes(outcome.bytes), copiesText(outcome.copies), outcome.originals,
                                outcome.originals == 1 ? "" : "s"));
    } else if (outcome.needed) {
        result.status = kRefused;
        // One reason for every copy is the reason; several are on the lines above.
        std::optional<std::string> common;
        bool same = true;
        for (const auto& step : outcome.steps)
            if (step.skipped && !step.alreadyShared) {
                if (common && *common != *step.skipped) same = false;
                common = step.skipped;
            }
        result.line(same && common ? "Nothing was merged: " + *common + ". Nothing was changed."
                                   : "Nothing could be merged; nothing was changed.");
    } else {
        result.line("Every copy already shares its storage: nothing to merge.");
    }
    Ledger::flush();
    return result;
}

}  // namespace

void addDupesCommands(Registry& registry) {
    auto options = std::make_shared<DupesOptions>();
    auto* dupes = registry.add(
        "dupes",
        "Find files that are identical byte for byte under the PATHs (your home when none is given): by size, then "
        "a sample of the bytes, then a digest of every byte. Each group names the copy that stays and why (a "
        "filed copy beats one in Downloads; the oldest wins a tie), and what merging the others gives back: "
        "copies that already share their storage count nothing. Links are not followed and each PATH's walk stays "
        "on its own file system. Nothing is changed. Exit 2 when a PATH cannot be read.",
        [options](const Invocation& in) { return runDupes(*options, in); });
    dupes->add_option("PATH", options->paths, "Folders or files to look through");

    auto* merge = registry.add(
        *dupes, "merge",
        "Merge the duplicates under the PATHs: every copy stays at its path, with its own name, owner and dates, "
        "and comes to share the storage of the copy kept, so the space comes back and nothing that uses a copy "
        "breaks. Needs a file system that can share storage between files (Btrfs, XFS on Linux; APFS on a Mac). "
        "Shows the plan and asks first (--yes skips the question). Protected copies, and copies that changed since "
        "they were compared, are left as they were. Exit 0 when it merged or nothing needed it, 1 when nothing "
        "could be merged, 2 for a PATH that cannot be read or no terminal to ask on.",
        [options](const Invocation& in) { return runMerge(*options, in); });
    merge->add_option("PATH", options->paths, "Folders or files to look through")->required();
    merge->add_flag("--yes", options->yes, "Merge without asking");
}

}  // namespace orvane::cli
