// Virtual machines that apps keep inside their own folders, where their disks weigh many
// gigabytes without showing up as anything the user made.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace orvane {

struct HiddenVM {
    std::string name;                     // the app, as the user knows it
    std::string path;                     // the folder of its machines
    std::optional<std::string> bundleID;  // the app to open for shrinking them; none without one
    bool operator==(const HiddenVM&) const = default;
};

// The places known to hold such machines, under `home`, whether or not they exist.
std::vector<HiddenVM> hiddenVMFolders(const std::string& home);

}  // namespace orvane
