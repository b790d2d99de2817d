#include "core/update/version_order.hpp"

#include <charconv>
#include <cstdint>
#include <vector>

#include "core/common/text.hpp"

namespace orvane {

namespace {

// A part too large for 64 bits or not a decimal number counts 0, as any other unreadable part.
std::vector<std::int64_t> versionParts(std::string_view version) {
    std::vector<std::int64_t> parts;
    for (const auto& piece : splitKeepingEmpties(version, '.')) {
        if (piece.empty()) continue;
        std::int64_t value = 0;
        const char* first = piece.data();
        if (*first == '+') ++first;
        const auto [end, error] = std::from_chars(first, piece.data() + piece.size(), value);
        parts.push_back(error == std::errc() && end == piece.data() + piece.size() && first != end ? value : 0);
    }
    return parts;
}

}  // namespace

bool isNewerVersion(std::string_view a, std::string_view b) {
    const auto left = versionParts(a);
    const auto right = versionParts(b);
    for (std::size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
        const std::int64_t l = i < left.size() ? left[i] : 0;
        const std::int64_t r = i < right.size() ? right[i] : 0;
        if (l != r) return l > r;
    }
    return false;
}

std::string versionCore(std::string_view version) {
    std::size_t end = 0;
    while (end < version.size() &&
           ((version[end] >= '0' && version[end] <= '9') || (version[end] == '.' && end > 0)))
        ++end;
    return std::string(end == 0 ? version : version.substr(0, end));
}

bool isDowngrade(std::string_view installed, std::string_view candidate) {
    return isNewerVersion(versionCore(installed), versionCore(candidate));
}

}  // namespace orvane
