// Where a scan runs: the startup disk, another volume, a network share, or one folder, with a
// stable key for file names; and the volumes that can be scanned.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace orvane {

namespace scope {
struct Volume {
    std::string path;
    std::string name;
    bool operator==(const Volume&) const = default;
};
struct NetworkShare {
    std::string path;
    std::string name;
    bool operator==(const NetworkShare&) const = default;
};
struct Folder {
    std::string path;
    bool operator==(const Folder&) const = default;
};
struct StartupDisk {
    bool operator==(const StartupDisk&) const = default;
};
}  // namespace scope

struct ScanScope {
    using Case = std::variant<scope::Volume, scope::NetworkShare, scope::Folder, scope::StartupDisk>;
    Case value;

    template <typename T>
        requires std::is_constructible_v<Case, T&&>
    ScanScope(T&& c) : value(std::forward<T>(c)) {}

    std::string_view caseName() const;
    // "startup" for the startup disk; otherwise the path's djb2 hash (times 33 plus each byte,
    // from 5381, wrapping at 64 bits) in lower-case base 36. The same in every process and run.
    std::string key() const;
    std::string label() const;
    // The folder scanned: the path, or the user's home for the startup disk.
    std::string root() const;
    std::string subtitle() const;
    bool isHome() const;
    bool isNetwork() const;
    bool canScanAsAdministrator() const;

    bool operator==(const ScanScope&) const = default;
};

// {"startupDisk":{}}, {"volume":{"path":...,"name":...}}, {"networkShare":{...}}, {"folder":{"path":...}}
nlohmann::ordered_json toJSON(const ScanScope& scope);
// None when the object does not hold exactly one known case, or a payload key is missing.
std::optional<ScanScope> scanScopeFromJSON(const nlohmann::json& value);

// A mounted volume the user may scan.
struct ScannableMount {
    std::string path;
    std::string name;
    bool isNetwork = false;
    std::string fsType;
    bool isReadOnly = false;
    bool operator==(const ScannableMount&) const = default;

    // The browsable volumes, not the startup volume, sorted by name.
    static std::vector<ScannableMount> all();
    // Whether the volume still answers.
    static bool isAlive(const std::string& path);
};

}  // namespace orvane
