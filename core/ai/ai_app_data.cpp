#include "core/ai/ai_app_data.hpp"

#include <algorithm>
#include <array>
#include <cctype>

#include "core/common/json_files.hpp"
#include "core/common/text.hpp"
#include "core/common/variant_visit.hpp"

namespace orvane {

namespace {

constexpr std::string_view kVolumes = "/Volumes/";

// Folders of the home that are never offered, the home itself first.
constexpr std::array<std::string_view, 21> kProtectedInHome = {
    "",
    "/Desktop",
    "/Documents",
    "/Downloads",
    "/Library",
    "/Movies",
    "/Music",
    "/Pictures",
    "/Public",
    "/Applications",
    "/.Trash",
    "/Library/Application Support",
    "/Library/Containers",
    "/Library/Group Containers",
    "/Library/Caches",
    "/.cache",
    "/.config",
    "/.local",
    "/.ssh",
    "/.aws",
    "/.gnupg",
};

bool equalIgnoringASCIICase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

bool usableHome(std::string_view home) { return home.size() >= 2 && home.front() == '/'; }

bool isUnderHome(std::string_view path, std::string_view home) {
    return usableHome(home) && path.size() > home.size() + 1 && path.substr(0, home.size()) == home &&
           path[home.size()] == '/';
}

// The checks of a path's form: absolute, no NUL, under 1,024 bytes, no "." or ".." component;
// trailing "/" removed. None when it fails one.
std::optional<std::string> wellFormed(std::string path) {
    if (path.empty() || path.front() != '/') return std::nullopt;
    if (path.find('\0') != std::string::npos) return std::nullopt;
    if (path.size() >= 1024) return std::nullopt;
    for (const auto& part : splitDroppingEmpties(path, '/'))
        if (part == "." || part == "..") return std::nullopt;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// Where a well-formed path stands: none when out of bounds.
std::optional<AIDataTarget> place(const std::string& path, std::string_view home,
                                  const std::set<std::string>& mountedVolumes) {
    if (isProtectedPersonalOrSystemFolder(path, home)) return std::nullopt;
    if (isUnderHome(path, home)) return AIDataTarget::allowed(path);
    if (path.starts_with(kVolumes)) {
        auto parts = splitDroppingEmpties(std::string_view(path).substr(kVolumes.size()), '/');
        if (parts.empty()) return std::nullopt;
        if (mountedVolumes.contains(parts.front())) return AIDataTarget::allowed(path);
        return AIDataTarget::externalNotConnected(path);
    }
    return std::nullopt;
}

}  // namespace

bool isProtectedPersonalOrSystemFolder(std::string_view path, std::string_view home) {
    if (path.size() >= 2 && path.back() == '/') path.remove_suffix(1);
    if (usableHome(home)) {
        if (path == home) return true;
        if (isUnderHome(path, home)) {
            auto rest = path.substr(home.size());
            return std::any_of(kProtectedInHome.begin(), kProtectedInHome.end(),
                               [&](std::string_view folder) { return equalIgnoringASCIICase(rest, folder); });
        }
    }
    if (!path.starts_with(kVolumes)) return true;
    return splitDroppingEmpties(path.substr(kVolumes.size()), '/').size() < 2;
}

std::optional<AIDataTarget> judgeAIDataTarget(std::string_view value, std::string_view home,
                                              const std::set<std::string>& mountedVolumes,
                                              const std::function<std::optional<std::string>(const std::string&)>& resolve) {
    std::string path = trimWhitespace(value);
    if (path.starts_with("~/")) path = std::string(home) + path.substr(1);
    auto formed = wellFormed(std::move(path));
    if (!formed) return std::nullopt;
    auto placed = place(*formed, home, mountedVolumes);
    if (!placed || placed->kind == AIDataTarget::Kind::externalNotConnected) return placed;

    auto resolved = resolve ? resolve(*formed) : std::nullopt;
    if (!resolved) return placed;
    // Where a link leads is judged as strictly as the value itself; anything but allowed refuses.
    auto resolvedFormed = wellFormed(*resolved);
    if (!resolvedFormed) return std::nullopt;
    auto target = place(*resolvedFormed, home, mountedVolumes);
    if (!target || target->kind != AIDataTarget::Kind::allowed) return std::nullopt;
    return target;
}

std::optional<std::string> readAIDataPointer(const AIDataPointer::Format& format, std::string_view contents) {
    return std::visit(
        Overloaded{
            [&](const AIDataPointer::JSONKey& jsonKey) -> std::optional<std::string> {
                auto parsed = parseJSONStrictly(contents, 64);
                if (!parsed.value || !parsed.value->is_object()) return std::nullopt;
                auto found = parsed.value->find(jsonKey.key);
                if (found == parsed.value->end() || !found->is_string()) return std::nullopt;
                auto text = found->get<std::string>();
                if (text.empty()) return std::nullopt;
                return text;
            },
            [&](const AIDataPointer::PlainPath&) -> std::optional<std::string> {
                if (contents.size() > 4096 || !isValidUTF8(contents)) return std::nullopt;
                auto text = trimWhitespace(contents);
                if (text.empty() || text.find('\n') != std::string::npos) return std::nullopt;
                return text;
            },
        },
        format);
}

}  // namespace orvane
