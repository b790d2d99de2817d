#include "core/common/variant_visit.hpp"
#include "core/scan/scan_scope.hpp"

#include <sys/statvfs.h>

#include <algorithm>

#include "core/common/path.hpp"
#include "core/platform/platform.hpp"

namespace orvane {
namespace {

std::string base36(std::uint64_t value) {
    static constexpr char digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::string out;
    do {
        out.insert(out.begin(), digits[value % 36]);
        value /= 36;
    } while (value > 0);
    return out;
}

std::string replaceAll(std::string text, const std::string& from, std::string_view to) {
    if (from.empty()) return text;
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

}  // namespace

std::string_view ScanScope::caseName() const {
    static constexpr std::string_view names[] = {"volume", "networkShare", "folder", "startupDisk"};
    return names[value.index()];
}

std::string ScanScope::key() const {
    if (std::holds_alternative<scope::StartupDisk>(value)) return "startup";
    std::uint64_t hash = 5381;
    for (unsigned char byte : root()) hash = hash * 33 + byte;
    return base36(hash);
}

std::string ScanScope::label() const {
    return std::visit(Overloaded{[](const scope::Volume& v) { return v.name; },
                                 [](const scope::NetworkShare& n) { return n.name; },
                                 [](const scope::Folder& f) { return lastPathComponent(f.path); },
                                 [](const scope::StartupDisk&) { return std::string("Startup disk"); }},
                      value);
}

std::string ScanScope::root() const {
    return std::visit(Overloaded{[](const scope::Volume& v) { return v.path; },
                                 [](const scope::NetworkShare& n) { return n.path; },
                                 [](const scope::Folder& f) { return f.path; },
                                 [](const scope::StartupDisk&) { return home(); }},
                      value);
}

std::string ScanScope::subtitle() const {
    return std::visit(
        Overloaded{
            [](const scope::Volume&) { return std::string("Big, old, duplicated and compressible files on this drive"); },
            [](const scope::NetworkShare&) {
                return std::string(
                    "A share on another machine — scanning reads over the network, so expect it to take longer");
            },
            [](const scope::Folder& f) { return replaceAll(f.path, home(), "~"); },
            [](const scope::StartupDisk&) { return std::string("Everything this app knows how to find"); }},
        value);
}

bool ScanScope::isHome() const { return std::holds_alternative<scope::StartupDisk>(value); }
bool ScanScope::isNetwork() const { return std::holds_alternative<scope::NetworkShare>(value); }
bool ScanScope::canScanAsAdministrator() const {
    return std::holds_alternative<scope::Volume>(value) || std::holds_alternative<scope::Folder>(value);
}

nlohmann::ordered_json toJSON(const ScanScope& scope) {
    nlohmann::ordered_json payload = nlohmann::ordered_json::object();
    std::visit(Overloaded{[&](const scope::Volume& v) {
                              payload["path"] = v.path;
                              payload["name"] = v.name;
                          },
                          [&](const scope::NetworkShare& n) {
                              payload["path"] = n.path;
                              payload["name"] = n.name;
                          },
                          [&](const scope::Folder& f) { payload["path"] = f.path; },
                          [](const scope::StartupDisk&) {}},
               scope.value);
    nlohmann::ordered_json out = nlohmann::ordered_json::object();
    out[std::string(scope.caseName())] = std::move(payload);
    return out;
}

std::optional<ScanScope> scanScopeFromJSON(const nlohmann::json& value) {
    if (!value.is_object()) return std::nullopt;
    static constexpr std::string_view known[] = {"volume", "networkShare", "folder", "startupDisk"};
    const nlohmann::json* payload = nullptr;
    std::string_view name;
    int found = 0;
    for (auto it = value.begin(); it != value.end(); ++it)
        for (auto k : known)
            if (it.key() == k) {
                ++found;
                name = k;
                payload = &it.value();
            }
    if (found != 1 || !payload->is_object()) return std::nullopt;
    auto text = [&](const char* key) -> std::optional<std::string> {
        auto it = payload->find(key);
        if (it == payload->end() || !it->is_string()) return std::nullopt;
        return it->get<std::string>();
    };
    if (name == "startupDisk") return ScanScope(scope::StartupDisk{});
    auto path = text("path");
    if (!path) return std::nullopt;
    if (name == "folder") return ScanScope(scope::Folder{*path});
    auto label = text("name");
    if (!label) return std::nullopt;
    if (name == "volume") return ScanScope(scope::Volume{*path, *label});
    return ScanScope(scope::NetworkShare{*path, *label});
}

std::vector<ScannableMount> ScannableMount::all() {
    std::vector<ScannableMount> mounts;
    for (const auto& volume : platform::browsableVolumes()) {
        if (volume.path == "/" || volume.path.starts_with("/System") || volume.name == "Recovery") continue;
        auto facts = platform::mountOf(volume.path);
        if (!facts) continue;
        struct statvfs vfs{};
        const bool readOnly = ::statvfs(volume.path.c_str(), &vfs) == 0 && (vfs.f_flag & ST_RDONLY) != 0;
        mounts.push_back({volume.path, volume.name.empty() ? lastPathComponent(volume.path) : volume.name,
                          !volume.isLocal, facts->fileSystemType, readOnly});
    }
    std::stable_sort(mounts.begin(), mounts.end(),
                     [](const ScannableMount& a, const ScannableMount& b) { return a.name < b.name; });
    return mounts;
}

bool ScannableMount::isAlive(const std::string& path) {
    struct statvfs vfs{};
    return ::statvfs(path.c_str(), &vfs) == 0;
}

}  // namespace orvane
