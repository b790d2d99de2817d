#include "core/duplicates/duplicate_merge.hpp"

#include <cstring>
#include <map>
#include <set>

#include "core/ledger/action_log.hpp"
#include "core/ledger/journals.hpp"

namespace orvane {

namespace {

std::string cannotShareClause(const std::string& path, const Facts& facts) {
    const auto mount = facts.mount(path);
    const std::string type = mount && !mount->fileSystemType.empty() ? " (" + mount->fileSystemType + ")" : "";
    return "the file system here" + type + " cannot share storage between files";
}

}  // namespace

MergeOutcome mergeDuplicates(const std::vector<DuplicateGroup>& groups, const MergeFacts& in) {
    MergeOutcome outcome;
    std::map<std::uint64_t, std::string> cannotShare;  // device → the clause that said so
    for (const auto& group : groups) {
        const auto keeperNow = in.facts.lstat(group.keeper);
        const auto keeperSig = group.sigs.find(group.keeper);
        const bool keeperUnchanged = keeperNow && keeperNow->isRegularFile() && keeperSig != group.sigs.end() &&
                                     !sourceChangedDuringCopy({{group.keeper, keeperSig->second}},
                                                              {{group.keeper, fileSigOf(*keeperNow)}});
        const auto keeperStart = keeperUnchanged ? in.physicalStart(group.keeper) : std::nullopt;
        bool gained = false;
        for (const auto& copy : group.copies) {
            MergeStep step{copy, group.keeper, false, std::nullopt, 0, false};
            const auto copyNow = in.facts.lstat(copy);
            const auto copySig = group.sigs.find(copy);
            auto skip = [&](std::string why) { step.skipped = std::move(why); };
            if (auto refusal = in.refusal(copy)) {
                skip(*refusal);
            } else if (!keeperUnchanged) {
                skip("the copy kept changed or went away since it was compared");
            } else if (!copyNow || !copyNow->isRegularFile() || copySig == group.sigs.end() ||
                       sourceChangedDuringCopy({{copy, copySig->second}}, {{copy, fileSigOf(*copyNow)}})) {
                skip("it changed or went away since it was compared");
            } else if (copyNow->device == keeperNow->device && copyNow->inode == keeperNow->inode) {
                step.alreadyShared = true;
                skip("it is the kept file itself under another name (a hard link)");
            } else if (copyNow->device != keeperNow->device) {
                skip("it is on another volume than the copy kept");
            } else if (keeperStart && in.physicalStart(copy) == keeperStart) {
                step.alreadyShared = true;
                skip("it already shares its storage with the copy kept");
            } else if (auto said = cannotShare.find(copyNow->device); said != cannotShare.end()) {
                skip(said->second);
            } else {
                Ledger::beginSwap(copy, InflightKind::dedupe);
                const auto shared = in.share(group.keeper, copy, copy + std::string(Ledger::cloneTmpSuffix));
                Ledger::endSwap(copy);
                switch (shared.outcome) {
                    case platform::ShareOutcome::shared:
                        step.merged = true;
                        step.bytes = group.size;
                        Ledger::log("DEDUPE " + copy + " now shares storage with " + group.keeper);
                        break;
                    case platform::ShareOutcome::differs:
                        skip("its bytes are no longer those of the copy kept");
                        break;
                    case platform::ShareOutcome::unsupported:
                        cannotShare[copyNow->device] = cannotShareClause(copy, in.facts);
                        skip(cannotShare[copyNow->device]);
                        break;
                    case platform::ShareOutcome::failed:
                        skip(std::string("the system refused: ") + std::strerror(shared.error));
                        break;
                }
            }
            if (!step.alreadyShared) outcome.needed = true;
            if (step.merged) {
                ++outcome.copies;
                outcome.bytes += step.bytes;
                gained = true;
            }
            if (in.onStep) in.onStep(step);
            outcome.steps.push_back(std::move(step));
        }
        if (gained) ++outcome.originals;
    }
    return outcome;
}

}  // namespace orvane
