// The calls that are the same on every POSIX system.
#include <fcntl.h>
#include <sys/stat.h>

#include "core/platform/platform.hpp"

namespace orvane::platform {

FileFacts factsOf(const struct stat& st);  // defined per system: st_flags exists only on macOS

bool FileFacts::isDirectory() const { return S_ISDIR(mode); }
bool FileFacts::isSymlink() const { return S_ISLNK(mode); }
bool FileFacts::isRegularFile() const { return S_ISREG(mode); }

std::optional<FileFacts> lstatFacts(const std::string& path) {
    struct stat st{};
    if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
    return factsOf(st);
}

std::optional<FileFacts> statFacts(const std::string& path) {
    struct stat st{};
    if (::stat(path.c_str(), &st) != 0) return std::nullopt;
    return factsOf(st);
}

std::optional<FileFacts> fstatFacts(int fd) {
    struct stat st{};
    if (::fstat(fd, &st) != 0) return std::nullopt;
    return factsOf(st);
}

std::optional<FileFacts> entryFacts(int dirFD, const std::string& name) {
    struct stat st{};
    if (::fstatat(dirFD, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    return factsOf(st);
}

std::string walkablePath(std::string_view canonicalPath) {
    if (hasPrivateFolder()) return std::string(canonicalPath);
    for (std::string_view added : {"/private/tmp", "/private/var", "/private/etc"}) {
        if (canonicalPath == added ||
            (canonicalPath.starts_with(added) && canonicalPath.size() > added.size() &&
             canonicalPath[added.size()] == '/'))
            return std::string(canonicalPath.substr(8));
    }
    return std::string(canonicalPath);
}

}  // namespace orvane::platform
