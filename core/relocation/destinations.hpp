// The drives that can take a move, whether a drive's format is fit for one, and which moved data
// is out of reach because its drive is away.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/common/facts.hpp"
#include "core/ledger/move_record.hpp"

namespace orvane {

// A drive that can take a move.
struct DestVolume {
    std::string id;      // the mount path
    std::string name;
    std::string format;  // for display; "?" when unknown
    std::int64_t free = 0;
    std::int64_t total = 0;
    bool operator==(const DestVolume&) const = default;
};

// Whether a drive's format can hold what is to be moved; a refusal carries the sentence.
struct MoveFormatVerdict {
    struct Ok {
        bool operator==(const Ok&) const = default;
    };
    struct Refuse {
        std::string reason;
        bool operator==(const Refuse&) const = default;
    };
    std::variant<Ok, Refuse> value;

    bool ok() const { return std::holds_alternative<Ok>(value); }
    std::optional<std::string> reason() const {
        if (const auto* refuse = std::get_if<Refuse>(&value)) return refuse->reason;
        return std::nullopt;
    }
    bool operator==(const MoveFormatVerdict&) const = default;
};

// The external drives mounted here, in the system's order. On a Mac those the volume list does not
// call internal; off a Mac those a user would browse that are neither "/" nor the home's file
// system and are mounted under /media, /run/media or /mnt, or sit on a removable device. A recorded
// Mac gives the entries of its /Volumes, format unknown.
std::vector<DestVolume> externalVolumes(const Facts& facts);

// The file system type as the format verdict reads it: "vfat" and "msdos" are "msdos", "hfsplus"
// is "hfs"; others pass as they are.
std::string verdictFileSystemType(std::string_view type);

// `fsType` is compared lower-cased. FAT is refused outright; a Photos library also needs APFS or
// Mac OS Extended (an unknown type is not held against the drive) and ownership ignored.
MoveFormatVerdict moveDestinationVerdict(std::string_view fsType, bool isPhotosLibrary, bool ignoresOwnership);

// The drive's name in a path on it: the component after "/Volumes/", and off a Mac the one after
// "/media/USER/", "/run/media/USER/" or "/mnt/". None for a path on no such drive.
std::optional<std::string> volumeLabel(std::string_view path);
// The same, under the name the pages about moves use.
inline std::optional<std::string> driveName(std::string_view movedPath) { return volumeLabel(movedPath); }

// The drives that shortcuts on this machine point at and that are away, with their moves: the
// largest first, and within a drive the largest move first. A record without a shortcut, or whose
// copy is reachable, is no concern. A destination on no named drive falls under "the drive".
struct MissingDrive {
    std::string drive;
    std::vector<MoveRecord> moves;
    bool operator==(const MissingDrive&) const = default;
};
std::vector<MissingDrive> missingDrives(const std::vector<MoveRecord>& moves,
                                        const std::function<bool(const std::string&)>& exists);

// What an app's own setting says of moved data.
enum class RelocationState { appUsesNewLocation, appUsesShortcut, unknown };
RelocationState relocationState(const std::optional<std::string>& appSetting, std::string_view movedTo);

}  // namespace orvane
