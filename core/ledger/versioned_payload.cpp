#include "core/ledger/versioned_payload.hpp"

#include "core/common/json_files.hpp"

namespace orvane::ledger::internal {

std::optional<nlohmann::json> parseJSON(std::string_view bytes) {
    auto document = nlohmann::json::parse(bytes.begin(), bytes.end(), nullptr, false);
    if (document.is_discarded()) return std::nullopt;
    return document;
}

const nlohmann::json* wrappedPayload(const nlohmann::json& document) {
    if (!document.is_object()) return nullptr;
    auto version = document.find("v");
    auto data = document.find("data");
    if (version == document.end() || data == document.end() || !jsonWholeNumber(*version)) return nullptr;
    return &*data;
}

std::optional<std::string> dumpCompact(const nlohmann::ordered_json& document) {
    try {
        return document.dump();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

std::optional<std::string> dumpVersioned(nlohmann::ordered_json payload, int version) {
    auto wrapped = wrapPayload(std::move(payload));
    wrapped["v"] = version;
    return dumpCompact(wrapped);
}

}  // namespace orvane::ledger::internal
