// macOS: F_GETPATH, renameatx_np(RENAME_EXCL), statfs's own mount fields, st_flags.
// Kept small and plain: it is not compiled on the Linux machines that build and test the tree.
#include <fcntl.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/platform/platform.hpp"

namespace orvane::platform {

FileFacts factsOf(const struct stat& st) {
    FileFacts facts;
    facts.mode = st.st_mode;
    facts.uid = st.st_uid;
    facts.gid = st.st_gid;
    facts.device = static_cast<std::uint64_t>(st.st_dev);
    facts.inode = st.st_ino;
    facts.linkCount = st.st_nlink;
    facts.size = st.st_size;
    facts.allocatedBytes = static_cast<std::int64_t>(st.st_blocks) * 512;
    facts.modifiedSeconds = st.st_mtimespec.tv_sec;
    facts.flags = st.st_flags;
    return facts;
}

std::optional<std::string> descriptorPath(int fd) {
    char buffer[MAXPATHLEN];
    if (::fcntl(fd, F_GETPATH, buffer) != 0) return std::nullopt;
    return std::string(buffer);
}

int renameNoReplace(int fromDirFD, const std::string& from, int toDirFD, const std::string& to) {
    return ::renameatx_np(fromDirFD, from.c_str(), toDirFD, to.c_str(), RENAME_EXCL) == 0 ? 0 : errno;
}

std::optional<MountFacts> mountOf(const std::string& path) {
    struct statfs fs{};
    if (::statfs(path.c_str(), &fs) != 0) return std::nullopt;
    return MountFacts{fs.f_mntonname, fs.f_fstypename, fs.f_mntfromname};
}

bool hasPrivateFolder() { return true; }

}  // namespace orvane::platform
