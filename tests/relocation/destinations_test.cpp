#include "core/relocation/destinations.hpp"

#include <gtest/gtest.h>

#include <set>

#include "core/common/json_files.hpp"
#include "core/relocation/drive_mount.hpp"

namespace orvane {
namespace {

TEST(Destinations, FormatVerdicts) {
    const std::string fat = "the drive is formatted MS-DOS (FAT), which can't hold files over 4 GB or the details macOS "
                            "keeps with files. Use a drive formatted APFS or Mac OS Extended.";
    const std::string ownership = "Apple asks for \"Ignore ownership on this volume\" to be selected";
    struct Row {
        std::string type;
        bool photos, ignoresOwnership;
        std::optional<std::string> refusalStart;
    };
    for (const Row& row : std::vector<Row>{
             {"MSDOS", false, true, fat},
             {verdictFileSystemType("vfat"), false, true, fat},
             {"exfat", false, false, std::nullopt},
             {"exfat", true, true, "Photos needs its library on a drive formatted APFS or Mac OS Extended, and this one is EXFAT."},
             {verdictFileSystemType("hfsplus"), true, true, std::nullopt},
             {"apfs", true, false, ownership},
             {"", true, false, ownership},
             {"", true, true, std::nullopt},
         }) {
        SCOPED_TRACE(row.type);
        const auto reason = moveDestinationVerdict(row.type, row.photos, row.ignoresOwnership).reason();
        if (!row.refusalStart) EXPECT_EQ(reason, std::nullopt);
        else EXPECT_TRUE(reason && reason->starts_with(*row.refusalStart)) << reason.value_or("(ok)");
    }
}

TEST(Destinations, DriveNamesAndDrivesAway) {
    const std::vector<std::pair<std::string, std::optional<std::string>>> labels = {
        {"/Volumes/Archive/Models", "Archive"}, {"/Volumes/", std::nullopt},      {"/Volumesx/A", std::nullopt},
        {"/media/alex/Stick/a", "Stick"},       {"/run/media/alex/Stick", "Stick"}, {"/media/alex", std::nullopt},
        {"/mnt/Backup/x", "Backup"},            {"/home/alex/x", std::nullopt},
    };
    for (const auto& [path, label] : labels) EXPECT_EQ(volumeLabel(path), label) << path;

    auto record = [](std::string dst, std::int64_t bytes, bool symlinked = true) {
        return MoveRecord{TimePoint{}, "t", "/Users/x/src", std::move(dst), bytes, symlinked, std::nullopt};
    };
    const std::set<std::string> present = {"/Volumes/Here/a"};
    const auto away = missingDrives({record("/Volumes/Archive/Models", 5), record("/Users/x/other", 100),
                                     record("/Volumes/Here/a", 1000), record("/Volumes/Gone/b", 1000, false),
                                     record("/Volumes/Archive/Big", 50)},
                                    [&](const std::string& path) { return present.contains(path); });
    ASSERT_EQ(away.size(), 2u);
    EXPECT_EQ(away[0].drive, "the drive");
    EXPECT_EQ(away[1].drive, "Archive");
    EXPECT_EQ(away[1].moves[0].dst, "/Volumes/Archive/Big");

    EXPECT_EQ(relocationState(std::nullopt, "/Volumes/A/x"), RelocationState::unknown);
    EXPECT_EQ(relocationState(" \n", "/Volumes/A/x"), RelocationState::appUsesShortcut);
    EXPECT_EQ(relocationState("/Volumes/A/x\n", "/Volumes/A/x"), RelocationState::appUsesNewLocation);
    EXPECT_EQ(relocationState("/Users/x/Music", "/Volumes/A/x"), RelocationState::appUsesShortcut);
}

// Real listings: a mounted FAT stick, a virtual machine's disk with no named volume, fragments and
// an edited listing that is no property list at all.
TEST(Destinations, UnmountedVolumesInListings) {
    const std::string data = std::string(TEST_DATA_DIR) + "/diskutil/";
    const std::string stick = readFile(data + "list-plist-external-usb-fat32.plist").value();
    EXPECT_EQ(unmountedVolume("UNTITLED", stick), std::nullopt);  // mounted at /Volumes/UNTITLED
    std::string unplugged = stick;
    const auto at = unplugged.find("<key>MountPoint</key>");
    ASSERT_NE(at, std::string::npos);
    unplugged.erase(at, unplugged.find("</string>", at) + 9 - at);
    EXPECT_EQ(unmountedVolume("UNTITLED", unplugged), "disk2s1");
    EXPECT_EQ(unmountedVolume("untitled", unplugged), std::nullopt);
    for (const char* name : {"list-plist-tart-vm-applesilicon.plist", "list-plist-applesilicon-host-mountmate16-FRAGMENTS.xml",
                             "apfs-list-plist-applesilicon-iSC-fleet-edited.plist"})
        EXPECT_EQ(unmountedVolume("Macintosh HD", readFile(data + name).value()), std::nullopt) << name;

    const std::string lsblk = R"({"blockdevices": [
        {"name": "sda", "label": null, "mountpoint": null, "path": "/dev/sda", "children": [
            {"name": "sda1", "label": "Archive", "mountpoint": "/media/alex/Archive", "path": "/dev/sda1"},
            {"name": "sda2", "label": "Stick", "mountpoint": null, "path": "/dev/sda2"}]},
        {"name": "vda", "label": null, "mountpoint": "/", "path": "/dev/vda"}]})";
    EXPECT_EQ(unmountedVolumeInBlockDevices("Stick", lsblk), "/dev/sda2");
    EXPECT_EQ(unmountedVolumeInBlockDevices("Archive", lsblk), std::nullopt);
    EXPECT_EQ(unmountedVolumeInBlockDevices("Stick", "{\"blockdevices\": [{"), std::nullopt);
}

}  // namespace
}  // namespace orvane
