#include "core/common/path.hpp"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace orvane {
namespace {

std::string passwdHome(const char* user) {
    // getpw*_r with a stack buffer: the plain forms share one static record between threads.
    struct passwd record{};
    struct passwd* found = nullptr;
    std::vector<char> buffer(16384);
    int rc = user ? getpwnam_r(user, &record, buffer.data(), buffer.size(), &found)
                  : getpwuid_r(getuid(), &record, buffer.data(), buffer.size(), &found);
    if (rc != 0 || found == nullptr || found->pw_dir == nullptr) return {};
    return found->pw_dir;
}

std::string expandTilde(std::string_view path) {
    if (path.empty() || path.front() != '~') return std::string(path);
    auto slash = path.find('/');
    std::string_view user = path.substr(1, slash == std::string_view::npos ? path.npos : slash - 1);
    std::string dir = user.empty() ? home() : passwdHome(std::string(user).c_str());
    if (dir.empty()) return std::string(path);
    if (slash == std::string_view::npos) return dir;
    return dir + std::string(path.substr(slash));
}

}  // namespace

std::string home(std::string_view component) {
    std::string dir;
    if (const char* env = std::getenv("HOME"); env && env[0] == '/') dir = env;
    if (dir.empty()) dir = passwdHome(nullptr);
    if (dir.empty()) dir.push_back('/');
    return component.empty() ? standardizePath(dir, [](const std::string&) { return false; })
                             : appendingPathComponent(dir, component);
}

std::optional<std::string> homeOfUser(std::uint32_t uid) {
    struct passwd record{};
    struct passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (getpwuid_r(static_cast<uid_t>(uid), &record, buffer.data(), buffer.size(), &found) != 0 || !found ||
        !found->pw_dir)
        return std::nullopt;
    return std::string(found->pw_dir);
}

bool fileExists(const std::string& path) {
    struct stat st{};
    return ::stat(path.c_str(), &st) == 0;
}

std::vector<std::string> pathComponents(std::string_view path) {
    std::vector<std::string> parts;
    std::size_t i = 0;
    while (i < path.size()) {
        auto next = path.find('/', i);
        if (next == std::string_view::npos) next = path.size();
        if (next > i) parts.emplace_back(path.substr(i, next - i));
        i = next + 1;
    }
    return parts;
}

std::string standardizePath(std::string_view input,
                            const std::function<bool(const std::string&)>& exists) {
    if (input.empty()) return {};
    std::string expanded = expandTilde(input);
    const bool absolute = !expanded.empty() && expanded.front() == '/';

    std::vector<std::string> kept;
    for (auto& part : pathComponents(expanded)) {
        if (part == ".") continue;
        if (part == ".." && absolute) {
            if (!kept.empty()) kept.pop_back();
            continue;
        }
        kept.push_back(std::move(part));
    }

    std::string out = absolute ? "/" : "";
    for (std::size_t i = 0; i < kept.size(); ++i) {
        if (i > 0) out += '/';
        out += kept[i];
    }
    if (out.empty()) return absolute ? "/" : ".";

    constexpr std::string_view privatePrefix = "/private/";
    if (out.starts_with(privatePrefix)) {
        std::string shorter = out.substr(privatePrefix.size() - 1);
        if (exists(shorter)) out = std::move(shorter);
    }
    return out;
}

std::string deletingLastPathComponent(std::string_view path) {
    std::string_view p = path;
    while (p.size() > 1 && p.back() == '/') p.remove_suffix(1);
    auto slash = p.rfind('/');
    if (slash == std::string_view::npos) return {};
    if (slash == 0) return "/";
    p = p.substr(0, slash);
    while (p.size() > 1 && p.back() == '/') p.remove_suffix(1);
    return std::string(p);
}

std::string appendingPathComponent(std::string_view base, std::string_view component) {
    std::string joined;
    if (base.empty()) {
        joined = component;
    } else {
        joined.reserve(base.size() + component.size() + 1);
        joined = base;
        joined += '/';
        joined += component;
    }
    std::string out;
    out.reserve(joined.size());
    for (char c : joined) {
        if (c == '/' && !out.empty() && out.back() == '/') continue;
        out += c;
    }
    while (out.size() > 1 && out.back() == '/') out.pop_back();
    return out;
}

std::string lastPathComponent(std::string_view path) {
    std::string_view p = path;
    while (p.size() > 1 && p.back() == '/') p.remove_suffix(1);
    if (p == "/") return "/";
    auto slash = p.rfind('/');
    return std::string(slash == std::string_view::npos ? p : p.substr(slash + 1));
}

std::string pathExtension(std::string_view path) {
    std::string name = lastPathComponent(path);
    auto dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) return {};
    return name.substr(dot + 1);
}

std::string deletingPathExtension(std::string_view path) {
    const std::string extension = pathExtension(path);
    return std::string(extension.empty() ? path : path.substr(0, path.size() - extension.size() - 1));
}

bool isAtOrBelow(std::string_view path, std::string_view dir) {
    if (path == dir) return true;
    if (dir == "/") return path.starts_with('/');
    return path.size() > dir.size() && path.starts_with(dir) && path[dir.size()] == '/';
}

}  // namespace orvane
