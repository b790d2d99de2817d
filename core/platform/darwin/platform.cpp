// macOS: F_GETPATH, renameatx_np(RENAME_EXCL), statfs's own mount fields, st_flags.
// Kept small and plain: it is not compiled on the Linux machines that build and test the tree.
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <libproc.h>
#include <mach/mach.h>
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/ps/IOPSKeys.h>
#include <IOKit/ps/IOPowerSources.h>
#include <copyfile.h>
#include <sys/attr.h>
#include <sys/clonefile.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/ucred.h>
#include <sys/un.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <sys/sysctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

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
    facts.modifiedNanoseconds = st.st_mtimespec.tv_nsec;
    facts.accessedSeconds = st.st_atimespec.tv_sec;
    facts.flags = st.st_flags;
    return facts;
}

std::optional<FileFacts> lstatPath(const std::string& path) {
    struct stat st{};
    if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
    return factsOf(st);  // st_flags holds the locks
}

std::optional<std::string> extendedAttribute(const std::string& path, const std::string& name, std::size_t maxBytes) {
    const ssize_t size = ::getxattr(path.c_str(), name.c_str(), nullptr, 0, 0, 0);
    if (size < 1 || static_cast<std::size_t>(size) > maxBytes) return std::nullopt;
    std::string value(static_cast<std::size_t>(size), '\0');
    const ssize_t read = ::getxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0, 0);
    if (read < 1) return std::nullopt;
    value.resize(static_cast<std::size_t>(read));
    return value;
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

bool closeOtherDescriptorsInChild(posix_spawn_file_actions_t*, posix_spawnattr_t* attributes) {
    short flags = 0;
    if (posix_spawnattr_getflags(attributes, &flags) != 0) return false;
    return posix_spawnattr_setflags(attributes, static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT)) == 0;
}

void enlargePipe(int) {}  // macOS grows a pipe's buffer by itself as a writer fills it

std::optional<SocketPeer> socketPeer(int socketFD) {
    struct xucred credentials{};
    socklen_t length = sizeof credentials;
    if (::getsockopt(socketFD, SOL_LOCAL, LOCAL_PEERCRED, &credentials, &length) != 0) return std::nullopt;
    pid_t pid = 0;
    length = sizeof pid;
    if (::getsockopt(socketFD, SOL_LOCAL, LOCAL_PEERPID, &pid, &length) != 0 || pid <= 0) return std::nullopt;
    char path[PROC_PIDPATHINFO_MAXSIZE];
    if (::proc_pidpath(pid, path, sizeof path) <= 0) return std::nullopt;
    struct stat exe{};
    if (::stat(path, &exe) != 0) return std::nullopt;
    return SocketPeer{credentials.cr_uid, pid, static_cast<std::uint64_t>(exe.st_dev),
                      static_cast<std::uint64_t>(exe.st_ino), path};
}

std::optional<std::uint32_t> socketPeerUID(int socketFD) {
    struct xucred credentials{};
    socklen_t length = sizeof credentials;
    if (::getsockopt(socketFD, SOL_LOCAL, LOCAL_PEERCRED, &credentials, &length) != 0) return std::nullopt;
    return credentials.cr_uid;
}

std::vector<BrowsableVolume> browsableVolumes() {
    struct statfs* mounts = nullptr;
    int count = ::getmntinfo(&mounts, MNT_NOWAIT);
    std::vector<BrowsableVolume> out;
    for (int i = 0; i < count; ++i) {
        if (mounts[i].f_flags & MNT_DONTBROWSE) continue;  // hidden from the Finder
        std::string path = mounts[i].f_mntonname;
        std::string name = path == "/" ? path : path.substr(path.rfind('/') + 1);
        out.push_back({path, name, (mounts[i].f_flags & MNT_LOCAL) != 0});
    }
    return out;
}

bool hasPrivateFolder() { return true; }

bool namesAreNormalized() { return true; }

std::vector<std::string> extraToolFolders(std::string_view) { return {}; }  // the table knows macOS

std::string userTempRoot() {
    std::string dir;
    char buffer[PATH_MAX];
    const size_t n = ::confstr(_CS_DARWIN_USER_TEMP_DIR, buffer, sizeof buffer);
    if (n > 0 && n <= sizeof buffer) dir = buffer;
    else if (const char* env = std::getenv("TMPDIR"); env && env[0] == '/') dir = env;
    else dir = "/tmp";
    while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    const auto slash = dir.rfind('/');
    return slash == 0 || slash == std::string::npos ? std::string(1, '/') : dir.substr(0, slash);
}

std::optional<std::string> processPath(std::int32_t pid) {
    char buffer[4096] = {};
    if (proc_pidpath(pid, buffer, sizeof buffer) < 1) return std::nullopt;
    return std::string(buffer);
}

bool isAppleSilicon() {
    // An Intel Mac has no such value at all: the call fails there, which is a plain no.
    std::int32_t value = 0;
    size_t size = sizeof value;
    return ::sysctlbyname("hw.optional.arm64", &value, &size, nullptr, 0) == 0 && value == 1;
}

std::optional<std::int64_t> physicalStart(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    struct log2phys place;
    std::memset(&place, 0, sizeof place);
    const int rc = ::fcntl(fd, F_LOG2PHYS, &place);
    ::close(fd);
    if (rc != 0) return std::nullopt;
    return static_cast<std::int64_t>(place.l2p_devoffset);
}

