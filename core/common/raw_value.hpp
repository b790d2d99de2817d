// The raw strings of closed enumerations: one table per enumeration, and one reading and writing
// of it for all of them.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvane {

// Specialised beside an enumeration that has raw strings:
//   template <> struct RawValues<Safety> {
//       static constexpr std::array<std::pair<Safety, std::string_view>, 3> table = {...};
//   };
// Every case stands in the table once; the table's order is the order of listings.
template <typename E>
struct RawValues;

template <typename E>
concept HasRawValueTable = requires { RawValues<E>::table; };

// Empty for a value that is not a case.
template <HasRawValueTable E>
constexpr std::string_view rawValue(E value) {
    for (const auto& [candidate, raw] : RawValues<E>::table)
        if (candidate == value) return raw;
    return {};
}

// Raw strings are compared exactly, byte for byte. An enumeration whose raw strings live
// elsewhere (beside more data of each case) specialises this function instead of the table.
template <typename E>
std::optional<E> fromRawValue(std::string_view raw) {
    static_assert(HasRawValueTable<E>, "give the enumeration a RawValues table or specialise fromRawValue");
    for (const auto& [value, candidate] : RawValues<E>::table)
        if (candidate == raw) return value;
    return std::nullopt;
}

// "\"Safe\", \"Caution\", \"Review\"": the raw strings for a sentence that lists them.
template <HasRawValueTable E>
std::string quotedRawValues() {
    std::string list;
    for (const auto& [value, raw] : RawValues<E>::table) {
        if (!list.empty()) list += ", ";
        list += '"';
        list += raw;
        list += '"';
    }
    return list;
}

}  // namespace orvane
