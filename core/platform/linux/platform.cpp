// Linux: /proc for descriptor paths and the mount table, renameat2 for an exclusive rename.
#include <fcntl.h>
#include <spawn.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/socket.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "core/platform/host_figures.hpp"
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
    facts.modifiedNanoseconds = st.st_mtim.tv_nsec;
    facts.accessedSeconds = st.st_atim.tv_sec;
    facts.flags = 0;  // Linux has no st_flags; no file is restricted, undeletable or compressed
    return facts;
}

// statx tells the attributes without opening the file, so a link or a FIFO is asked as safely as
// lstat asks it. A path statx cannot reach (longer than PATH_MAX) shows no lock.
std::optional<FileFacts> lstatPath(const std::string& path) {
    struct statx sx{};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &sx) != 0) return std::nullopt;
    FileFacts facts;
    facts.mode = sx.stx_mode;
    facts.uid = sx.stx_uid;
    facts.gid = sx.stx_gid;
    facts.device = makedev(sx.stx_dev_major, sx.stx_dev_minor);  // as stat gives st_dev
    facts.inode = sx.stx_ino;
    facts.linkCount = sx.stx_nlink;
    facts.size = static_cast<std::int64_t>(sx.stx_size);
    facts.allocatedBytes = static_cast<std::int64_t>(sx.stx_blocks) * 512;
    facts.modifiedSeconds = sx.stx_mtime.tv_sec;
    facts.modifiedNanoseconds = sx.stx_mtime.tv_nsec;
    facts.accessedSeconds = sx.stx_atime.tv_sec;
    const auto known = sx.stx_attributes_mask & sx.stx_attributes;
    if (known & STATX_ATTR_IMMUTABLE) facts.flags |= kFlagSystemImmutable;
    if (known & STATX_ATTR_APPEND) facts.flags |= kFlagSystemAppend;
    return facts;
}

