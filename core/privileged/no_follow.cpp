#include "core/privileged/no_follow.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/platform/platform.hpp"
#include "core/common/path_rules.hpp"

namespace orvane {

namespace privileged::internal {
void (*beforeRemovingEmptiedFolder)(int parentFD, const char* name) = nullptr;
}

namespace {

constexpr int kDirectoryStep = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kRootOpen = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr int kMaxRemoveDepth = 127;
constexpr int kMaxChownDepth = 128;

// A name a primitive may act on: one real entry of a folder, nothing that climbs or escapes.
bool usableName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

struct Split {
    std::string parent;
    std::string name;
};
Split split(std::string_view path) { return {deletingLastPathComponent(path), lastPathComponent(path)}; }

bool statNoFollow(int dirFD, const char* name, struct stat& st) {
    return ::fstatat(dirFD, name, &st, AT_SYMLINK_NOFOLLOW) == 0;
}

// The parent folder of an entry, opened by the chain and confirmed by the kernel's path; -1 if not.
int openConfirmedParent(const std::string& parent) {
    int fd = openDirectoryChainNoFollow(parent);
    if (fd < 0) return -1;
    if (!fdIsDirectory(fd, parent)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool chownDirFD(int fd, uid_t uid, gid_t gid, int depth);

}  // namespace

int openDirectoryChainNoFollow(std::string_view path) {
    if (!path.starts_with('/') || path.find('\0') != std::string_view::npos) return -1;
    int current = ::open("/", kRootOpen);
    if (current < 0) return -1;
    // The comparison form leaves /tmp, /var and /etc in their real place; on a system without
    // /private that place is the plain one again.
    for (const auto& component : pathComponents(platform::walkablePath(canonicalPathForComparison(path)))) {
        if (component == ".") continue;
        if (component == "..") {
            ::close(current);
            return -1;
        }
        int next = ::openat(current, component.c_str(), kDirectoryStep);
        ::close(current);
        if (next < 0) return -1;
        current = next;
    }
    return current;
}

bool fdIsDirectory(int fd, std::string_view path) {
    auto real = platform::descriptorPath(fd);
    if (!real) return false;
    // Composed and decomposed spellings are one name only where the file system says so; on a
    // disk where names are bytes they are two folders, and one must not pass for the other.
    if (!platform::namesAreNormalized()) return canonicalPathForComparison(*real) == canonicalPathForComparison(path);
    return nfc(canonicalPathForComparison(*real)) == nfc(canonicalPathForComparison(path));
}

bool removeNoFollow(std::string_view path) {
    auto [parent, name] = split(path);
    if (!usableName(name)) return false;
    int fd = openConfirmedParent(parent);
    if (fd < 0) return false;
    struct stat st{};
    bool ok = false;
    if (statNoFollow(fd, name.c_str(), st)) {
        // A link is not a folder: only the link goes.
        ok = S_ISDIR(st.st_mode) ? removeDirNoFollow(fd, name, 0) : ::unlinkat(fd, name.c_str(), 0) == 0;
    }
    ::close(fd);
    return ok;
}

bool removeDirNoFollow(int parentFD, const std::string& name, int depth) {
    if (depth > kMaxRemoveDepth || !usableName(name)) return false;
    int fd = ::openat(parentFD, name.c_str(), kDirectoryStep);
    if (fd < 0) return false;
    DIR* dir = ::fdopendir(fd);
    if (!dir) {
        ::close(fd);
        return false;
    }
    const int dirFD = ::dirfd(dir);
    bool stopped = false;
    while (!stopped) {
        errno = 0;
        const dirent* entry = ::readdir(dir);
        if (!entry) {
            stopped = errno != 0;
            break;
        }
        const std::string_view entryName = entry->d_name;
        if (entryName.empty() || entryName == "." || entryName == "..") continue;
        struct stat st{};
        if (!statNoFollow(dirFD, entry->d_name, st)) {
            stopped = true;
        } else if (S_ISDIR(st.st_mode)) {
            stopped = !removeDirNoFollow(dirFD, std::string(entryName), depth + 1);
        } else {
            stopped = ::unlinkat(dirFD, entry->d_name, 0) != 0;
        }
    }
    ::closedir(dir);
    if (stopped) return false;
    if (privileged::internal::beforeRemovingEmptiedFolder)
        privileged::internal::beforeRemovingEmptiedFolder(parentFD, name.c_str());
    // ENOTEMPTY from an entry that arrived during the walk is a plain failure.
    return ::unlinkat(parentFD, name.c_str(), AT_REMOVEDIR) == 0;
}

bool symlinkNoFollow(std::string_view at, std::string_view to) {
    auto [parent, name] = split(at);
    if (!usableName(name) || to.find('\0') != std::string_view::npos) return false;
    int fd = openConfirmedParent(parent);
    if (fd < 0) return false;
    struct stat st{};
    bool ok = false;
    if (!statNoFollow(fd, name.c_str(), st) && errno == ENOENT)  // never replaces anything
        ok = ::symlinkat(std::string(to).c_str(), fd, name.c_str()) == 0;
    ::close(fd);
    return ok;
}

bool moveIntoPlaceNoFollow(std::string_view staging, std::string_view destination, uid_t uid, gid_t gid) {
    auto [sourceParent, sourceName] = split(staging);
    auto [parent, name] = split(destination);
    if (!usableName(sourceName) || !usableName(name)) return false;
    // The source is reached like the destination: a parent swapped for a link after validation
    // must not redirect a root rename.
    int sourceFD = openConfirmedParent(sourceParent);
    if (sourceFD < 0) return false;
    int fd = openConfirmedParent(parent);
    auto fail = [&] {
        ::close(sourceFD);
        if (fd >= 0) ::close(fd);
        return false;
    };
    if (fd < 0) return fail();
    // Judge the real place, after any redirection that left no link on the way.
    auto real = platform::descriptorPath(fd);
    if (!real || isPersistenceLocation(appendingPathComponent(*real, name), "")) return fail();

    struct stat source{};
    if (!statNoFollow(sourceFD, sourceName.c_str(), source)) return fail();
    auto moveSource = [&] { return ::renameat(sourceFD, sourceName.c_str(), fd, name.c_str()) == 0; };
    struct stat there{};
    if (!statNoFollow(fd, name.c_str(), there)) {
        if (errno != ENOENT || !moveSource()) return fail();
    } else if (!S_ISLNK(there.st_mode)) {
        return fail();  // a real file or folder is never replaced
    } else if (S_ISDIR(source.st_mode)) {
        // rename cannot put a folder over a link, so the link steps aside first.
        const std::string temporary = ".ov-reinstate-" + std::to_string(::getpid()) + name;
        if (::renameat(fd, name.c_str(), fd, temporary.c_str()) != 0) return fail();
        if (!moveSource()) {
            (void)::renameat(fd, temporary.c_str(), fd, name.c_str());
            return fail();
        }
        (void)::unlinkat(fd, temporary.c_str(), 0);
    } else if (!moveSource()) {
        return fail();
    }
    // The item has arrived; an owner change that partly failed does not undo that.
    (void)chownEntryNoFollow(fd, name, uid, gid);
    ::close(fd);
    ::close(sourceFD);
    return true;
}

bool renameLaunchItemNoFollow(std::string_view from, std::string_view to, const std::string_view* folders,
                              std::size_t folderCount) {
    auto [fromParent, oldName] = split(from);
    auto [toParent, newName] = split(to);
    if (fromParent != toParent) return false;
    bool known = false;
    for (std::size_t i = 0; i < folderCount; ++i) known = known || folders[i] == fromParent;
    if (!known || !usableName(oldName) || !usableName(newName)) return false;
    int fd = openConfirmedParent(fromParent);
    if (fd < 0) return false;
    struct stat st{};
    bool ok = statNoFollow(fd, oldName.c_str(), st) && S_ISREG(st.st_mode) &&
              platform::renameNoReplace(fd, oldName, fd, newName) == 0;
    ::close(fd);
    return ok;
}

bool chownEntryNoFollow(int parentFD, const std::string& name, uid_t uid, gid_t gid) {
    if (!usableName(name)) return false;
    struct stat st{};
    if (!statNoFollow(parentFD, name.c_str(), st)) return false;
    // A second hard link may be the same file somewhere the caller has no business in.
    if (!S_ISDIR(st.st_mode) && st.st_nlink > 1) return true;
    const bool changed = ::fchownat(parentFD, name.c_str(), uid, gid, AT_SYMLINK_NOFOLLOW) == 0;
    if (!S_ISDIR(st.st_mode)) return changed;
    int fd = ::openat(parentFD, name.c_str(), kDirectoryStep);
    if (fd < 0) return false;
    return chownDirFD(fd, uid, gid, 1) && changed;
}

namespace {

bool chownDirFD(int fd, uid_t uid, gid_t gid, int depth) {
    DIR* dir = depth >= kMaxChownDepth ? nullptr : ::fdopendir(fd);
    if (!dir) {
        ::close(fd);
        return false;
    }
    const int dirFD = ::dirfd(dir);
    bool failed = false;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view entryName = entry->d_name;
        if (entryName == "." || entryName == "..") continue;
        struct stat st{};
        if (!statNoFollow(dirFD, entry->d_name, st)) {
            failed = true;
            continue;
        }
        const bool isDir = S_ISDIR(st.st_mode);
        if ((isDir || st.st_nlink < 2) &&
            ::fchownat(dirFD, entry->d_name, uid, gid, AT_SYMLINK_NOFOLLOW) != 0)
            failed = true;
        if (isDir) {
            int child = ::openat(dirFD, entry->d_name, kDirectoryStep);
            if (child < 0 || !chownDirFD(child, uid, gid, depth + 1)) failed = true;
        }
    }
    ::closedir(dir);
    return !failed;
}

}  // namespace

int removeTreeNoFollow(int parentFD, const std::string& name, dev_t device) {
    if (!usableName(name)) return EINVAL;
    struct stat st{};
    if (!statNoFollow(parentFD, name.c_str(), st)) return errno;
    if (!S_ISDIR(st.st_mode)) return ::unlinkat(parentFD, name.c_str(), 0) == 0 ? 0 : errno;
    if (st.st_dev != device) return EXDEV;  // another volume mounted inside is never entered

    int fd = ::openat(parentFD, name.c_str(), kDirectoryStep);
    if (fd < 0) return errno;
    DIR* dir = ::fdopendir(fd);
    if (!dir) {
        int error = errno;
        ::close(fd);
        return error;
    }
    // Names first, then action: the walk never reads a folder it is changing.
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view entryName = entry->d_name;
        if (entryName != "." && entryName != "..") names.emplace_back(entryName);
    }
    int firstError = 0;
    for (const auto& entry : names) {
        int error = removeTreeNoFollow(::dirfd(dir), entry, device);
        if (error != 0 && firstError == 0) firstError = error;
    }
    ::closedir(dir);
    if (firstError != 0) return firstError;
    return ::unlinkat(parentFD, name.c_str(), AT_REMOVEDIR) == 0 ? 0 : errno;
}

}  // namespace orvane
