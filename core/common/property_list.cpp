#include "core/common/property_list.hpp"

#include <plist/plist.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>

#include "core/common/base64.hpp"
#include "core/common/facts.hpp"
#include "core/common/format.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"

namespace orvane {
namespace {

// Deep enough for anything a tool prints; shallow enough that the walk below cannot exhaust the
// stack on a hostile file.
constexpr int kMaxDepth = 512;

struct PlistFree {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
struct MallocFree {
    void operator()(char* text) const { std::free(text); }
};

std::optional<nlohmann::json> convert(plist_t node, int depth) {
    if (!node || depth > kMaxDepth) return std::nullopt;
    switch (plist_get_node_type(node)) {
        case PLIST_DICT: {
            nlohmann::json object = nlohmann::json::object();
            plist_dict_iter iter = nullptr;
            plist_dict_new_iter(node, &iter);
            std::unique_ptr<void, decltype(&std::free)> holdIter(iter, &std::free);
            for (;;) {
                char* rawKey = nullptr;
                plist_t value = nullptr;
                plist_dict_next_item(node, iter, &rawKey, &value);
                std::unique_ptr<char, MallocFree> key(rawKey);
                if (!value) break;
                auto converted = convert(value, depth + 1);
                if (!converted || !key) return std::nullopt;
                object[key.get()] = std::move(*converted);
            }
            return object;
        }
        case PLIST_ARRAY: {
            nlohmann::json array = nlohmann::json::array();
            const std::uint32_t size = plist_array_get_size(node);
            for (std::uint32_t i = 0; i < size; ++i) {
                auto converted = convert(plist_array_get_item(node, i), depth + 1);
                if (!converted) return std::nullopt;
                array.push_back(std::move(*converted));
            }
            return array;
        }
        case PLIST_STRING:
        case PLIST_KEY: {
            char* raw = nullptr;
            if (plist_get_node_type(node) == PLIST_KEY)
                plist_get_key_val(node, &raw);
            else
                plist_get_string_val(node, &raw);
            std::unique_ptr<char, MallocFree> text(raw);
            return nlohmann::json(text ? std::string(text.get()) : std::string());
        }
        case PLIST_BOOLEAN: {
            std::uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return nlohmann::json(value != 0);
        }
        case PLIST_UINT: {
            std::uint64_t value = 0;
            plist_get_uint_val(node, &value);
            return nlohmann::json(static_cast<std::int64_t>(value));
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return nlohmann::json(value);
        }
        case PLIST_DATE: {
            std::int32_t seconds = 0;
            std::int32_t microseconds = 0;
            plist_get_date_val(node, &seconds, &microseconds);
            auto date = dateFromReferenceSeconds(static_cast<double>(seconds));
            if (!date) return std::nullopt;
            return nlohmann::json(iso8601(*date));
        }
        case PLIST_DATA: {
            std::uint64_t length = 0;
            const char* bytes = plist_get_data_ptr(node, &length);
            if (length > static_cast<std::uint64_t>(std::numeric_limits<int>::max()) / 2) return std::nullopt;
            return nlohmann::json(base64Encoded(std::string_view(bytes, length)));
        }
        case PLIST_UID: {
            std::uint64_t value = 0;
            plist_get_uid_val(node, &value);
            return nlohmann::json{{"CF$UID", value}};
        }
        default:
            return std::nullopt;
    }
}

// libplist reads an XML document cut off before its closing tag as if it were whole, so a listing
// a tool stopped printing half-way would pass for a complete one.
bool endsWithClosingTag(std::string_view text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\n' || text.back() == '\r'))
        text.remove_suffix(1);
    return text.ends_with("</plist>");
}

plist_t toNode(const nlohmann::json& value, int depth) {
    if (depth > kMaxDepth) return nullptr;
    switch (value.type()) {
        case nlohmann::json::value_t::object: {
            plist_t dict = plist_new_dict();
            for (const auto& [key, item] : value.items()) {
                plist_t node = toNode(item, depth + 1);
                if (!node) {
                    plist_free(dict);
                    return nullptr;
                }
                plist_dict_set_item(dict, key.c_str(), node);
            }
            return dict;
        }
        case nlohmann::json::value_t::array: {
            plist_t array = plist_new_array();
            for (const auto& item : value) {
                plist_t node = toNode(item, depth + 1);
                if (!node) {
                    plist_free(array);
                    return nullptr;
                }
                plist_array_append_item(array, node);
            }
            return array;
        }
        case nlohmann::json::value_t::string: return plist_new_string(value.get_ref<const std::string&>().c_str());
        case nlohmann::json::value_t::boolean: return plist_new_bool(value.get<bool>() ? 1 : 0);
        case nlohmann::json::value_t::number_integer: return plist_new_uint(static_cast<std::uint64_t>(value.get<std::int64_t>()));
        case nlohmann::json::value_t::number_unsigned: return plist_new_uint(value.get<std::uint64_t>());
        case nlohmann::json::value_t::number_float: return plist_new_real(value.get<double>());
        default: return nullptr;
    }
}

}  // namespace

std::optional<nlohmann::json> readPropertyListDictionary(const std::string& path, const Facts& facts) {
    const FileRead read = facts.read(path, kMaxPropertyListFileBytes);
    if (!read.bytes) return std::nullopt;
    auto value = parsePropertyList(*read.bytes);
    if (!value || !value->is_object()) return std::nullopt;
    return value;
}

std::optional<std::string> plistString(const nlohmann::json& dictionary, const char* key) {
    if (!dictionary.is_object()) return std::nullopt;
    auto value = dictionary.find(key);
    if (value == dictionary.end() || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

std::optional<std::vector<std::string>> plistStrings(const nlohmann::json& dictionary, const char* key) {
    if (!dictionary.is_object()) return std::nullopt;
    auto value = dictionary.find(key);
    if (value == dictionary.end() || !value->is_array()) return std::nullopt;
    std::vector<std::string> strings;
    for (const auto& element : *value) {
        if (!element.is_string()) return std::nullopt;
        strings.push_back(element.get<std::string>());
    }
    return strings;
}

std::string bundleIdentifier(const std::string& bundle, const Facts& facts) {
    auto info = readPropertyListDictionary(appendingPathComponent(bundle, "Contents/Info.plist"), facts);
    return info ? plistString(*info, "CFBundleIdentifier").value_or("") : std::string();
}

std::optional<std::string> propertyListData(const nlohmann::json& value, PropertyListFormat format) {
    std::unique_ptr<void, PlistFree> root(toNode(value, 0));
    if (!root) return std::nullopt;
    char* bytes = nullptr;
    std::uint32_t length = 0;
    if (format == PropertyListFormat::xml) plist_to_xml(static_cast<plist_t>(root.get()), &bytes, &length);
    else plist_to_bin(static_cast<plist_t>(root.get()), &bytes, &length);
    if (!bytes) return std::nullopt;
    std::string data(bytes, length);
    if (format == PropertyListFormat::xml) plist_to_xml_free(bytes);
    else plist_to_bin_free(bytes);
    return data;
}

std::optional<nlohmann::json> parsePropertyList(std::string_view bytes) {
    if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    const auto length = static_cast<std::uint32_t>(bytes.size());
    if (!plist_is_binary(bytes.data(), length) && !endsWithClosingTag(bytes)) return std::nullopt;
    // The XML reader of libplist looks for a terminating NUL; a view need not have one.
    const std::string terminated(bytes);
    plist_t root = nullptr;
    plist_from_memory(terminated.c_str(), length, &root);
    if (!root) return std::nullopt;
    std::unique_ptr<void, PlistFree> hold(root);
    return convert(root, 0);
}

}  // namespace orvane
