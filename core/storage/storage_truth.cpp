#include "core/storage/storage_truth.hpp"

#include <algorithm>

#include "core/common/byte_counts.hpp"
#include "core/common/checked.hpp"
#include "core/common/format.hpp"
#include "core/scan/unreadable.hpp"
#include "core/storage/container_report.hpp"
#include "core/storage/local_snapshots.hpp"
#include "core/storage/zombie_space.hpp"

namespace orvane {
namespace {

constexpr double kOpenFilesTimeout = 12;

StorageFact otherVolumesFact(const ContainerReport& report) {
    std::vector<ContainerVolume> volumes = report.siblingsInUse();
    std::stable_sort(volumes.begin(), volumes.end(),
                     [](const ContainerVolume& a, const ContainerVolume& b) { return a.bytesInUse > b.bytesInUse; });
    std::int64_t sum = 0;
    std::string named;
    for (std::size_t i = 0; i < volumes.size(); ++i) {
        sum = addBytesOrUnknown(sum, volumes[i].bytesInUse);  // a sum past any disk is no figure
        if (i >= 4) continue;
        if (!named.empty()) named += ", ";
        named += volumes[i].name + " " + fmtBytes(volumes[i].bytesInUse);
    }
    return {"Other volumes on this disk", sum, StorageConfidence::measured,
            "Your disk is one APFS container holding several volumes that share its " + fmtBytes(report.capacity) +
                ": " + named + ". They are not folders, so no scan of your files can reach them.",
            "macOS owns every one of these and none is safe to delete by hand — Preboot and the System volume are "
            "what the Mac boots from. They matter because a macOS upgrade adds a new set of sealed components to "
            "Preboot and releases the previous set on its own schedule, so 1–2 GB can become 10 GB or more after an "
            "update and stay that way for a while. If your free space dropped sharply after upgrading and nothing "
            "in your files accounts for it, this is usually where it went.",
            std::nullopt};
}

StorageFact snapshotsFact(const Facts& facts) {
    StorageFact fact{"Time Machine local snapshots", std::nullopt, StorageConfidence::measured, "", "", std::nullopt};
    const std::vector<std::string> dates = localSnapshotDates(facts);
    if (dates.empty()) {
        fact.what = "None on this Mac right now.";
        fact.why = "Nothing here is affecting your totals today.";
        return fact;
    }
    const int pinned = snapshotsPinningContainer(facts);
    const auto count = static_cast<std::int64_t>(dates.size());
    fact.confidence = StorageConfidence::unavailable;
    fact.what = std::to_string(count) + " snapshot" + (count == 1 ? "" : "s") +
                " of your disk, kept locally so Time Machine can restore without the backup drive attached.";
    if (pinned >= 1)
        fact.what += " " + std::to_string(pinned) + " of them currently " + (pinned == 1 ? "limits" : "limit") +
                     " how far the disk can shrink, which is why some space cannot be reclaimed even when nothing "
                     "is using it.";
    fact.why =
        "macOS does not publish how much space a snapshot holds — not through tmutil, not through diskutil — so no "
        "honest per-snapshot figure exists. What IS measured is purgeable space above, which includes them: that is "
        "the ceiling on what thinning snapshots could return, not a promise. Snapshots keep deleted files' blocks, "
        "so deleting things can free far less than their size until the snapshots roll off, which macOS does on its "
        "own: hourly snapshots after 24 hours, the one from the last backup only when the space is needed. If this "
        "keeps surprising you, the schedule is yours to change: Settings › General › Time Machine › Options lets "
        "backups run weekly or only manually — fewer automatic backups means fewer local snapshots holding deleted "
        "blocks, at the cost of fewer restore points between backups.";
    fact.pageID = "items";
    return fact;
}

StorageFact cloudFact(std::int64_t cloudPlaceholders) {
    StorageFact fact{"Cloud files that aren't really here", std::nullopt, StorageConfidence::notMeasured,
                     "Files your cloud drives list on this Mac while storing zero bytes of them locally.",
                     "Finder shows their full size, so folder totals can dwarf the disk they sit on. They cost your "
                     "cloud plan, not this disk.",
                     "oppty:evict"};
    if (cloudPlaceholders > 0) {
        fact.bytes = cloudPlaceholders;
        fact.confidence = StorageConfidence::measured;
    } else {
        fact.what += " Open Cloud drives and choose “Look in the cloud” to measure yours.";
    }
    return fact;
}

StorageFact openDeletedFact(const Facts& facts) {
    const ZombieSpace zombies = measureZombieSpace(kOpenFilesTimeout, facts);
    StorageFact fact{"Deleted files still being held open", std::nullopt, StorageConfidence::unavailable,
                     "Files something deleted while an app still had them open. The space returns when that app "
                     "quits.",
                     "The file is gone from Finder but its blocks are not free yet — a classic 'I deleted it and "
                     "nothing changed'. This app can only see processes it is allowed to inspect.",
                     std::nullopt};
    if (!zombies.timedOut) {
        fact.confidence = StorageConfidence::permissionLimited;
        if (zombies.total >= 1) fact.bytes = zombies.total;
    }
    return fact;
}

StorageFact accessFact(bool granted) {
    if (granted)
        return {"Areas macOS won't let apps read", std::nullopt, StorageConfidence::measured,
                "Full Disk Access is granted, so the scan reaches everything an app is allowed to see.",
                "Anything still unaccounted for below is system-owned, not hidden by permissions.", std::nullopt};
    return {"Areas macOS won't let apps read", std::nullopt, StorageConfidence::permissionLimited,
            "Without Full Disk Access, large parts of your Library and other apps' data are invisible to this app.",
            "Every total this app shows is therefore a floor, not a full picture. Granting access is the single "
            "biggest improvement available.",
            std::nullopt};
}

StorageFact restFact(const StorageTruth::Reconciliation& r, std::int64_t scanned) {
    const std::string what =
        "macOS itself, installed applications, and everything the scan doesn't raise as an opportunity.";
    if (checkedSub(r.capacity, r.freeNow) > 0 && scanned >= 0 && scanned <= r.used)
        return {"System and everything not itemised", checkedSub(r.used, scanned), StorageConfidence::estimated, what,
                "This is a subtraction, not a measurement: used space minus what the scan itemised. It is where About "
                "This Mac's 'System Data' mostly lives, and it is normal for it to be large.",
                "map"};
    return {"System and everything not itemised", std::nullopt, StorageConfidence::unavailable,
            what + " No figure is shown, because what the scan itemised already adds up to more than the disk is "
                   "using.",
            "This line is a subtraction — used space minus what the scan itemised — and a subtraction only means "
            "something while the itemised part fits inside used space. Here it doesn't: APFS copies that share "
            "storage (above) are each measured at full size, so their total can exceed the disk. Showing zero would "
            "claim this Mac holds no system data at all, which is never true.",
            "map"};
}

}  // namespace

namespace StorageTruth {

Reconciliation reconcile(std::int64_t scanned, std::int64_t cloudPlaceholders, const Facts& facts) {
    const VolumeFigures volume = facts.volume(facts.home(""));
    Reconciliation r;
    r.capacity = volume.total.value_or(0);
    r.freeNow = volume.available.value_or(0);
    r.freeIfPurged = volume.availableForImportantUsage.value_or(r.freeNow);
    r.purgeable = std::max<std::int64_t>(0, checkedSub(r.freeIfPurged, r.freeNow));
    r.used = std::max<std::int64_t>(0, checkedSub(r.capacity, r.freeNow));
    r.attributed = scanned;

    r.facts.push_back({"Purgeable space", r.purgeable, StorageConfidence::measured,
                       "Space macOS is holding but will hand back the moment something needs it — caches, local "
                       "snapshots, and cloud files it can download again.",
                       "Finder and About This Mac count this as available. `df` and this app's free-space figure do "
                       "not. That single difference explains most of the gap.",
                       std::nullopt});
    if (auto report = bootContainerReport(facts)) {
        StorageFact others = otherVolumesFact(*report);
        if (others.bytes.value_or(0) >= 1) r.facts.push_back(std::move(others));
    }
    r.facts.push_back(snapshotsFact(facts));
    r.facts.push_back(cloudFact(cloudPlaceholders));
    r.facts.push_back({"Copies that share their storage", std::nullopt, StorageConfidence::unavailable,
                       "APFS lets two files share the same blocks until one changes, so duplicating a big file can "
                       "cost almost nothing.",
                       "Add up file sizes and you'll exceed the disk. macOS reports no per-file clone figure, so no "
                       "tool can tell you this number — including this one.",
                       std::nullopt});
    r.facts.push_back(openDeletedFact(facts));
    r.facts.push_back(accessFact(FDA::granted(facts)));
    r.facts.push_back(restFact(r, scanned));
    return r;
}

}  // namespace StorageTruth

std::optional<std::int64_t> storageResidual(std::int64_t used, std::int64_t attributed) {
    if (attributed < 0 || used < attributed || used < 1) return std::nullopt;
    return used - attributed;
}

nlohmann::ordered_json toJSON(const StorageFact& fact) {
    auto orNull = [](const auto& value) { return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json(); };
    return {{"label", fact.label},
            {"bytes", orNull(fact.bytes)},
            {"confidence", rawValue(fact.confidence)},
            {"what", fact.what},
            {"why", fact.why},
            {"pageID", orNull(fact.pageID)}};
}

nlohmann::ordered_json toJSON(const StorageTruth::Reconciliation& r) {
    nlohmann::ordered_json facts = nlohmann::ordered_json::array();
    for (const auto& fact : r.facts) facts.push_back(toJSON(fact));
    return {{"capacity", r.capacity}, {"freeNow", r.freeNow},       {"freeIfPurged", r.freeIfPurged},
            {"purgeable", r.purgeable}, {"used", r.used},           {"attributed", r.attributed},
            {"facts", std::move(facts)}};
}

}  // namespace orvane
