// The calls that are the same on every POSIX system.
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <vector>

#include "core/platform/platform.hpp"

namespace orvane::platform {

FileFacts factsOf(const struct stat& st);  // defined per system: st_flags exists only on macOS
// lstat of a path within PATH_MAX, with the lock flags; defined per system, since Linux tells
// the locks only through statx and one call there answers both.
std::optional<FileFacts> lstatPath(const std::string& path);

bool FileFacts::isDirectory() const { return S_ISDIR(mode); }
bool FileFacts::isSymlink() const { return S_ISLNK(mode); }
bool FileFacts::isRegularFile() const { return S_ISREG(mode); }

namespace {

#ifdef O_PATH
constexpr int kStepOpen = O_PATH | O_DIRECTORY | O_CLOEXEC;  // needs search right only, as lstat
#else
constexpr int kStepOpen = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
#endif

// lstat of a path too long for one call: each folder opened relative to the last, the final
// name looked at without following it.
std::optional<FileFacts> lstatByComponents(const std::string& path) {
    if (path.empty() || path.front() != '/') return std::nullopt;
    std::vector<std::string> parts;
    for (std::size_t i = 1; i <= path.size();) {
        std::size_t next = path.find('/', i);
        if (next == std::string::npos) next = path.size();
        if (next > i) parts.push_back(path.substr(i, next - i));
        i = next + 1;
    }
    int fd = ::open("/", kStepOpen);
    if (fd < 0) return std::nullopt;
    std::optional<FileFacts> facts;
    for (std::size_t k = 0; k < parts.size(); ++k) {
        if (k + 1 == parts.size()) {
            facts = entryFacts(fd, parts[k]);
            break;
        }
        int next = ::openat(fd, parts[k].c_str(), kStepOpen);
        ::close(fd);
        fd = next;
        if (fd < 0) return std::nullopt;
    }
    if (parts.empty()) facts = fstatFacts(fd);
    if (fd >= 0) ::close(fd);
    return facts;
}

}  // namespace

std::optional<FileFacts> lstatFacts(const std::string& path) {
    if (path.size() >= PATH_MAX) return lstatByComponents(path);
    return lstatPath(path);
}

bool isAdministrator(std::uint32_t uid) {
    std::vector<char> buffer(16384);
    struct passwd record{};
    struct passwd* found = nullptr;
    if (::getpwuid_r(uid, &record, buffer.data(), buffer.size(), &found) != 0 || !found) return false;
#ifdef __APPLE__
    using GroupID = int;  // macOS declares getgrouplist over int
#else
    using GroupID = gid_t;
#endif
    std::vector<GroupID> groups(64);
    for (;;) {
        int count = static_cast<int>(groups.size());
        if (::getgrouplist(found->pw_name, static_cast<GroupID>(found->pw_gid), groups.data(), &count) >= 0) {
            groups.resize(static_cast<std::size_t>(count));
            break;
        }
        if (count <= static_cast<int>(groups.size()) || groups.size() > 65536) return false;
        groups.resize(static_cast<std::size_t>(count));
    }
    for (const char* name : {"sudo", "wheel", "admin"}) {
        std::vector<char> groupBuffer(16384);
        struct group entry{};
        struct group* match = nullptr;
        if (::getgrnam_r(name, &entry, groupBuffer.data(), groupBuffer.size(), &match) != 0 || !match) continue;
        for (GroupID gid : groups)
            if (static_cast<gid_t>(gid) == match->gr_gid) return true;
    }
    return false;
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

std::optional<std::int64_t> freeBytes(const std::string& path) {
    struct statvfs vfs{};
    if (::statvfs(path.c_str(), &vfs) != 0) return std::nullopt;
    std::int64_t bytes = 0;
    if (__builtin_mul_overflow(vfs.f_bavail, vfs.f_frsize, &bytes)) return std::nullopt;
    return bytes;
}

}  // namespace orvane::platform
