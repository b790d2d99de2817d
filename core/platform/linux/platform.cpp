// Linux: /proc for descriptor paths and the mount table, renameat2 for an exclusive rename.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "core/platform/mount_table.hpp"
#include "core/platform/platform.hpp"

namespace orvane::platform {

FileFacts factsOf(const struct stat& st) {
    FileFacts facts;
    facts.mode = st.st_mode;
    facts.uid = st.st_uid;
    facts.gid = st.st_gid;
    facts.device = st.st_dev;
    facts.inode = st.st_ino;
    facts.linkCount = st.st_nlink;
    facts.size = st.st_size;
    facts.allocatedBytes = static_cast<std::int64_t>(st.st_blocks) * 512;
    facts.modifiedSeconds = st.st_mtim.tv_sec;
    facts.flags = 0;  // Linux has no st_flags; no file is restricted, undeletable or compressed
    return facts;
}

std::optional<std::string> descriptorPath(int fd) {
    std::string link = "/proc/self/fd/" + std::to_string(fd);
    char buffer[PATH_MAX + 1];
    ssize_t n = ::readlink(link.c_str(), buffer, PATH_MAX);
    if (n <= 0) return std::nullopt;
    std::string path(buffer, static_cast<std::size_t>(n));
    // The kernel marks a removed file's path; such a path names nothing any more.
    if (path.front() != '/' || path.ends_with(" (deleted)")) return std::nullopt;
    return path;
}

int renameNoReplace(int fromDirFD, const std::string& from, int toDirFD, const std::string& to) {
    long rc = ::syscall(SYS_renameat2, fromDirFD, from.c_str(), toDirFD, to.c_str(),
                        RENAME_NOREPLACE);
    return rc == 0 ? 0 : errno;
}

std::optional<MountFacts> mountOf(const std::string& path) {
    struct statfs fs{};
    if (::statfs(path.c_str(), &fs) != 0) return std::nullopt;
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                         &std::free);
    if (!resolved) return std::nullopt;
    std::ifstream in("/proc/self/mountinfo");
    std::stringstream text;
    text << in.rdbuf();
    auto entry = mountContaining(parseMountInfo(text.str()), resolved.get());
    if (!entry) return std::nullopt;
    return MountFacts{entry->mountPoint, entry->fileSystemType, entry->source};
}

bool hasPrivateFolder() {
    struct stat st{};
    return ::lstat("/private", &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace orvane::platform
