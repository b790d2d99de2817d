// orvane destinations and orvane move: the drives that can take a move, and a move to one of them
// with a shortcut left in the old place.
#include <iostream>
#include <memory>

#include <fmt/format.h>

#include "cli/command.hpp"
#include "core/common/format.hpp"
#include "core/common/path.hpp"
#include "core/relocation/destinations.hpp"
#include "core/relocation/mover.hpp"
#include "core/relocation/music_stores.hpp"
#include "core/safety/delete_verdict.hpp"

namespace orvane::cli {

namespace {

struct DestinationsOptions {
    bool photosLibrary = false;
};

Result runDestinations(const DestinationsOptions& options, const Invocation& in) {
    const auto volumes = externalVolumes(in.facts);
    Result result;
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const auto& volume : volumes) {
        const auto type = in.facts.mount(volume.id);
        const MoveFormatVerdict verdict = moveDestinationVerdict(
            verdictFileSystemType(type ? type->fileSystemType : ""), options.photosLibrary, false);
        rows.push_back({{"id", volume.id},
                        {"name", volume.name},
                        {"format", volume.format},
                        {"free", volume.free},
                        {"total", volume.total},
                        {"verdict", verdict.ok() ? "ok" : "refuse"},
                        {"reason", verdict.reason() ? nlohmann::ordered_json(*verdict.reason()) : nullptr}});
        result.line(fmt::format("{}  {}  {}, {} free of {}", volume.name, volume.id, volume.format,
                                fmtBytes(volume.free), fmtBytes(volume.total)));
        result.line(verdict.ok() ? "    can take a move" : "    refused: " + *verdict.reason());
    }
    if (volumes.empty()) result.line("No external drive is connected.");
    result.json = {{"destinations", std::move(rows)}};
    return result;
}

struct MoveOptions {
    std::string path;
    std::string to;
    std::string title;
};

// DRIVE as typed: a folder (a drive's own, or one on it), or the name of a connected drive.
std::string destinationFolder(const std::string& typed, const Facts& facts) {
    if (typed.find('/') == std::string::npos && !facts.lstat(absolutePath(typed))) {
        for (const auto& volume : externalVolumes(facts))
            if (volume.name == typed) return volume.id;
        throw OVError("No drive named " + typed + " is connected; orvane destinations lists those that are.");
    }
    const std::string folder = absolutePath(typed);
    const auto found = facts.lstat(folder);
    if (!found || !found->isDirectory()) throw OVError(folder + " is not a drive or a folder on one.");
    return folder;
}

// Folders apps expect to find, and stores that keep their own record of where their content lies.
void addStoreChecks(MoveChecks& checks, const Facts& facts) {
    checks.storeRefusal = [&facts](const std::string& path) -> std::optional<std::string> {
        if (isAppInfraFolder(path, facts))
            return path + " is a folder apps expect to find in its place, so it can't be moved.";
        if (auto child = musicChild(path, facts); child && child->kind == MusicChildClass::appManaged)
            return std::string(child->note);
        if (auto child = moviesChild(path, facts); child && child->kind == MusicChildClass::appManaged) return child->note;
        if (auto store = musicStore(path, facts); store && store->lane != MusicLane::symlinkFriendly) {
            std::string sentence = store->name + " keeps its own record of where this lies; move it from " +
                                   store->portalPrefix + " instead:";
            for (const auto& step : store->steps) sentence += " " + step;
            return sentence;
        }
        return std::nullopt;
    };
    checks.storeNotes = [&facts](const std::string& path) {
        std::vector<std::string> notes;
        if (auto store = musicStore(path, facts); store && store->lane == MusicLane::symlinkFriendly)
            notes.push_back("Keep the drive connected: " + store->name +
                            " finds this content through the shortcut, and not while the drive is away.");
        else if (auto child = musicChild(path, facts); child && child->kind != MusicChildClass::appManaged)
            notes.emplace_back(child->note);
        return notes;
    };
}

// The delete verdict and the person's protections: what may not leave its place may not move.
std::optional<std::string> sourceRefusal(const std::string& path, const Facts& facts,
                                         const StoredProtectList& protections) {
    const DeleteVerdict verdict = onDiskDeleteVerdict(path, false, facts);
    if (auto reason = verdict.reason()) return reason;
    return protectionRefusal(path, protections, {}, {}, facts.home(""));
}

Result runMove(const MoveOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    const std::string src = absolutePath(options.path);
    if (!facts.lstat(src)) throw OVError("There is nothing at " + src + ".");
    const std::string destination = destinationFolder(options.to, facts);
    const StoredProtectList protections = storedProtections(facts);

    MoveChecks checks;
    checks.sourceRefusal = [&](const std::string& path) { return sourceRefusal(path, facts, protections); };
    addStoreChecks(checks, facts);
    in.progress.show("Looking at what is to be moved…");
    const MovePreparation prepared = prepareMove(src, destination, options.title, checks, facts);
    in.progress.clear();
    Result result;
    if (!protections.list) result.notes.push_back(protections.problem);
    if (!prepared.plan) {
        result.status = kRefused;
        result.line(prepared.refusal);
        result.json = {{"moved", false}, {"refusal", prepared.refusal}};
        return result;
    }
    const MovePlan& plan = *prepared.plan;
    std::vector<std::string> lines = {fmt::format("Would move {} ({}, {} file{}) to {}, with a shortcut left at {}.",
                                                  plan.src, fmtBytes(plan.bytes), plan.files, plan.files == 1 ? "" : "s",
                                                  plan.dst, plan.src)};
    for (const auto& note : plan.notes) lines.push_back(note);
    nlohmann::ordered_json planJSON = {{"src", plan.src},   {"dst", plan.dst},     {"title", plan.title},
                                       {"bytes", plan.bytes}, {"files", plan.files}, {"notes", plan.notes}};
    if (facts.recorded) {
        Result recorded = nothingChangedOnARecording(lines);
        recorded.json["plan"] = std::move(planJSON);
        return recorded;
    }
    for (const auto& note : plan.notes) result.notes.push_back(note);
    const MoveOutcome outcome = performMove(plan, [&](std::int64_t copied) {
        in.progress.show("Copying: " + fmtBytes(copied) + " of " + fmtBytes(plan.bytes) + "…");
    });
    in.progress.clear();
    result.line(outcome.sentence);
    result.status = outcome.moved ? kDone : kRefused;
    result.json = {{"moved", outcome.moved}, {"pending", outcome.pending}, {"sentence", outcome.sentence},
                   {"plan", std::move(planJSON)}};
    if (outcome.moved || outcome.pending) result.json["dst"] = outcome.record.dst;
    return result;
}

}  // namespace

