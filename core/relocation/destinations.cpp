#include "core/relocation/destinations.hpp"

#include <algorithm>
#include <map>

#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/platform/platform.hpp"
#include "core/safety/protection.hpp"

namespace orvane {

namespace {

std::string uppercased(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return out;
}

// The component of `path` after `prefix`, up to the next "/"; none when empty.
std::optional<std::string> componentAfter(std::string_view path, std::string_view prefix) {
    if (!path.starts_with(prefix)) return std::nullopt;
    const std::string_view rest = path.substr(prefix.size());
    const std::string_view name = rest.substr(0, rest.find('/'));
    if (name.empty()) return std::nullopt;
    return std::string(name);
}

// Where a drive is mounted off a Mac: under /media/USER/, /run/media/USER/ or /mnt/.
std::optional<std::string> linuxDriveName(std::string_view path) {
    for (std::string_view perUser : {"/media/", "/run/media/"}) {
        if (!path.starts_with(perUser)) continue;
        const std::string_view rest = path.substr(perUser.size());
        const auto slash = rest.find('/');
        if (slash == std::string_view::npos) return std::nullopt;
        return componentAfter(rest.substr(slash), "/");
    }
    return componentAfter(path, "/mnt/");
}

bool mountedWhereDrivesGo(std::string_view path) {
    return path.starts_with("/media/") || path.starts_with("/run/media/") || path.starts_with("/mnt/") ||
           path.starts_with("/Volumes/");
}

DestVolume describedVolume(const std::string& path, std::string name, std::string format, const Facts& facts) {
    const VolumeFigures figures = facts.volume(path);
    return {path, name.empty() ? lastPathComponent(path) : std::move(name), format.empty() ? "?" : std::move(format),
            figures.available.value_or(0), figures.total.value_or(0)};
}

}  // namespace

std::vector<DestVolume> externalVolumes(const Facts& facts) {
    std::vector<DestVolume> out;
    if (facts.recorded) {
        for (const auto& entry : facts.list("/Volumes").value_or(std::vector<FolderEntry>{}))
            if (entry.isFolder) out.push_back(describedVolume("/Volumes/" + entry.name, entry.name, "", facts));
        return out;
    }
    const auto homeMount = facts.mount(facts.home(""));
    for (const auto& volume : facts.volumes()) {
        if (volume.path == "/" || volume.path.starts_with("/System")) continue;
        const auto mount = facts.mount(volume.path);
        if (!mount || (homeMount && mount->mountPoint == homeMount->mountPoint)) continue;
        if (!mountedWhereDrivesGo(volume.path) && !platform::isRemovableDevice(mount->device)) continue;
        out.push_back(describedVolume(volume.path, volume.name, mount->fileSystemType, facts));
    }
    return out;
}

std::string verdictFileSystemType(std::string_view type) {
    const std::string lower = lowercased(type);
    if (lower == "vfat" || lower == "msdos") return "msdos";
    if (lower == "hfsplus") return "hfs";
    return std::string(type);
}

MoveFormatVerdict moveDestinationVerdict(std::string_view fsType, bool isPhotosLibrary, bool ignoresOwnership) {
    const std::string type = lowercased(fsType);
    if (type == "msdos")
        return {MoveFormatVerdict::Refuse{
            "the drive is formatted MS-DOS (FAT), which can't hold files over 4 GB or the details macOS keeps with "
            "files. Use a drive formatted APFS or Mac OS Extended."}};
    if (!isPhotosLibrary) return {MoveFormatVerdict::Ok{}};
    if (!type.empty() && type != "apfs" && type != "hfs")
        return {MoveFormatVerdict::Refuse{
            "Photos needs its library on a drive formatted APFS or Mac OS Extended, and this one is " + uppercased(type) +
            "."}};
    if (ignoresOwnership) return {MoveFormatVerdict::Ok{}};
    return {MoveFormatVerdict::Refuse{
        "Apple asks for \"Ignore ownership on this volume\" to be selected on a drive that holds a Photos library, and "
        "it isn't. In Finder, select the drive, choose File › Get Info, open Sharing & Permissions, select \"Ignore "
        "ownership on this volume\", then try again."}};
}

std::optional<std::string> volumeLabel(std::string_view path) {
    if (path.starts_with("/Volumes/")) return componentAfter(path, "/Volumes/");
    return linuxDriveName(path);
}

std::vector<MissingDrive> missingDrives(const std::vector<MoveRecord>& moves,
                                        const std::function<bool(const std::string&)>& exists) {
    std::vector<MissingDrive> drives;
    for (const auto& record : moves) {
        if (!record.symlinked || exists(record.dst)) continue;
        const std::string name = volumeLabel(record.dst).value_or("the drive");
        auto drive = std::find_if(drives.begin(), drives.end(), [&](const MissingDrive& d) { return d.drive == name; });
        if (drive == drives.end()) drive = drives.insert(drives.end(), MissingDrive{name, {}});
        drive->moves.push_back(record);
    }
    auto bytesOf = [](const MissingDrive& drive) {
        std::int64_t sum = 0;
        for (const auto& record : drive.moves) sum += record.bytes;
        return sum;
    };
    for (auto& drive : drives)
        std::stable_sort(drive.moves.begin(), drive.moves.end(),
                         [](const MoveRecord& a, const MoveRecord& b) { return a.bytes > b.bytes; });
    std::stable_sort(drives.begin(), drives.end(),
                     [&](const MissingDrive& a, const MissingDrive& b) { return bytesOf(a) > bytesOf(b); });
    return drives;
}

RelocationState relocationState(const std::optional<std::string>& appSetting, std::string_view movedTo) {
    if (!appSetting) return RelocationState::unknown;
    const std::string setting = trimWhitespace(*appSetting);
    if (setting.empty()) return RelocationState::appUsesShortcut;
    return protectKey(setting) == protectKey(movedTo) ? RelocationState::appUsesNewLocation
                                                      : RelocationState::appUsesShortcut;
}

}  // namespace orvane
