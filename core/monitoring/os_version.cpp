#include "core/monitoring/os_version.hpp"

#include <sys/utsname.h>

#include <cstdint>

#ifdef __APPLE__
#include <sys/sysctl.h>
#endif

#include "core/common/text.hpp"

namespace orvane {
namespace {

constexpr std::uint64_t kOSReleaseMaxBytes = 64 * 1024;

std::string unquoted(std::string_view value) {
    if (value.size() >= 2 && value.front() == '\'' && value.back() == '\'')
        return std::string(value.substr(1, value.size() - 2));
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        value = value.substr(1, value.size() - 2);
        std::string text;
        for (std::size_t i = 0; i < value.size(); ++i) {
            if (value[i] == '\\' && i + 1 < value.size()) ++i;
            text.push_back(value[i]);
        }
        return text;
    }
    return std::string(value);
}

}  // namespace

std::optional<std::string> osReleaseValue(std::string_view text, std::string_view key) {
    std::optional<std::string> found;
    for (const auto& line : splitDroppingEmpties(text, '\n')) {
        const std::string_view trimmed = trimSpacesAndTabs(line);
        const auto equals = trimmed.find('=');
        if (trimmed.starts_with('#') || equals == std::string_view::npos || trimmed.substr(0, equals) != key) continue;
        found = unquoted(trimSpacesAndTabs(trimmed.substr(equals + 1)));
    }
    if (!found || found->empty()) return std::nullopt;
    return found;
}

std::string currentOSVersion(const Facts& facts) {
#ifdef __APPLE__
    (void)facts;
    char version[64] = {};
    std::size_t size = sizeof version - 1;
    if (sysctlbyname("kern.osproductversion", version, &size, nullptr, 0) != 0) return {};
    return std::string(version);
#else
    std::string version;
    // /etc/os-release is usually a link to the other, and links are not read through.
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        auto read = facts.read(path, kOSReleaseMaxBytes);
        if (!read.bytes) continue;
        if (auto name = osReleaseValue(*read.bytes, "PRETTY_NAME")) version = *name;
        break;
    }
    struct utsname names{};
    if (::uname(&names) == 0) {
        if (!version.empty()) version += ", ";
        version += std::string(names.sysname) + " " + names.release;
    }
    return version;
#endif
}

}  // namespace orvane
