// What the boot APFS container holds, as diskutil tells it: the used figure of a Mac covers
// every volume of that container, not only the Data volume a scan can walk.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

struct ContainerVolume {
    std::string device;      // "disk3s5"; empty when diskutil names none
    std::string name = "—";  // "—" when diskutil names none
    std::string role;        // the first of its roles ("Data", "VM", ...); empty when it has none
    std::int64_t bytesInUse = 0;
    bool operator==(const ContainerVolume&) const = default;
};

struct ContainerReport {
    std::string reference;  // the container's device name, "disk3"
    std::int64_t capacity = 0;
    std::int64_t free = 0;
    std::vector<ContainerVolume> volumes;  // in diskutil's order

    // The bytes of every volume whose role is not exactly "Data", a role-less one included.
    // Nothing is clamped; a sum that cannot be held is -1 (unknown), since the figures are a tool's.
    std::int64_t siblingBytes() const;
    // The volumes a scan of files cannot reach that hold something: every one but "Data" with
    // bytes in use, in diskutil's order. What the reports name, one line or one fact each.
    std::vector<ContainerVolume> siblingsInUse() const;
    bool operator==(const ContainerReport&) const = default;
};

// The container a volume's device belongs to: "/dev/disk3s1s1" gives "disk3". None unless the
// last component is "disk" followed by at least one digit.
std::optional<std::string> containerReference(std::string_view device);
// The container of the volume mounted at "/"; none when "/" is not on a "disk" device.
std::optional<std::string> bootContainerReference(const Facts& facts = Facts::real());

// The report of container `reference` from the lines of `diskutil apfs list -plist`. None when
// the text is not a property list of that form, or names no such container.
std::optional<ContainerReport> parseContainerReport(const std::vector<std::string>& lines, std::string_view reference);
// Runs diskutil for the boot container (20 seconds at most); none when it cannot tell.
std::optional<ContainerReport> bootContainerReport(const Facts& facts = Facts::real());

// How many snapshots in the lines of `diskutil apfs listSnapshots -plist` limit how far their
// container can shrink. 0 also stands for a listing that told nothing.
int countPinningSnapshots(const std::vector<std::string>& lines);
// The count for the Data volume (20 seconds at most).
int snapshotsPinningContainer(const Facts& facts = Facts::real());

// {"reference","capacity","free","siblingBytes","volumes":[{"device","name","role","bytesInUse"}]}
nlohmann::ordered_json toJSON(const ContainerReport& report);

}  // namespace orvane
