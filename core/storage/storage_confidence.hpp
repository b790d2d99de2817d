// How far a storage figure may be trusted, with the label the user sees and the sentence behind it.
#pragma once

#include <array>
#include <string_view>
#include <utility>

#include "core/common/raw_value.hpp"

namespace orvane {

enum class StorageConfidence {
    measured,
    estimated,
    permissionLimited,  // a floor: macOS hides part of it
    notMeasured,        // knowable, only not asked yet
    unavailable,        // nothing on macOS reports it
};

template <>
struct RawValues<StorageConfidence> {
    static constexpr std::array<std::pair<StorageConfidence, std::string_view>, 5> table = {{
        {StorageConfidence::measured, "Measured"},
        {StorageConfidence::estimated, "Estimated"},
        {StorageConfidence::permissionLimited, "Permission-limited"},
        {StorageConfidence::notMeasured, "Not measured yet"},
        {StorageConfidence::unavailable, "Not knowable"},
    }};
};

// The sentence that explains the label to the user.
std::string_view meaning(StorageConfidence confidence);

}  // namespace orvane