void addMoveCommands(Registry& registry) {
    auto destinations = std::make_shared<DestinationsOptions>();
    auto* list = registry.add(
        "destinations",
        "List the external drives that can take a move, with their format, free and total space, and whether "
        "each can take one (a FAT drive cannot; a Photos library needs APFS or Mac OS Extended with ownership "
        "ignored). Off a Mac: drives mounted under /media, /run/media or /mnt, or on a removable device. Exit 0.",
        [destinations](const Invocation& in) { return runDestinations(*destinations, in); });
    list->add_flag("--photos-library", destinations->photosLibrary, "Judge each drive for a Photos library");

    auto options = std::make_shared<MoveOptions>();
    auto* move = registry.add(
        "move",
        "Move PATH to a drive with a shortcut left in its place, so that whatever uses it still finds it: into "
        "DRIVE/Offloaded, under a fresh name when its own is taken. Refused before anything is copied when PATH "
        "must stay (the delete verdict, your protections, folders apps expect, music and sample stores that "
        "track their own place), when the drive's format cannot take it, or when DRIVE is on PATH's own drive. "
        "Every file is verified by SHA-256 before the original goes, and each step is journalled: an "
        "interrupted move is finished by orvane repair. Exit 0 moved, 1 refused or failed, 2 bad input.",
        [options](const Invocation& in) { return runMove(*options, in); });
    move->add_option("PATH", options->path, "The file or folder to move")->required();
    move->add_option("--to", options->to, "The drive: its path or name, or a folder on it")->required()->type_name("DRIVE");
    move->add_option("--title", options->title, "What to call it in the list of moves (default: its name)");
}

}  // namespace orvane::cli