std::optional<std::string> extendedAttribute(const std::string& path, const std::string& name, std::size_t maxBytes) {
    const std::string linuxName = "user." + name;
    const ssize_t size = ::getxattr(path.c_str(), linuxName.c_str(), nullptr, 0);
    if (size < 1 || static_cast<std::size_t>(size) > maxBytes) return std::nullopt;
    std::string value(static_cast<std::size_t>(size), '\0');
    // A value that grew since its size was asked is refused (ERANGE) rather than cut.
    const ssize_t read = ::getxattr(path.c_str(), linuxName.c_str(), value.data(), value.size());
    if (read < 1) return std::nullopt;
    value.resize(static_cast<std::size_t>(read));
    return value;
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

bool closeOtherDescriptorsInChild(posix_spawn_file_actions_t* actions, posix_spawnattr_t*) {
    return posix_spawn_file_actions_addclosefrom_np(actions, 3) == 0;
}

void enlargePipe(int fd) { (void)::fcntl(fd, F_SETPIPE_SZ, 1 << 20); }

namespace {

#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77
#endif

// Whether the process behind a pidfd still runs: once it has ended its pid may be reused, and
// whatever was read under that pid belongs to someone else.
bool stillRunning(int pidfd) {
    return ::syscall(SYS_pidfd_send_signal, pidfd, 0, nullptr, 0) == 0;
}

}  // namespace

std::optional<SocketPeer> socketPeer(int socketFD) {
    struct ucred credentials{};
    socklen_t length = sizeof credentials;
    if (::getsockopt(socketFD, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 || credentials.pid <= 0)
        return std::nullopt;
    // The kernel's handle on the very process that connected (kernels from 6.5); older kernels
    // get one by pid at once, which leaves only the instant between connect and this call.
    int pidfd = -1;
    length = sizeof pidfd;
    if (::getsockopt(socketFD, SOL_SOCKET, SO_PEERPIDFD, &pidfd, &length) != 0)
        pidfd = static_cast<int>(::syscall(SYS_pidfd_open, credentials.pid, 0));
    if (pidfd < 0) return std::nullopt;

    std::optional<SocketPeer> peer;
    const std::string proc = "/proc/" + std::to_string(credentials.pid);
    int procFD = ::open(proc.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (procFD >= 0) {
        struct stat exe{};
        char target[PATH_MAX + 1];
        ssize_t n = ::readlinkat(procFD, "exe", target, PATH_MAX);
        if (n > 0 && ::fstatat(procFD, "exe", &exe, 0) == 0 && stillRunning(pidfd)) {
            peer = SocketPeer{credentials.uid, credentials.pid, static_cast<std::uint64_t>(exe.st_dev),
                              static_cast<std::uint64_t>(exe.st_ino), std::string(target, static_cast<std::size_t>(n))};
        }
        ::close(procFD);
    }
    ::close(pidfd);
    return peer;
}

std::optional<std::uint32_t> socketPeerUID(int socketFD) {
    struct ucred credentials{};
    socklen_t length = sizeof credentials;
    if (::getsockopt(socketFD, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) return std::nullopt;
    return credentials.uid;
}

std::vector<BrowsableVolume> browsableVolumes() {
    std::ifstream in("/proc/self/mountinfo");
    std::stringstream text;
    text << in.rdbuf();
    return browsableVolumesIn(parseMountInfo(text.str()));
}

bool hasPrivateFolder() {
    struct stat st{};
    return ::lstat("/private", &st) == 0 && S_ISDIR(st.st_mode);
}

bool namesAreNormalized() { return false; }

std::vector<std::string> extraToolFolders(std::string_view home) {
    std::vector<std::string> folders = {"/usr/bin", "/usr/local/bin", "/home/linuxbrew/.linuxbrew/bin", "/snap/bin"};
    if (!home.empty() && home != "/") folders.push_back(std::string(home) + "/.local/bin");
    return folders;
}

std::string userTempRoot() {
    std::string dir = "/tmp";
    if (const char* env = std::getenv("TMPDIR"); env && env[0] == '/') dir = env;
    while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    return dir;
}

std::optional<std::string> processPath(std::int32_t pid) {
    if (pid <= 0) return std::nullopt;
    char buffer[4096] = {};
    const std::string link = "/proc/" + std::to_string(pid) + "/exe";
    const ssize_t length = ::readlink(link.c_str(), buffer, sizeof buffer - 1);
    if (length < 1) return std::nullopt;
    return std::string(buffer, static_cast<std::size_t>(length));
}

bool isAppleSilicon() { return false; }

namespace {

// FIEMAP over the whole file, a batch of extents at a time. The sync makes delayed allocation
// real first; without it a file just written reports no extent, or one with no address yet.
// `each` sees every extent and returns false to stop. False when the kernel refuses the call.
template <typename Each>
bool forEachExtent(const std::string& path, Each each) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    constexpr std::uint32_t kBatch = 64;
    std::vector<unsigned char> buffer(sizeof(struct fiemap) + kBatch * sizeof(struct fiemap_extent));
    auto* map = reinterpret_cast<struct fiemap*>(buffer.data());
    std::uint64_t next = 0;
    bool told = true;
    for (bool more = true; more;) {
        std::fill(buffer.begin(), buffer.end(), 0);
        map->fm_start = next;
        map->fm_length = FIEMAP_MAX_OFFSET - next;
        map->fm_flags = FIEMAP_FLAG_SYNC;
        map->fm_extent_count = kBatch;
        if (::ioctl(fd, FS_IOC_FIEMAP, map) != 0) { told = false; break; }
        if (map->fm_mapped_extents == 0) break;
        for (std::uint32_t i = 0; i < map->fm_mapped_extents && more; ++i) {
            const struct fiemap_extent& extent = map->fm_extents[i];
            more = each(extent) && !(extent.fe_flags & FIEMAP_EXTENT_LAST);
            next = extent.fe_logical + extent.fe_length;
        }
    }
    ::close(fd);
    return told;
}

}  // namespace

std::optional<std::int64_t> physicalStart(const std::string& path) {
    std::optional<std::int64_t> start;
    forEachExtent(path, [&](const struct fiemap_extent& extent) {
        // An extent whose place the file system does not tell has no usable address.
        if (!(extent.fe_flags & FIEMAP_EXTENT_UNKNOWN)) start = static_cast<std::int64_t>(extent.fe_physical);
        return false;
    });
    return start;
}

std::optional<std::int64_t> privateSize(const std::string& path) {
    std::int64_t total = 0;
    const bool told = forEachExtent(path, [&](const struct fiemap_extent& extent) {
        if (!(extent.fe_flags & FIEMAP_EXTENT_SHARED)) total += static_cast<std::int64_t>(extent.fe_length);
        return true;
    });
    if (!told) return std::nullopt;
    return total;
}

namespace {

bool cannotShare(int error) { return error == EOPNOTSUPP || error == ENOTTY || error == EINVAL || error == EXDEV; }

}  // namespace

ShareResult shareStorage(const std::string& keeper, const std::string& copy, const std::string& /*working*/) {
    // Read-only is enough for the copy when its owner asks, and leaves its times alone.
    const int from = ::open(keeper.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (from < 0) return {ShareOutcome::failed, errno};
    const int to = ::open(copy.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (to < 0) {
        const int error = errno;
        ::close(from);
        return {ShareOutcome::failed, error};
    }
    ShareResult result{ShareOutcome::shared, 0};
    const auto keeperFacts = fstatFacts(from);
    const auto copyFacts = fstatFacts(to);
    if (!keeperFacts || !copyFacts || !keeperFacts->isRegularFile() || !copyFacts->isRegularFile()) {
        result = {ShareOutcome::failed, EINVAL};
    } else if (keeperFacts->size != copyFacts->size) {
        result = {ShareOutcome::differs, 0};
    } else {
        std::vector<unsigned char> buffer(sizeof(struct file_dedupe_range) + sizeof(struct file_dedupe_range_info));
        auto* range = reinterpret_cast<struct file_dedupe_range*>(buffer.data());
        const auto size = static_cast<std::uint64_t>(keeperFacts->size);
        for (std::uint64_t at = 0; at < size;) {
            std::fill(buffer.begin(), buffer.end(), 0);
            range->src_offset = at;
            range->src_length = size - at;
            range->dest_count = 1;
            range->info[0].dest_fd = to;
            range->info[0].dest_offset = at;
            if (::ioctl(from, FIDEDUPERANGE, range) != 0) {
                const int error = errno;
                result = {cannotShare(error) ? ShareOutcome::unsupported : ShareOutcome::failed, error};
                break;
            }
            const std::int32_t status = range->info[0].status;
            if (status == FILE_DEDUPE_RANGE_DIFFERS) {
                result = {ShareOutcome::differs, 0};
                break;
            }
            if (status < 0) {
                result = {cannotShare(-status) ? ShareOutcome::unsupported : ShareOutcome::failed, -status};
                break;
            }
            if (range->info[0].bytes_deduped == 0) {  // no progress: never loop on it
                result = {ShareOutcome::failed, EIO};
                break;
            }
            at += range->info[0].bytes_deduped;
        }
    }
    ::close(to);
    ::close(from);
    return result;
}

bool isRemovableDevice(const std::string& device) {
    if (!device.starts_with("/dev/")) return false;
    std::error_code error;
    // /sys/class/block/NAME is a link into the device tree; a partition's folder sits inside its
    // disk's, and only the disk says whether it is removable.
    const std::filesystem::path node =
        std::filesystem::canonical("/sys/class/block/" + device.substr(device.rfind('/') + 1), error);
    if (error) return false;
    for (const auto& folder : {node, node.parent_path()}) {
        std::ifstream in(folder / "removable");
        char flag = 0;
        if (in >> flag) return flag == '1';
    }
    return false;
}

void syncFileSystem(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        ::sync();
        return;
    }
    if (::syncfs(fd) != 0) ::sync();
    ::close(fd);
}

// The "cpu" line comes first; the rest of /proc/stat (one line per interrupt source) is not needed.
constexpr std::size_t kProcStatHead = 4096;
constexpr std::size_t kProcMeminfoBytes = 16384;

std::optional<CPUTicks> cpuLoadTicks() {
    const auto text = readKernelFile("/proc/stat", kProcStatHead);
    return text ? parseCPUTicks(*text) : std::nullopt;
}

HostMemory hostMemory() {
    const auto text = readKernelFile("/proc/meminfo", kProcMeminfoBytes);
    return text ? parseMemInfo(*text) : HostMemory{};
}

std::uint64_t physicalMemoryBytes() {
    const long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0) return 0;
    return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize);
}

std::optional<std::int32_t> memoryPressureLevel() {
    // Absent on kernels built without pressure stall information: the level is then unknown.
    const auto text = readKernelFile("/proc/pressure/memory", 4096);
    return text ? parseMemoryPressureLevel(*text) : std::nullopt;
}

std::optional<BatteryReading> battery() {
    // Listing the folder and asking every entry its type costs more than the rest of a health
    // sample, and which entries are batteries changes only when one is plugged in; so the names
    // are kept for a minute, and only the charge is read each time.
    static constexpr const char* kFolder = "/sys/class/power_supply";
    static std::mutex lock;
    static std::vector<std::string> names;
    static std::optional<std::chrono::steady_clock::time_point> listed;
    std::vector<std::string> batteries;
    {
        std::lock_guard guard(lock);
        const auto now = std::chrono::steady_clock::now();
        if (!listed || now - *listed > std::chrono::minutes(1)) {
            names = batteryNamesIn(kFolder);
            listed = now;
        }
        batteries = names;
    }
    return batteryReadingIn(kFolder, batteries);
}

}  // namespace orvane::platform
