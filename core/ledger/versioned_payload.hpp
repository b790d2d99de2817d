// The versioned wrapper of the ledger's files, and how each record type reads and writes JSON.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

// How a record type becomes JSON and back. Each record header specialises it with
//   static nlohmann::ordered_json encode(const T&);
//   static std::optional<T> decode(const nlohmann::json&);   // none when the shape is wrong
template <typename T>
struct JSONCoding;

template <>
struct JSONCoding<std::string> {
    static nlohmann::ordered_json encode(const std::string& value) { return value; }
    static std::optional<std::string> decode(const nlohmann::json& value) {
        if (!value.is_string()) return std::nullopt;
        return value.get<std::string>();
    }
};

// An array decodes whole or not at all: one bad element fails the document.
template <typename E>
struct JSONCoding<std::vector<E>> {
    static nlohmann::ordered_json encode(const std::vector<E>& values) {
        nlohmann::ordered_json array = nlohmann::ordered_json::array();
        for (const auto& value : values) array.push_back(JSONCoding<E>::encode(value));
        return array;
    }
    static std::optional<std::vector<E>> decode(const nlohmann::json& value) {
        if (!value.is_array()) return std::nullopt;
        std::vector<E> values;
        values.reserve(value.size());
        for (const auto& element : value) {
            auto decoded = JSONCoding<E>::decode(element);
            if (!decoded) return std::nullopt;
            values.push_back(std::move(*decoded));
        }
        return values;
    }
};

// {"v":version,"data":payload}: the form every versioned file of the ledger is written in.
template <typename T>
struct VersionedPayload {
    int v = 1;
    T data;
    bool operator==(const VersionedPayload&) const = default;
};

namespace ledger::internal {
// Parses without throwing; none for bytes that are not JSON.
std::optional<nlohmann::json> parseJSON(std::string_view bytes);
// The payload of a {"v":integer,"data":...} object, or null when `document` is not one.
const nlohmann::json* wrappedPayload(const nlohmann::json& document);
// Compact text; none when it cannot be encoded (a string that is not UTF-8).
std::optional<std::string> dumpCompact(const nlohmann::ordered_json& document);
std::optional<std::string> dumpVersioned(nlohmann::ordered_json payload, int version);
}  // namespace ledger::internal

// The payload of a wrapped document whose payload has T's shape; else the document read as a
// bare T (files written before the wrapper existed); else none. The version is not compared with
// anything: a file of any version reads as long as its payload fits.
template <typename T>
std::optional<T> decodeVersioned(std::string_view data) {
    auto document = ledger::internal::parseJSON(data);
    if (!document) return std::nullopt;
    if (const auto* payload = ledger::internal::wrappedPayload(*document))
        if (auto decoded = JSONCoding<T>::decode(*payload)) return decoded;
    return JSONCoding<T>::decode(*document);
}

// Wraps and encodes compactly; none on failure.
template <typename T>
std::optional<std::string> encodeVersioned(const T& value, int version) {
    return ledger::internal::dumpVersioned(JSONCoding<T>::encode(value), version);
}

}  // namespace orvane
