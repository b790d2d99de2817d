// Property lists, XML or binary, read into JSON values: many macOS tools answer in them
// (diskutil -plist, the bundles' Info.plist), and JSON is what the rest of the library reads.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string_view>

namespace orvane {

// The value a property list holds, or none when the bytes are not one (empty, damaged, cut
// short, nested deeper than 512 levels, larger than 4 GiB). An XML one must end with its closing
// "</plist>" (white space after it aside): text cut off before it is not taken for a whole
// document. Never throws.
//
// dict -> object, array -> array, string -> string, true/false -> boolean, real -> number.
// An integer is a signed 64-bit number, as longLongValue reads it: an unsigned value above
// 2^63 - 1 comes out negative. Forms JSON lacks become text a reader can recognise by its key:
// a date is ISO 8601 in UTC with whole seconds ("2024-05-10T11:32:26Z"), data is Base64 as an
// XML property list writes it, and a keyed archiver's UID is {"CF$UID": n}.
std::optional<nlohmann::json> parsePropertyList(std::string_view bytes);

}  // namespace orvane
