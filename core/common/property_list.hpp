// Property lists, XML or binary, read into JSON values: many macOS tools answer in them
// (diskutil -plist, the bundles' Info.plist), and JSON is what the rest of the library reads.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

struct Facts;

// Launch plists and Info.plists are small; a larger file in their place is not one.
inline constexpr std::uint64_t kMaxPropertyListFileBytes = 8 << 20;

// The dictionary a property-list file holds, read through `facts` (no final link followed, a FIFO
// answered at once); none for anything else: missing, unreadable, damaged, or not a dictionary.
std::optional<nlohmann::json> readPropertyListDictionary(const std::string& path, const Facts& facts);

// A dictionary's string at `key`; none when absent or of another type.
std::optional<std::string> plistString(const nlohmann::json& dictionary, const char* key);
// A dictionary's array at `key` when every element is a string; none otherwise.
std::optional<std::vector<std::string>> plistStrings(const nlohmann::json& dictionary, const char* key);

// A bundle's "CFBundleIdentifier" from its Contents/Info.plist; "" when it cannot be read.
std::string bundleIdentifier(const std::string& bundle, const Facts& facts);

enum class PropertyListFormat { xml, binary };
// A JSON value written as a property list: objects, arrays, strings, booleans and numbers
// (integers stay integers). None for null or anything libplist refuses.
std::optional<std::string> propertyListData(const nlohmann::json& value, PropertyListFormat format);

}  // namespace orvane
