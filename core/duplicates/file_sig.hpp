// What a copy step notes of its source before and after, to tell that the source changed under it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace orvane {

// The identity of a file's content as seen from outside.
struct FileSig {
    std::int64_t mtime = 0;  // modification time
    std::int64_t size = 0;   // bytes
    bool operator==(const FileSig&) const = default;
};

nlohmann::ordered_json toJSON(const FileSig& sig);
// None unless both keys hold whole numbers.
std::optional<FileSig> fileSigFromJSON(const nlohmann::json& value);

// True when the two maps differ in any path or any signature.
bool sourceChangedDuringCopy(const std::map<std::string, FileSig>& before,
                             const std::map<std::string, FileSig>& after);

}  // namespace orvane
