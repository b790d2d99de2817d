// The on-device models macOS downloads for Apple Intelligence, Siri and dictation, grouped into
// families a user recognises. They live in asset folders under /System/Library/AssetsV2.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

inline constexpr const char* kAppleModelAssetsRoot = "/System/Library/AssetsV2";

struct AppleModelFamily {
    std::string name;
    std::string what;
    std::int64_t bytes = 0;
    bool operator==(const AppleModelFamily&) const = default;
};

// The "com_apple_MobileAsset_UAF_*" folders of `root` as full paths, sorted; none when `root`
// cannot be listed.
std::vector<std::string> appleModelAssetFolders(const std::string& root, const Facts& facts = Facts::real());

struct AppleModelFamilyText {
    std::string_view name;
    std::string_view what;
    bool operator==(const AppleModelFamilyText&) const = default;
};
// The family an asset folder belongs to, by the start of its name; "Other on-device models"
// when nothing matches.
AppleModelFamilyText appleModelFamily(std::string_view assetFolder);

// The folders' sizes (-1: unknown) added up per family, folders below 1 byte left out; the
// biggest family first, ties in the order the families first appear. A family past 2^60 is -1.
std::vector<AppleModelFamily> appleModelFamilies(const std::map<std::string, std::int64_t>& sizes);

struct AppleModelMeasurement {
    std::vector<AppleModelFamily> families;
    std::int64_t total = 0;  // -1 when it passes 2^60
    bool partial = false;    // du could not read some of it
    bool operator==(const AppleModelMeasurement&) const = default;
};
// Lists `root`, measures its asset folders with one du (60 seconds at most) and groups them.
AppleModelMeasurement measureAppleModelFamilies(const std::string& root, const Facts& facts = Facts::real());

}  // namespace orvane
