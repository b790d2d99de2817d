#include "core/update/self_update.hpp"

#include <sys/stat.h>

#include <charconv>
#include <limits>

#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {

namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v'; }
bool isTeamCharacter(char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

// "(XXXXXXXXXX)" starting at `at`.
bool teamAt(std::string_view line, std::size_t at) {
    if (at + 12 > line.size() || line[at] != '(' || line[at + 11] != ')') return false;
    for (std::size_t i = at + 1; i <= at + 10; ++i)
        if (!isTeamCharacter(line[i])) return false;
    return true;
}

// A numbered certificate line of a Developer ID signer whose line ends in a bracketed team:
// "  2. Developer ID Installer: Name (TEAM123456)". Matched by hand, so that no line of a
// tool's output can cost more than one pass over it.
bool isDeveloperIDLine(std::string_view line) {
    std::size_t i = 0;
    while (i < line.size() && isSpace(line[i])) ++i;
    const std::size_t digits = i;
    while (i < line.size() && line[i] >= '0' && line[i] <= '9') ++i;
    if (i == digits || i >= line.size() || line[i] != '.') return false;
    const std::size_t dot = ++i;
    while (i < line.size() && isSpace(line[i])) ++i;
    if (i == dot) return false;
    const std::string_view rest = line.substr(i);
    if (!rest.starts_with("Developer ID Installer:") && !rest.starts_with("Developer ID Application:")) return false;
    std::size_t end = line.size();
    while (end > i && isSpace(line[end - 1])) --end;
    const std::size_t colon = i + rest.find(':');
    return end >= colon + 1 + 12 && teamAt(line, end - 12);
}

}  // namespace

EnclosureKind enclosureKind(std::string_view name) {
    const std::string lower = lowercased(name);
    if (lower.ends_with(".zip")) return EnclosureKind::zip;
    if (lower.ends_with(".dmg")) return EnclosureKind::dmg;
    if (lower.ends_with(".tar.gz") || lower.ends_with(".tgz")) return EnclosureKind::tar;
    if (lower.ends_with(".pkg")) return EnclosureKind::pkg;
    return EnclosureKind::unknown;
}

std::optional<std::string> teamIDFromPkgSignature(std::string_view text) {
    for (const auto& line : splitKeepingEmpties(text, '\n')) {
        if (!isDeveloperIDLine(line)) continue;
        for (std::size_t at = line.size(); at-- > 0;)
            if (teamAt(line, at)) return line.substr(at + 1, 10);
    }
    return std::nullopt;
}

bool selfUpdateSwapPermitted(const std::optional<std::string>& installedBundleID,
                             const std::optional<std::string>& candidateBundleID,
                             const std::optional<std::string>& installedTeamID,
                             const std::optional<std::string>& candidateTeamID) {
    for (const auto* value : {&installedBundleID, &candidateBundleID, &installedTeamID, &candidateTeamID})
        if (!*value || (*value)->empty()) return false;
    return *installedBundleID == *candidateBundleID && *installedTeamID == *candidateTeamID;
}

bool isTranslocatedBundlePath(std::string_view path) { return path.find("/AppTranslocation/") != std::string_view::npos; }

bool onSameFilesystem(const std::string& a, const std::string& b) {
    struct stat first{};
    struct stat second{};
    if (::stat(a.c_str(), &first) != 0 || ::stat(b.c_str(), &second) != 0) return false;
    return first.st_dev == second.st_dev;
}

std::optional<SelfUpdateHandoff> parseSelfUpdateHandoff(const std::vector<std::string>& arguments) {
    auto valueAfter = [&](std::string_view flag) -> const std::string* {
        for (std::size_t i = 0; i < arguments.size(); ++i)
            if (arguments[i] == flag) return i + 1 < arguments.size() ? &arguments[i + 1] : nullptr;
        return nullptr;
    };
    bool finishing = false;
    for (const auto& argument : arguments) finishing = finishing || argument == "--finish-update";
    const std::string* old = valueAfter("--old");
    const std::string* pidText = valueAfter("--pid");
    if (!finishing || !old || !pidText) return std::nullopt;
    if (!old->starts_with('/') || !old->ends_with(".app")) return std::nullopt;
    std::string_view digits = *pidText;
    if (!digits.empty() && (digits.front() == '+' || digits.front() == '-')) digits.remove_prefix(1);
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
    std::int32_t pid = 0;
    const char* first = pidText->data() + (pidText->front() == '+' ? 1 : 0);
    const auto [end, error] = std::from_chars(first, pidText->data() + pidText->size(), pid);
    if (error != std::errc() || end != pidText->data() + pidText->size() || pid < 1) return std::nullopt;
    return SelfUpdateHandoff{*old, pid};
}

std::string selfUpdateDestination(const std::string& oldBundlePath, const std::function<bool(const std::string&)>& exists) {
    if (lastPathComponent(oldBundlePath) != "Orvane.app") return oldBundlePath;
    const std::string candidate = appendingPathComponent(deletingLastPathComponent(oldBundlePath), "Velloran Orvane.app");
    return exists(candidate) ? oldBundlePath : candidate;
}

}  // namespace orvane
