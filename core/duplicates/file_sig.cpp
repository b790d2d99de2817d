#include "core/duplicates/file_sig.hpp"

namespace orvane {

nlohmann::ordered_json toJSON(const FileSig& sig) { return {{"mtime", sig.mtime}, {"size", sig.size}}; }

std::optional<FileSig> fileSigFromJSON(const nlohmann::json& value) {
    if (!value.is_object()) return std::nullopt;
    auto whole = [&](const char* key) -> std::optional<std::int64_t> {
        auto found = value.find(key);
        if (found == value.end() || !found->is_number_integer()) return std::nullopt;
        return found->get<std::int64_t>();
    };
    auto mtime = whole("mtime");
    auto size = whole("size");
    if (!mtime || !size) return std::nullopt;
    return FileSig{*mtime, *size};
}

bool sourceChangedDuringCopy(const std::map<std::string, FileSig>& before,
                             const std::map<std::string, FileSig>& after) {
    return before != after;
}

}  // namespace orvane
