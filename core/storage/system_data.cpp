#include "core/storage/system_data.hpp"

#include <algorithm>

#include "core/common/byte_counts.hpp"
#include "core/common/checked.hpp"
#include "core/common/path.hpp"
#include "core/common/variant_visit.hpp"
#include "core/scan/disk_measure.hpp"
#include "core/storage/apple_models.hpp"
#include "core/storage/container_report.hpp"
#include "core/storage/hidden_vms.hpp"
#include "core/storage/local_snapshots.hpp"
#include "core/storage/zombie_space.hpp"

namespace orvane {
namespace {

constexpr const char* kSleepImage = "/private/var/vm/sleepimage";
constexpr const char* kSpotlightIndex = "/System/Volumes/Data/.Spotlight-V100";
constexpr double kModelsTimeout = 60;
constexpr double kOpenFilesTimeout = 12;

using namespace system_data_action;

// A figure of the volume; a missing or negative one counts as 0.
std::int64_t figure(const std::optional<std::int64_t>& value) {
    return value && *value > 0 ? *value : 0;
}

std::int64_t atLeastZero(std::int64_t value) {
    return std::max<std::int64_t>(value, 0);
}

StorageConfidence partlyDenied(bool denied) {
    return denied ? StorageConfidence::permissionLimited : StorageConfidence::measured;
}

SystemDataLine newLine(std::string id, std::string label, std::optional<std::int64_t> bytes,
                       StorageConfidence confidence = StorageConfidence::measured) {
    SystemDataLine line;
    line.id = std::move(id);
    line.label = std::move(label);
    line.bytes = bytes;
    line.confidence = confidence;
    return line;
}

struct VolumeText {
    std::string label;
    std::string detail;
};

VolumeText volumeText(const ContainerVolume& volume) {
    if (volume.role == "System")
        return {"macOS itself (System volume)",
                "The sealed, read-only copy of macOS. Its size is fixed by the macOS version."};
    if (volume.role == "VM") return {"Swap (VM volume)", "Memory macOS moved to disk. It shrinks after a restart."};
    if (volume.role == "Preboot")
        return {"Startup files (Preboot volume)",
                "What the Mac boots from. After a macOS update it can hold the old and the new set for a while, then "
                "shrinks on its own."};
    if (volume.role == "Recovery") return {"macOS Recovery", "Needed to repair or reinstall macOS. Leave it alone."};
    if (volume.role == "Update")
        return {"macOS update staging (Update volume)",
                "Where macOS prepares updates. It empties after the update installs."};
    return {volume.name + " volume", "A volume macOS keeps in this disk's container."};
}

SystemDataLine purgeableLine(const VolumeFigures& volume) {
    const std::int64_t available = figure(volume.available);
    const std::int64_t important =
        volume.availableForImportantUsage ? figure(volume.availableForImportantUsage) : available;
    SystemDataLine line =
        newLine("purgeable", "Space macOS takes back by itself", atLeastZero(checkedSub(important, available)));
    line.overlaps = true;
    line.detail =
        "Purgeable space: caches, snapshot blocks and cloud copies macOS frees the moment something needs the room. "
        "Some of it is also counted in the lines above and below, so it isn't subtracted. Nothing to do.";
    return line;
}

SystemDataLine snapshotsLine(const Facts& facts) {
    const auto dates = localSnapshotDates(facts);
    SystemDataLine line = newLine("snapshots", "Time Machine local snapshots", std::nullopt);
    line.detail = snapshotSummary(dates, facts.now());
    if (!dates.empty()) {
        line.detail +=
            " macOS doesn't say how much space a snapshot holds, so this is an estimate: at most the purgeable space "
            "above. Thinning asks macOS to remove the ones it can spare.";
        line.confidence = StorageConfidence::estimated;
        line.action = ThinSnapshots{};
    }
    return line;
}

void addVolumeLines(std::vector<SystemDataLine>& lines, const std::function<bool(const std::string&)>& covered,
                    const Facts& facts) {
    const auto report = bootContainerReport(facts);
    if (!report) return;
    for (const auto& volume : report->siblingsInUse()) {
        auto text = volumeText(volume);
        SystemDataLine line = newLine("vol:" + volume.name, std::move(text.label), volume.bytesInUse);
        line.inScan = covered("container:" + volume.device);
        line.detail = std::move(text.detail);
        lines.push_back(std::move(line));
    }
}

void addSleepImageLine(std::vector<SystemDataLine>& lines, const std::function<bool(const std::string&)>& covered,
                       const Facts& facts) {
    const auto entry = facts.lstat(kSleepImage);
    if (!entry) return;
    SystemDataLine line = newLine("sleepimage", "Sleep image", entry->allocatedBytes);
    line.inScan = covered(kSleepImage);
    line.detail = "A copy of memory macOS writes so the Mac can wake if the battery runs out. macOS manages its size.";
    lines.push_back(std::move(line));
}

void addModelsLine(std::vector<SystemDataLine>& lines, const Facts& facts) {
    const auto folders = appleModelAssetFolders(kAppleModelAssetsRoot, facts);
    if (folders.empty()) return;
    const auto batch = duBatchMeasure(folders, kModelsTimeout, facts);
    std::int64_t sum = 0;
    bool anyMeasured = false;
    for (const auto& [folder, bytes] : batch.sizes) {
        anyMeasured = anyMeasured || bytes >= 0;
        if (bytes > 0) sum = addBytesOrUnknown(sum, bytes);
    }
    // No folder measured, or a sum past any disk: the measurement failed.
    if (!anyMeasured || sum < 0) return;
    SystemDataLine line =
        newLine("models", "Apple Intelligence and Siri models", sum, partlyDenied(!batch.denied.empty()));
    line.detail =
        "Language, image and speech models macOS downloads for Apple Intelligence, Siri and dictation. macOS manages "
        "them; turning Apple Intelligence off in System Settings removes its models.";
    line.action = OpenSettings{"x-apple.systempreferences:com.apple.Siri-Settings.extension",
                               "Open Apple Intelligence & Siri settings"};
    lines.push_back(std::move(line));
}

void addTemporaryLine(std::vector<SystemDataLine>& lines, const std::function<bool(const std::string&)>& covered,
                      const Facts& facts) {
    // The per-user folder above ".../T": its caches ("C") and other parts belong to the same user.
    const std::string folder = deletingLastPathComponent(facts.temporaryFolder);
    if (!folder.starts_with("/var/folders/") && !folder.starts_with("/private/var/folders/")) return;
    const auto measured = duMeasure(folder, facts);
    if (measured.bytes < 0) return;
    SystemDataLine line =
        newLine("tmp", "Temporary files macOS keeps for you", measured.bytes, partlyDenied(!measured.denied.empty()));
    line.inScan = covered(folder);
    line.detail = "Apps' temporary files and caches in a hidden system folder. A restart clears most of it.";
    lines.push_back(std::move(line));
}

SystemDataLine spotlightLine(const Facts& facts) {
    SystemDataLine line = newLine("spotlight", "Spotlight's search index", std::nullopt);
    line.action = SpotlightGuide{};
    if (listingRefused(kSpotlightIndex, facts) == false) {
        const auto measured = duMeasure(kSpotlightIndex, facts);
        if (measured.bytes >= 0 && measured.denied.empty()) {
            line.bytes = measured.bytes;
            line.detail = "The index Spotlight searches. An index that has grown far larger than usual can be rebuilt.";
            return line;
        }
    }
    line.confidence = StorageConfidence::unavailable;
    line.detail =
        "macOS keeps the index readable only by itself, so no app can measure it. Usually 1–10 GB; an index that has "
        "grown far larger can be rebuilt.";
    return line;
}

void addHiddenVMLines(std::vector<SystemDataLine>& lines, const std::function<bool(const std::string&)>& covered,
                      const std::string& home, const Facts& facts) {
    for (const auto& vm : hiddenVMFolders(home)) {
        if (!facts.exists(vm.path)) continue;
        const auto measured = duMeasure(vm.path, facts);
        if (measured.bytes < 1) continue;
        SystemDataLine line = newLine("vm:" + vm.name, vm.name + " virtual machine", measured.bytes,
                                      partlyDenied(!measured.denied.empty()));
        line.inScan = covered(vm.path);
        line.detail = "A virtual machine's disk inside " + vm.name + "'s own folder. Shrink or remove it from " +
                      vm.name + " itself; deleting the file by hand can break the app.";
        if (vm.bundleID) line.action = OpenApp{*vm.bundleID, vm.name};
        lines.push_back(std::move(line));
    }
}

}  // namespace

std::string_view caseName(const SystemDataAction& action) {
    static constexpr std::string_view names[] = {"janitor",       "openApp",        "openSettings",
                                                 "thinSnapshots", "spotlightGuide", "fullDiskAccess"};
    return names[action.index()];
}

SystemDataReport SystemDataReport::measure(std::int64_t scanned, const std::function<bool(const std::string&)>& covered,
                                           int unreadable, bool fixable, std::optional<std::int64_t> simulatorBytes,
                                           const std::string& home, const Facts& facts) {
    const VolumeFigures volume = facts.volume(home);
    SystemDataReport report;
    report.used = atLeastZero(checkedSub(figure(volume.total), figure(volume.available)));
    report.scanned = scanned;
    auto& lines = report.lines;

    lines.push_back(purgeableLine(volume));
    lines.push_back(snapshotsLine(facts));
    addVolumeLines(lines, covered, facts);
    addSleepImageLine(lines, covered, facts);
    addModelsLine(lines, facts);
    addTemporaryLine(lines, covered, facts);
    lines.push_back(spotlightLine(facts));
    addHiddenVMLines(lines, covered, home, facts);

    if (simulatorBytes && *simulatorBytes > 0) {
        SystemDataLine line = newLine("simulators", "Xcode simulators", *simulatorBytes);
        line.inScan = true;
        line.detail =
            "Simulator runtimes and devices. Removing simulators Xcode can no longer use is safe; Xcode's own command "
            "does it.";
        line.action = Janitor{"simctl"};
        lines.push_back(std::move(line));
    }

    if (const auto zombies = measureZombieSpace(kOpenFilesTimeout, facts); !zombies.timedOut && zombies.total > 0) {
        SystemDataLine line = newLine("open-deleted", "Deleted files still held open", zombies.total,
                                      StorageConfidence::permissionLimited);
        line.inScan = covered("zombies");
        line.detail =
            "Files something deleted while an app still had them open. The space returns when that app quits.";
        lines.push_back(std::move(line));
    }

    if (unreadable >= 1) {
        SystemDataLine line =
            newLine("unreadable", "Folders the scan couldn't read", std::nullopt, StorageConfidence::permissionLimited);
        line.detail = std::to_string(unreadable) + " folder" + (unreadable == 1 ? "" : "s") +
                      " macOS kept from the scan. Their size is somewhere in the unexplained part below. They're "
                      "listed on this page.";
        if (fixable) line.action = FullDiskAccess{};
        lines.push_back(std::move(line));
    }

    SystemDataLine clones =
        newLine("clones", "Copies that share their storage", std::nullopt, StorageConfidence::unavailable);
    clones.detail =
        "APFS lets copies share the same blocks, so the scan can count shared space twice. macOS reports no figure for "
        "it, so no tool can.";
    lines.push_back(std::move(clones));

    report.unexplained = systemDataUnexplained(report.used, report.scanned, lines);
    return report;
}

std::optional<std::int64_t> systemDataUnexplained(std::int64_t used, std::int64_t scanned,
                                                  const std::vector<SystemDataLine>& lines) {
    if (used < 1 || scanned < 0) return std::nullopt;
    std::int64_t total = scanned;
    for (const auto& line : lines)
        if (line.subtracted() && line.bytes) total = addBytesOrUnknown(total, atLeastZero(*line.bytes));
    // A sum past any disk tells nothing about the rest.
    if (total < 0 || used < total) return std::nullopt;
    return used - total;
}

SystemDataBreakdown::SystemDataBreakdown(std::int64_t total_, std::int64_t purgeable_, std::int64_t swap_)
    : total(atLeastZero(total_)) {
    purgeable = std::clamp<std::int64_t>(purgeable_, 0, total);
    swap = std::clamp<std::int64_t>(swap_, 0, total - purgeable);
    rest = total - purgeable - swap;
}

nlohmann::ordered_json toJSON(const SystemDataLine& line) {
    nlohmann::ordered_json action = nullptr;
    if (line.action) {
        nlohmann::ordered_json payload =
            std::visit(Overloaded{[](const Janitor& j) {
                                      return nlohmann::ordered_json{{"id", j.id}};
                                  },
                                  [](const OpenApp& a) {
                                      return nlohmann::ordered_json{{"bundleID", a.bundleID}, {"name", a.name}};
                                  },
                                  [](const OpenSettings& s) {
                                      return nlohmann::ordered_json{{"url", s.url}, {"label", s.label}};
                                  },
                                  [](const auto&) { return nlohmann::ordered_json::object(); }},
                       *line.action);
        action = nlohmann::ordered_json::object();
        action[std::string(caseName(*line.action))] = std::move(payload);
    }
    return {{"id", line.id},
            {"label", line.label},
            {"bytes", line.bytes ? nlohmann::ordered_json(*line.bytes) : nlohmann::ordered_json(nullptr)},
            {"confidence", rawValue(line.confidence)},
            {"detail", line.detail},
            {"inScan", line.inScan},
            {"overlaps", line.overlaps},
            {"subtracted", line.subtracted()},
            {"action", std::move(action)}};
}

nlohmann::ordered_json toJSON(const SystemDataReport& report) {
    nlohmann::ordered_json lines = nlohmann::ordered_json::array();
    for (const auto& line : report.lines) lines.push_back(toJSON(line));
    return {{"used", report.used},
            {"scanned", report.scanned},
            {"lines", std::move(lines)},
            {"unexplained",
             report.unexplained ? nlohmann::ordered_json(*report.unexplained) : nlohmann::ordered_json(nullptr)}};
}

}  // namespace orvane