std::optional<std::int64_t> privateSize(const std::string& path) {
    struct attrlist request;
    std::memset(&request, 0, sizeof request);
    request.bitmapcount = ATTR_BIT_MAP_COUNT;
    request.commonattr = ATTR_CMN_RETURNED_ATTRS;
    request.forkattr = ATTR_CMNEXT_PRIVATESIZE;  // with FSOPT_ATTR_CMN_EXTENDED, forkattr holds these
    // The reply: its length, the attributes returned, then the private size.
    alignas(8) char buffer[64] = {};
    if (::getattrlist(path.c_str(), &request, buffer, sizeof buffer, FSOPT_NOFOLLOW | FSOPT_ATTR_CMN_EXTENDED) != 0)
        return std::nullopt;
    attribute_set_t returned;
    std::memcpy(&returned, buffer + sizeof(std::uint32_t), sizeof returned);
    if (!(returned.forkattr & ATTR_CMNEXT_PRIVATESIZE)) return std::nullopt;
    off_t size = 0;
    std::memcpy(&size, buffer + sizeof(std::uint32_t) + sizeof returned, sizeof size);
    return static_cast<std::int64_t>(size);
}

ShareResult shareStorage(const std::string& keeper, const std::string& copy, const std::string& working) {
    if (::clonefile(keeper.c_str(), working.c_str(), CLONE_NOFOLLOW | CLONE_NOOWNERCOPY) != 0)
        return {errno == ENOTSUP || errno == EXDEV ? ShareOutcome::unsupported : ShareOutcome::failed, errno};
    // The clone takes the copy's own owner, mode, flags, times and extended attributes.
    if (::copyfile(copy.c_str(), working.c_str(), nullptr, COPYFILE_METADATA | COPYFILE_NOFOLLOW) != 0 ||
        ::rename(working.c_str(), copy.c_str()) != 0) {
        const int error = errno;
        ::unlink(working.c_str());
        return {ShareOutcome::failed, error};
    }
    return {ShareOutcome::shared, 0};
}

bool isRemovableDevice(const std::string& /*device*/) { return false; }

void syncFileSystem(const std::string& /*path*/) { ::sync(); }

namespace {
// One send right for the life of the process: mach_host_self() hands out another on every call.
host_t theHost() {
    static const host_t host = ::mach_host_self();
    return host;
}
}  // namespace

std::optional<CPUTicks> cpuLoadTicks() {
    host_cpu_load_info_data_t load{};
    mach_msg_type_number_t count = HOST_CPU_LOAD_INFO_COUNT;
    if (::host_statistics(theHost(), HOST_CPU_LOAD_INFO, reinterpret_cast<host_info_t>(&load), &count) != KERN_SUCCESS)
        return std::nullopt;
    return CPUTicks{load.cpu_ticks[CPU_STATE_USER], load.cpu_ticks[CPU_STATE_SYSTEM], load.cpu_ticks[CPU_STATE_IDLE],
                    load.cpu_ticks[CPU_STATE_NICE]};
}

std::uint64_t physicalMemoryBytes() {
    std::uint64_t bytes = 0;
    std::size_t size = sizeof bytes;
    return ::sysctlbyname("hw.memsize", &bytes, &size, nullptr, 0) == 0 ? bytes : 0;
}

HostMemory hostMemory() {
    HostMemory memory;
    vm_statistics64_data_t vm{};
    mach_msg_type_number_t count = HOST_VM_INFO64_COUNT;
    if (::host_statistics64(theHost(), HOST_VM_INFO64, reinterpret_cast<host_info64_t>(&vm), &count) == KERN_SUCCESS) {
        memory.held = (static_cast<std::uint64_t>(vm.wire_count) + vm.compressor_page_count) *
                      static_cast<std::uint64_t>(vm_kernel_page_size);
        memory.total = physicalMemoryBytes();
    }
    struct xsw_usage swap{};
    std::size_t size = sizeof swap;
    if (::sysctlbyname("vm.swapusage", &swap, &size, nullptr, 0) == 0)
        memory.swapUsed = static_cast<std::int64_t>(swap.xsu_used);
    return memory;
}

std::optional<std::int32_t> memoryPressureLevel() {
    std::int32_t level = 0;
    std::size_t size = sizeof level;
    if (::sysctlbyname("kern.memorystatus_vm_pressure_level", &level, &size, nullptr, 0) != 0) return std::nullopt;
    return level;
}

std::optional<BatteryReading> battery() {
    CFTypeRef info = ::IOPSCopyPowerSourcesInfo();
    if (!info) return std::nullopt;
    std::optional<BatteryReading> reading;
    if (CFArrayRef sources = ::IOPSCopyPowerSourcesList(info)) {
        for (CFIndex i = 0, n = ::CFArrayGetCount(sources); i < n && !reading; ++i) {
            CFDictionaryRef description = ::IOPSGetPowerSourceDescription(info, ::CFArrayGetValueAtIndex(sources, i));
            if (!description) continue;
            const void* capacity = ::CFDictionaryGetValue(description, CFSTR(kIOPSCurrentCapacityKey));
            int percent = 0;
            if (!capacity || ::CFGetTypeID(capacity) != ::CFNumberGetTypeID() ||
                ::CFNumberIsFloatType(static_cast<CFNumberRef>(capacity)) ||
                !::CFNumberGetValue(static_cast<CFNumberRef>(capacity), kCFNumberIntType, &percent))
                continue;
            const void* charging = ::CFDictionaryGetValue(description, CFSTR(kIOPSIsChargingKey));
            reading = BatteryReading{percent, charging && ::CFGetTypeID(charging) == ::CFBooleanGetTypeID() &&
                                                  ::CFBooleanGetValue(static_cast<CFBooleanRef>(charging))};
        }
        ::CFRelease(sources);
    }
    ::CFRelease(info);
    return reading;
}

}  // namespace orvane::platform
